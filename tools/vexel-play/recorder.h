// Recorder: encodes the presented views into view.mp4 on a thread of its own, so that encoding
// does not hold up the polling of the player.
//
// Threads: Add and Finish are called by one thread (the playback loop); the encoder thread takes
// the queued pictures. At most kQueueBound pictures wait; a picture that finds the queue full is
// left out of the recording rather than holding up the playback loop.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "media_writer.h"

namespace play {

class Recorder {
public:
    static constexpr size_t kQueueBound = 60;

    Recorder() = default;
    ~Recorder();  // finishes if still open
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Opens `path` for pictures of width x height at about `fps`; false with error() set.
    bool Open(const std::string& path, int width, int height, double fps);
    // Queues one picture (B,G,R,A, rows top-down) shown at `ticks` from the start; false when it
    // is left out (queue full, times not rising, or the encoder failed).
    bool Add(const uint8_t* pixels, int64_t ticks);
    // Encodes what is queued and closes the file; false with error() set.
    bool Finish();

    const std::string& error() const { return error_; }
    double threadCpuSeconds() const { return cpuSeconds_; }  // valid after Finish
    size_t framesWritten() const { return written_; }        // valid after Finish
    size_t framesLeftOut() const { return leftOut_; }

private:
    struct Picture {
        std::vector<uint8_t> pixels;
        int64_t ticks = 0;
    };
    void Encode();

    mediakit::MediaWriter writer_;
    int width_ = 0;
    int height_ = 0;
    int64_t lastTicks_ = -1;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Picture> queue_;
    bool closing_ = false;
    bool failed_ = false;
    std::string error_;
    double cpuSeconds_ = 0.0;
    size_t written_ = 0;
    size_t leftOut_ = 0;  // playback loop only
};

}  // namespace play
