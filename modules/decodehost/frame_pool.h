// FramePool: the picture buffers a video decoder decodes into, mapped from the system with huge
// pages where it offers them.
//
// libavcodec's own buffers fault in 4 KiB at a time: a 3840x1920 4:2:0 picture costs 2,700 page
// faults the first time it is written, and a decoder makes a dozen of them after each open and
// more while pictures are held downstream. With huge pages that is 6 faults a picture, and fewer
// TLB misses for the conversion that reads it.
//
// Threads: libavcodec calls GetBuffer from its frame threads at once; the pool has its own lock.
// Buffers may outlive the pool and the decoder (a picture still referenced downstream): each
// unmaps itself when its last reference goes.
#pragma once

#include <cstddef>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vexel::decodehost {

class FramePool {
public:
    FramePool() = default;
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;
    ~FramePool();

    // Makes `codec` (a video decoder not yet opened) take its buffers from this pool, which must
    // outlive it.
    void Attach(AVCodecContext* codec);

private:
    static int GetBuffer(AVCodecContext* codec, AVFrame* frame, int flags);
    AVBufferRef* Take(size_t bytes);

    std::mutex lock_;
    AVBufferPool* pool_ = nullptr;  // buffers of bytes_ each
    size_t bytes_ = 0;
};

}  // namespace vexel::decodehost
