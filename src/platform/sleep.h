// Sleep: suspends the calling thread for `ms` milliseconds; 0 gives up the rest of its time slice.
// Safe on any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

namespace vexel {

inline void Sleep(uint32_t ms) {
    if (ms == 0) {
        std::this_thread::yield();
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }
}

}  // namespace vexel
