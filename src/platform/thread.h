// Thread: one joinable thread of the library (render, present, command threads).
//
// Threads: Start, Join and IsStarted are called by the owner's thread (one at a time); the body
// runs on the new thread. A thread that must stop is told so by the owner's own atomic flag before
// Join.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace vexel {

class Thread {
public:
    Thread() = default;
    ~Thread();  // joins a thread still running
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Starts `body` on a new thread, named `name` (cut to 15 characters) for debuggers and tools.
    // False when a thread is already started or the system refuses a new one.
    bool Start(std::function<void()> body, const std::string& name = std::string());

    // Waits without a time limit for the thread to end. Nothing to do when none was started or it
    // was joined already. From the thread itself, the thread is left to end on its own.
    void Join();

    bool IsStarted() const { return thread_.joinable(); }

private:
    std::thread thread_;
};

}  // namespace vexel
