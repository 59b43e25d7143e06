// TickClock: the monotonic clock the render engine presents frames by, and the timed wait on it.
// The engine takes the steady clock unless a test hands it a clock of its own, which the test then
// advances (tests/test_tick_clock.h), so timing is driven instead of waited for.
//
// Threads: Now and WaitUntil are safe on any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vexel {

class TickClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    virtual ~TickClock() = default;
    virtual TimePoint Now() const = 0;
    // Waits on `changed` (`lock` held on entry and on return) until the clock reaches `deadline`
    // or `changed` is notified; may return early, so the caller tests its condition again.
    virtual void WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed,
                           TimePoint deadline) = 0;
};

// The steady clock, shared by every engine.
class SteadyTickClock final : public TickClock {
public:
    static SteadyTickClock& Instance() {
        static SteadyTickClock clock;
        return clock;
    }
    TimePoint Now() const override { return std::chrono::steady_clock::now(); }
    void WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed,
                   TimePoint deadline) override {
        changed.wait_until(lock, deadline);
    }
};

}  // namespace vexel
