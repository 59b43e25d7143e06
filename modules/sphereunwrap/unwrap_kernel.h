// The per-frame half of unwrapping: every target pixel is the bilinear blend of the four source
// pixels around one precomputed position (a tap); pixels that two lenses see then mix in a second
// tap. Every result has alpha 255.
//
// Fractions are in 1/64 (a tap's fx, fy and a blend weight are 0..64). Each step rounds back to 8
// bits, which keeps every sum inside 16-bit lanes. The SSE4.1 version gives bit-identical pixels
// to the plain one, which is the reference.
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexel::unwrap {

inline constexpr uint32_t kOne = 64;  // a whole in the kernel's fractions

// Source position: offset of the top-left pixel of the 2x2 block, in pixels from the picture's
// start, and the fractions towards the right and lower neighbours, each stored as the byte pair
// (kOne - f, f) that the horizontal and vertical steps multiply by. kNoTap marks a pixel that no
// lens sees (it stays black).
struct Tap {
    uint32_t offset;
    uint16_t wx;
    uint16_t wy;
};
static_assert(sizeof(Tap) == 8);
inline constexpr uint32_t kNoTap = UINT32_MAX;

inline constexpr Tap MakeTap(uint32_t offset, uint32_t fx, uint32_t fy) {
    return {offset, static_cast<uint16_t>((kOne - fx) | fx << 8),
            static_cast<uint16_t>((kOne - fy) | fy << 8)};
}

// A second tap for one target pixel: target = first x (kOne - weight) + second x weight, rounded.
struct BlendTap {
    uint32_t target;  // pixel index in the target picture; the list is in increasing order
    uint32_t weight;
    Tap tap;
};

// Source picture: width pixels per row, rows packed.
struct SourcePicture {
    const uint32_t* pixels;
    uint32_t width;
};

// out[i] = the pixel of taps[i], mixed with the second taps that name i.
using UnwrapFunction = void (*)(SourcePicture source, const Tap* taps, size_t count,
                                const BlendTap* blends, size_t blendCount, uint32_t* out);

void UnwrapPlain(SourcePicture source, const Tap* taps, size_t count, const BlendTap* blends,
                 size_t blendCount, uint32_t* out);
void UnwrapSse41(SourcePicture source, const Tap* taps, size_t count, const BlendTap* blends,
                 size_t blendCount, uint32_t* out);

// The fastest version this processor runs (or the plain one when VEXEL_CPU=plain), chosen once.
UnwrapFunction BestUnwrap();

}  // namespace vexel::unwrap
