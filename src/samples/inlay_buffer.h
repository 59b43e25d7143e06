// InlayBuffer: the record through which pictures leave the library — a 32-bit picture with the
// view direction, time and seek flag of the frame it belongs to. Hosts see it only as an opaque
// pointer; the engine fills it in directly.
#pragma once

#include <cstdint>

#include "samples/pixel_buffers.h"

struct InlayBuffer {
    uint8_t* pixels;  // size bytes of 32-bit pixels, top row first; owned by the record
    uint32_t width;   // pixels per row
    uint32_t height;  // rows
    uint32_t size;    // width * height * 4
    double pan;       // view direction, degrees
    double tilt;
    double fov;        // horizontal field of view, degrees
    bool seek;         // the frame was shown by a seek
    int64_t time;      // presentation time, 100-ns ticks
    int64_t stopTime;  // end of the frame, 100-ns ticks
};

namespace vexel {

// Largest picture a sample holds; larger requests give an empty sample instead of an allocation
// that could never be meant.
constexpr uint64_t kMaxSampleBytes = uint64_t{1} << 30;

// New record with a width x height picture (contents undefined) and every other field zero.
// Zero, negative or oversized dimensions, or a failed pixel allocation, give an empty record:
// width, height and size 0 and no pixels.
InlayBuffer* CreateInlayBuffer(int32_t width, int32_t height);

// Frees the pixels and the record; null does nothing.
void ReleaseInlayBuffer(InlayBuffer* sample);

// Renders the sample's picture for its pan, tilt and fov into destination (4-byte aligned,
// viewWidth * viewHeight pixels). Does nothing for a null sample or destination, a sample without
// a consistent picture, or an empty view or one over 4 GiB.
void RenderSampleView(const InlayBuffer* sample, uint8_t* destination, uint32_t viewWidth,
                      uint32_t viewHeight);

}  // namespace vexel
