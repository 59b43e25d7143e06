// PerfClock: the monotonic high-resolution clock the sound devices pace their output by.
// Safe on any thread.
#pragma once

#include <chrono>

namespace vexel {

using PerfClock = std::chrono::steady_clock;

}  // namespace vexel
