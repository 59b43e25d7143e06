// Monotonic high-resolution counter: a tick count that never goes back and its ticks per second.
// Safe on any thread.
#pragma once

#include <chrono>
#include <cstdint>

namespace vexel {

using PerfClock = std::chrono::steady_clock;

inline int64_t ReadPerfCounter() {
    return static_cast<int64_t>(PerfClock::now().time_since_epoch().count());
}

// Ticks per second of ReadPerfCounter.
inline int64_t PerfCounterFrequency() {
    static_assert(PerfClock::period::num == 1, "whole ticks per second");
    return static_cast<int64_t>(PerfClock::period::den);
}

}  // namespace vexel
