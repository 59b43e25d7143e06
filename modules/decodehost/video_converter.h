// VideoConverter: decoded pictures to the player's format 11 — 32-bit pixels with bytes B, G, R, A
// in memory, rows bottom-up, no padding — at a fixed output size. YUV pictures of that size go
// through libyuv (yuv_to_bgra.h); other pixel formats and colour matrices, and pictures of another
// size (a stream that changes size), through libswscale, which also scales them.
//
// Threads: used by one thread at a time (the video reader's delivery thread).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "av_ptr.h"

namespace vexel::decodehost {

inline constexpr uint32_t kFormatBgra32 = 11;

class VideoConverter {
public:
    VideoConverter(int width, int height) : width_(width), height_(height) {}

    int width() const { return width_; }
    int height() const { return height_; }
    size_t bytes() const { return static_cast<size_t>(width_) * height_ * 4; }

    // Writes `frame` into `out`, which holds bytes(). False when the picture cannot be converted.
    bool Convert(const AVFrame* frame, uint8_t* out);
    // Whether libyuv converts `frame` as it is: the output's size, a format and matrix it offers.
    bool ConvertsDirectly(const AVFrame& frame) const;

    // Pictures converted by every converter of the process so far.
    static uint64_t ConversionsForTesting() { return conversions_.load(); }

private:
    bool Scale(const AVFrame* frame, uint8_t* out);  // through libswscale

    static std::atomic<uint64_t> conversions_;
    int width_;
    int height_;
    SwsPtr context_;
    int colorspace_ = -1;  // colour details the context was last given
    int fullRange_ = -1;
};

}  // namespace vexel::decodehost
