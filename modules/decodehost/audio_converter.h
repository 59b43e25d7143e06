// AudioConverter: decoded audio to interleaved signed 16-bit PCM at a fixed rate and channel
// count, through libswresample. Frames whose format, rate or layout differ are converted too.
//
// Threads: used by one thread at a time (the audio reader's delivery thread).
#pragma once

#include <cstdint>
#include <vector>

#include "av_ptr.h"

namespace vexel::decodehost {

class AudioConverter {
public:
    AudioConverter(int channels, int rate) : channels_(channels), rate_(rate) {}
    ~AudioConverter() { av_channel_layout_uninit(&inLayout_); }
    AudioConverter(const AudioConverter&) = delete;
    AudioConverter& operator=(const AudioConverter&) = delete;

    int channels() const { return channels_; }
    int rate() const { return rate_; }
    size_t frameBytes() const { return static_cast<size_t>(channels_) * 2; }

    // Replaces `out` with the frame's samples; returns the number of sample frames written
    // (0 when the converter buffers them), negative on failure.
    int Convert(const AVFrame* frame, std::vector<uint8_t>& out);

    // Forgets samples held back for resampling (after a seek).
    void Reset() { context_.reset(); }

private:
    bool Configure(const AVFrame* frame);

    int channels_;
    int rate_;
    SwrPtr context_;
    AVChannelLayout inLayout_{};
    int inFormat_ = -1;
    int inRate_ = 0;
};

}  // namespace vexel::decodehost
