// MediaFile: one opened and probed container (libavformat), the description of its streams in the
// player's terms, and the conversion between stream time stamps and media time in 100-ns ticks.
//
// Media time counts from the file's start (the earliest stream start), so the video and audio
// readers of one file share one time line.
//
// Threads: used by one thread at a time (the reader's caller while opening, then its delivery
// thread). The abort flag given to Open may be set from any thread; it ends blocking reads.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "av_ptr.h"
#include "vexel/codec_host.h"
#include "vexel/ticks.h"

namespace decodehost {

inline constexpr AVRational kTickBase = {1, vexel::Ticks::period::den};
// StreamInfo::kind for streams the player does not play (subtitles, data, cover pictures).
inline constexpr uint32_t kStreamKindOther = 2;
// Times converted to ticks may differ by rounding from a time a caller computed itself.
inline constexpr int64_t kTimeSlack = 100;  // 10 microseconds
// Bits per sample of the PCM the audio reader delivers.
inline constexpr uint32_t kPcmBits = 16;

struct StreamEntry {
    StreamInfo info{};
    uint64_t durationTicks = 0;  // 0 when unknown
};

class MediaFile {
public:
    // Opens `path` (any file name or URL libavformat accepts) and reads its stream parameters.
    // Null on failure, with the libavformat error in *error. `abort`, when set, ends blocking
    // input; it must outlive the file.
    static std::unique_ptr<MediaFile> Open(const char* path, const std::atomic<bool>* abort,
                                           int* error);

    AVFormatContext* context() const { return context_.get(); }
    const std::vector<StreamEntry>& streams() const { return streams_; }

    // Stream time stamp to media time, and back.
    int64_t ToTicks(int64_t timestamp, AVRational timeBase) const;
    int64_t FromTicks(int64_t ticks, AVRational timeBase) const;

private:
    MediaFile() = default;
    void Describe();
    static int InterruptCallback(void* opaque);

    FormatPtr context_;
    std::vector<StreamEntry> streams_;
    int64_t originTicks_ = 0;
    const std::atomic<bool>* abort_ = nullptr;
};

// Frames per second of a video stream, 0.0 when the container does not tell.
double StreamFrameRate(AVFormatContext* context, AVStream* stream);

}  // namespace decodehost
