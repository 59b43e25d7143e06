#include "samples/inlay_buffer.h"

#include <cstring>
#include <limits>

#include "projection/view_projector.h"

namespace vexel {

InlayBuffer* CreateInlayBuffer(int32_t width, int32_t height) {
    auto* sample = new InlayBuffer{};
    if (width <= 0 || height <= 0) return sample;
    const uint64_t bytes = uint64_t(width) * uint64_t(height) * 4;
    if (bytes > kMaxSampleBytes) return sample;
    sample->pixels = AllocatePixels(uint32_t(bytes));
    if (sample->pixels == nullptr) return sample;
    sample->width = uint32_t(width);
    sample->height = uint32_t(height);
    sample->size = uint32_t(bytes);
    return sample;
}

void ReleaseInlayBuffer(InlayBuffer* sample) {
    if (sample == nullptr) return;
    FreePixels(sample->pixels);
    delete sample;
}

void RenderSampleView(const InlayBuffer* sample, uint8_t* destination, uint32_t viewWidth,
                      uint32_t viewHeight) {
    if (sample == nullptr || destination == nullptr || sample->pixels == nullptr) return;
    if (sample->width < 1 || sample->height < 1) return;
    // The projector takes signed sizes; a record whose size does not cover its picture is refused
    // rather than read past its end.
    const uint64_t pictureBytes = uint64_t(sample->width) * sample->height * 4;
    if (pictureBytes > sample->size) return;
    if (viewWidth < 1 || viewHeight < 1) return;
    if (uint64_t(viewWidth) * viewHeight * 4 > std::numeric_limits<uint32_t>::max()) return;

    RenderPanoramaView(reinterpret_cast<const uint32_t*>(sample->pixels), int32_t(sample->width),
                       int32_t(sample->height), reinterpret_cast<uint32_t*>(destination),
                       int32_t(viewWidth), int32_t(viewHeight), sample->pan, sample->tilt,
                       sample->fov);
}

}  // namespace vexel
