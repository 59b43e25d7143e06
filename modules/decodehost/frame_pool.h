// FramePool: the picture buffers a video decoder decodes into, mapped from the system with huge
// pages where it offers them.
//
// libavcodec's own buffers fault in 4 KiB at a time: a 3840x1920 4:2:0 picture costs 2,700 page
// faults the first time it is written, and a decoder makes a dozen of them after each open and
// more while pictures are held downstream. With huge pages that is 6 faults a picture, and fewer
// TLB misses for the conversion that reads it.
//
// A buffer whose last reference goes waits for reuse, up to kIdleBuffers of them (what decoding
// up to a seek's target needs here); the rest go back to the system at once. So the pictures a
// playback held queued (30) do not stay mapped once it stops.
//
// Threads: libavcodec calls GetBuffer from its frame threads; buffers come back on whichever
// thread lets a picture go, also after the pool and its decoder are gone (a picture still queued
// downstream). The idle list has its own lock and lives as long as the last of them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vexel::decodehost {

class FramePool {
public:
    static constexpr size_t kIdleBuffers = 8;

    FramePool();
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;
    ~FramePool();

    // Makes `codec` (a video decoder not yet opened) take its buffers from this pool, which must
    // outlive it.
    void Attach(AVCodecContext* codec);

    // Buffers of every pool of the process mapped now, in use or waiting.
    static int64_t MappedForTesting() { return mapped_.load(); }

private:
    struct Idle;
    struct Lease;
    static int GetBuffer(AVCodecContext* codec, AVFrame* frame, int flags);
    static void GiveBack(void* lease, uint8_t* data);
    static uint8_t* Map(size_t bytes);
    static void Unmap(uint8_t* data, size_t bytes);
    AVBufferRef* Take(size_t bytes);

    std::shared_ptr<Idle> idle_;
    static std::atomic<int64_t> mapped_;
};

}  // namespace vexel::decodehost
