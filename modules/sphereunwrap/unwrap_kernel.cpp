#include "unwrap_kernel.h"

#include "vexel/cpu_kernel.h"

namespace vexel::unwrap {

namespace {

constexpr uint32_t kAlpha = 0xFF000000u;

uint32_t Channel(uint32_t pixel, int shift) { return (pixel >> shift) & 0xFF; }

// a x (kOne - f) + b x f, rounded back to 8 bits; `weights` is the pair (kOne - f, f).
uint32_t Mix(uint32_t a, uint32_t b, uint32_t weights) {
    return (a * (weights & 0xFF) + b * (weights >> 8) + kOne / 2) / kOne;
}

uint32_t SampleOne(SourcePicture source, Tap tap) {
    if (tap.offset == kNoTap) return kAlpha;
    const uint32_t* p = source.pixels + tap.offset;
    const uint32_t tl = p[0], tr = p[1], bl = p[source.width], br = p[source.width + 1];
    uint32_t result = kAlpha;
    for (int shift = 0; shift < 24; shift += 8) {
        const uint32_t top = Mix(Channel(tl, shift), Channel(tr, shift), tap.wx);
        const uint32_t bottom = Mix(Channel(bl, shift), Channel(br, shift), tap.wx);
        result |= Mix(top, bottom, tap.wy) << shift;
    }
    return result;
}

}  // namespace

void UnwrapPlain(SourcePicture source, const Tap* taps, size_t count, const BlendTap* blends,
                 size_t blendCount, uint32_t* out) {
    for (size_t i = 0; i < count; ++i) out[i] = SampleOne(source, taps[i]);
    for (size_t i = 0; i < blendCount; ++i) {
        uint32_t& pixel = out[blends[i].target];
        const uint32_t second = SampleOne(source, blends[i].tap);
        const uint32_t weights = (kOne - blends[i].weight) | blends[i].weight << 8;
        uint32_t result = kAlpha;
        for (int shift = 0; shift < 24; shift += 8) {
            result |= Mix(Channel(pixel, shift), Channel(second, shift), weights) << shift;
        }
        pixel = result;
    }
}

UnwrapFunction BestUnwrap() {
    static const UnwrapFunction best =
        ChosenCpuKernel() >= CpuKernel::kSse41 ? UnwrapSse41 : UnwrapPlain;
    return best;
}

}  // namespace vexel::unwrap
