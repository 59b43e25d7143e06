// LogPrintf: printf-style diagnostics to standard output. No file, level, time stamp or lock; every
// message carries its own final newline.
#pragma once

#include <atomic>

namespace vexel {

void LogPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Prints the message the first time `done` is found clear, and never again for that flag.
void LogOnce(std::atomic<bool>& done, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vexel
