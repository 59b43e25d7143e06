// Waiting, on the wall clock, for what another thread or process brings about.
//
// Threads: any; pred is called on the caller's thread.
#pragma once

#include <chrono>
#include <thread>

namespace vexel::testing {

// Polls pred every millisecond until it holds or timeout passes (generous: the sanitizer trees run
// the tests on a loaded machine); returns its last answer.
template <class Pred>
bool WaitUntil(Pred pred, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= deadline) return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace vexel::testing
