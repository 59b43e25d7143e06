// FrameRecord: one picture on its way through the render engine, from arrival to presentation.
//
// Threads: a record belongs to one thread at a time; the queues hand it from the delivery thread to
// the render thread and on to the present thread.
#pragma once

#include <cstdint>
#include <memory>

#include "samples/inlay_buffer.h"

namespace vexel {

struct PixelDeleter {
    void operator()(uint8_t* pixels) const { FreePixels(pixels); }
};

// A picture buffer from AllocatePixels, so it can be handed to an InlayBuffer without a copy.
using PixelBuffer = std::unique_ptr<uint8_t, PixelDeleter>;

struct FrameRecord {
    PixelBuffer pixels;  // equirectangular picture, 32 bits per pixel, top row first
    uint32_t width = 0;  // a record with width or height 0 is the end marker
    uint32_t height = 0;
    uint32_t size = 0;       // bytes in pixels
    PixelBuffer viewPixels;  // rendered view; null until the render thread renders the frame
    uint32_t viewWidth = 0;
    uint32_t viewHeight = 0;
    uint32_t viewSize = 0;
    double pan = 0.0;  // view direction of this frame, degrees
    double tilt = 0.0;
    double fov = 0.0;
    bool seek = false;
    int64_t time = 0;        // presentation time, 100-ns ticks
    int64_t stopTime = 0;    // stop time of the delivered sample
    int64_t streamTime = 0;  // the sample's own start time, before any freeze shift

    bool IsEndMarker() const { return width == 0 || height == 0; }
    // A deep copy, with pictures of its own.
    std::unique_ptr<FrameRecord> Clone() const;
};

// Moves a picture and its description into a new sample; the record's buffer becomes the sample's.
InlayBuffer* MakeSample(PixelBuffer pixels, uint32_t width, uint32_t height, uint32_t size,
                        const FrameRecord& frame);

}  // namespace vexel
