// Plain mutual exclusion for the library's locks.
#pragma once

#include <mutex>

namespace vexel {

using Mutex = std::mutex;
using LockGuard = std::lock_guard<Mutex>;

}  // namespace vexel
