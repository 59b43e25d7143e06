#include "platform/thread.h"

#include <pthread.h>

#include <system_error>
#include <utility>

namespace vexel {

Thread::~Thread() { Join(); }

bool Thread::Start(std::function<void()> body, const std::string& name) {
    if (thread_.joinable() || !body) return false;
    try {
        thread_ = std::thread([body = std::move(body), name = name.substr(0, 15)] {
            // The kernel keeps 15 characters; a failure only loses the name.
            if (!name.empty()) pthread_setname_np(pthread_self(), name.c_str());
            body();
        });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void Thread::Join() {
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
        return;
    }
    thread_.join();
}

}  // namespace vexel
