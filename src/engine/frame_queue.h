// FrameQueue: a first-in first-out queue of frame records with its own lock. Producers wait for
// room below a bound; consumers may wait a short while for a frame to arrive.
//
// Threads: any number of producers and consumers. Every wait ends on its own within the time it is
// given, or when the stop flag it watches is set and WakeAll is called.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "engine/frame_record.h"

namespace vexel {

class FrameQueue {
public:
    explicit FrameQueue(size_t bound) : bound_(bound) {}

    // Waits while `bound` or more frames wait and `stop` is clear.
    void WaitForRoom(const std::atomic<bool>& stop);
    // Waits up to `timeout` for a frame to be queued; returns at once when one waits.
    void WaitForFrame(std::chrono::milliseconds timeout);

    void Push(std::unique_ptr<FrameRecord> frame);  // no bound applied
    std::unique_ptr<FrameRecord> Pop();              // null when empty
    void Clear();
    size_t Count() const;
    void WakeAll();  // ends the waits so they look at their stop flag again

private:
    const size_t bound_;
    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<FrameRecord>> frames_;
};

}  // namespace vexel
