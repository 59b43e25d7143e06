// MediaFile: one opened and probed container (libavformat), the description of its streams in the
// player's terms, and the conversion between stream time stamps and media time in 100-ns ticks.
//
// Media time counts from the file's start (the earliest stream start), so the video and audio
// readers of one file share one time line.
//
// Threads: used by one thread at a time (the reader's caller while opening, then its delivery
// thread). The interrupt check given to Open runs on that thread; it ends blocking input when
// another thread asks it to.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "av_ptr.h"
#include "vexel/codec_host.h"
#include "vexel/ticks.h"

namespace vexel::decodehost {

inline constexpr AVRational kTickBase = {1, vexel::Ticks::period::den};
// StreamInfo::kind for streams the player does not play (subtitles, data, cover pictures).
inline constexpr uint32_t kStreamKindOther = 2;
// Times converted to ticks may differ by rounding from a time a caller computed itself.
inline constexpr int64_t kTimeSlack = 100;  // 10 microseconds
// The latest media time a stream of unknown duration may be positioned at (about 14,600 years).
inline constexpr int64_t kMaxMediaTicks = int64_t{1} << 62;
// Bits per sample of the PCM the audio reader delivers.
inline constexpr uint32_t kPcmBits = 16;

struct StreamEntry {
    StreamInfo info{};
    uint64_t durationTicks = 0;  // 0 when unknown
};

class MediaFile {
public:
    // Says whether blocking input should give up now.
    using InterruptCheck = std::function<bool()>;

    // Opens `path` (a regular file, or a URL of an allowed protocol: input_policy.h) and reads
    // its stream parameters. Null on failure, with the libavformat error in *error. Network input
    // gives up after a deadline, or when `interrupted` says so.
    static std::unique_ptr<MediaFile> Open(const char* path, InterruptCheck interrupted,
                                           int* error);
    // Opens a file that libavformat reads through `io` (a custom I/O context, which the caller
    // keeps and frees after the file).
    static std::unique_ptr<MediaFile> Open(AVIOContext* io, InterruptCheck interrupted, int* error);

    AVFormatContext* context() const { return context_.get(); }
    const std::vector<StreamEntry>& streams() const { return streams_; }
    bool interrupted() const { return interrupted_ && interrupted_(); }

    // Stream time stamp to media time, and back.
    int64_t ToTicks(int64_t timestamp, AVRational timeBase) const;
    int64_t FromTicks(int64_t ticks, AVRational timeBase) const;

private:
    MediaFile() = default;
    static std::unique_ptr<MediaFile> OpenInput(const char* path, AVIOContext* io,
                                                InterruptCheck interrupted, int* error);
    void Describe();
    static int InterruptCallback(void* opaque);

    FormatPtr context_;
    std::vector<StreamEntry> streams_;
    int64_t originTicks_ = 0;
    InterruptCheck interrupted_;
};

// Frames per second of a video stream, 0.0 when the container does not tell.
double StreamFrameRate(AVFormatContext* context, AVStream* stream);

}  // namespace vexel::decodehost
