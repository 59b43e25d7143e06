// FrameQueue: a first-in first-out queue of frame records with its own lock. Producers wait for
// room below a bound, consumers for a frame or the marked end of the stream.
//
// Threads: any number of producers and consumers. Each wait also ends when the condition it is
// given holds; whoever makes that condition true calls WakeAll afterwards.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "engine/frame_record.h"
#include "platform/tick_clock.h"

namespace vexel {

class FrameQueue {
public:
    struct Taken {
        std::unique_ptr<FrameRecord> frame;  // null when none was taken
        bool ended = false;                  // no frame waits and the end is marked
    };

    explicit FrameQueue(size_t bound) : bound_(bound) {}

    // Waits while `bound` or more frames wait; false, at once, when cancel() holds.
    template <class Cancel>
    bool WaitForRoom(Cancel cancel) {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&] { return cancel() || frames_.size() < bound_; });
        return !cancel();
    }

    // Waits until `count` frames wait or the end is marked, until `clock` reaches `deadline`, or
    // until cancel() holds.
    template <class Cancel>
    void WaitForFrames(size_t count, TickClock& clock, TickClock::TimePoint deadline,
                       Cancel cancel) {
        std::unique_lock<std::mutex> guard(lock_);
        while (frames_.size() < count && !ended_ && !cancel() && clock.Now() < deadline) {
            clock.WaitUntil(guard, changed_, deadline);
        }
    }

    // Takes the first frame, waiting for one until the end is marked; nothing once cancel() holds.
    template <class Cancel>
    Taken Take(Cancel cancel) {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&] { return !frames_.empty() || ended_ || cancel(); });
        Taken taken;
        if (cancel()) return taken;
        if (frames_.empty()) {
            taken.ended = ended_;
            return taken;
        }
        taken.frame = std::move(frames_.front());
        frames_.pop_front();
        guard.unlock();
        changed_.notify_all();  // room for a producer
        return taken;
    }

    void Push(std::unique_ptr<FrameRecord> frame);  // no bound applied
    // The time of the first frame; `otherwise` when none waits or the first is the end marker.
    int64_t FrontTime(int64_t otherwise);
    void Clear();              // frees every waiting frame
    void MarkEnd(bool ended);  // the producer's last frame is queued
    void WakeAll();            // after a cancel condition became true

private:
    const size_t bound_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<FrameRecord>> frames_;
    bool ended_ = false;
};

}  // namespace vexel
