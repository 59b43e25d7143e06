// FrameRecord: one picture on its way through the render engine, from arrival to presentation.
// A picture from Vexel's own decoder arrives as a source that converts itself (IPictureSource)
// and becomes pixels only when the render thread takes the frame, so the decoded queue holds
// compact decoded pictures, not 32-bit ones.
//
// Threads: a record belongs to one thread at a time; the queues hand it from the delivery thread to
// the render thread and on to the present thread. Freeze copies share a picture source, which
// counts its references atomically and is only read.
#pragma once

#include <cstdint>
#include <memory>

#include "samples/inlay_buffer.h"
#include "vexel/counted_ref.h"
#include "vexel/picture_source.h"

namespace vexel {

struct PixelDeleter {
    void operator()(uint8_t* pixels) const { FreePixels(pixels); }
};

// A picture buffer from AllocatePixels, so it can be handed to an InlayBuffer without a copy.
using PixelBuffer = std::unique_ptr<uint8_t, PixelDeleter>;

struct FrameRecord {
    PixelBuffer pixels;  // equirectangular picture, 32 bits per pixel, top row first
    // Until WritePicture: the picture not converted yet (pixels is null meanwhile).
    CountedRef<IPictureSource> source;
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
    // A copy with pictures of its own; a picture not converted yet is shared, not converted.
    std::unique_ptr<FrameRecord> Clone() const;
    // Converts the source's picture into a pooled buffer of `size` bytes and lets the source go.
    // True when the pixels are there (also when there was no source); false when the buffer
    // cannot be had or the source fails, leaving no picture.
    bool WritePicture();
};

// Moves a picture and its description into a new sample; the record's buffer becomes the sample's.
InlayBuffer* MakeSample(PixelBuffer pixels, uint32_t width, uint32_t height, uint32_t size,
                        const FrameRecord& frame);

}  // namespace vexel
