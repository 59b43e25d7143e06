// A clock that stands still until the test advances it, handed to an engine with
// SetTickClockForTesting: a wait for a frame's time (or for the client) ends when the test moves
// the clock past it, so timing tests neither sleep nor read the wall clock.
//
// Threads: Now and WaitUntil on the engine's threads, Advance and AwaitWaiters on the test's. The
// engines waiting on the clock must outlive every Advance.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/tick_clock.h"

namespace vexel::testing {

class TestTickClock final : public TickClock {
public:
    TimePoint Now() const override {
        std::lock_guard<std::mutex> guard(lock_);
        return now_;
    }

    void WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed,
                   TimePoint deadline) override {
        uint64_t id;
        {
            std::lock_guard<std::mutex> guard(lock_);
            if (now_ >= deadline) return;
            id = ++lastId_;
            waiters_.push_back({id, lock.mutex(), &changed});
        }
        parked_.notify_all();
        changed.wait(lock);  // until Advance, or the engine's own notification
        std::lock_guard<std::mutex> guard(lock_);
        std::erase_if(waiters_, [id](const Waiter& w) { return w.id == id; });
    }

    // Moves the clock on and wakes every waiter; each one that must wait on parks again.
    void Advance(std::chrono::microseconds step) {
        std::vector<Waiter> woken;
        {
            std::lock_guard<std::mutex> guard(lock_);
            now_ += step;
            woken.swap(waiters_);
        }
        // Taking each waiter's lock first means a waiter between its test and its wait is reached.
        for (const Waiter& w : woken) {
            { std::lock_guard<std::mutex> guard(*w.lock); }
            w.changed->notify_all();
        }
    }

    // Blocks until a thread waits on the clock since the last Advance (e.g. the present thread for
    // its next frame), or until `done()` holds, which is looked at every millisecond without the
    // clock's lock (it may read the clock or take the engine's locks).
    template <class Done>
    void AwaitWaiters(Done done) {
        std::unique_lock<std::mutex> guard(lock_);
        while (waiters_.empty()) {
            guard.unlock();
            if (done()) return;
            guard.lock();
            if (waiters_.empty()) parked_.wait_for(guard, std::chrono::milliseconds(1));
        }
    }
    void AwaitWaiters() {
        AwaitWaiters([] { return false; });
    }

private:
    struct Waiter {
        uint64_t id;
        std::mutex* lock;
        std::condition_variable* changed;
    };

    mutable std::mutex lock_;
    std::condition_variable parked_;
    TimePoint now_{};
    uint64_t lastId_ = 0;
    std::vector<Waiter> waiters_;
};

}  // namespace vexel::testing
