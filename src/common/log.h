// Diagnostics. LogPrintf prints the library's fixed lines, printf-style, to standard output unless
// VEXEL_LOG routes them to standard error or silences them (include/vexel/log_setting.h); every
// message carries its own final newline. LogAt prints the other lines, when VEXEL_LOG's level
// shows theirs. No file, time stamp or lock; any thread.
#pragma once

#include <atomic>

#include "vexel/log_setting.h"

namespace vexel {

void LogPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Prints the message the first time `done` is found clear, and never again for that flag.
void LogOnce(std::atomic<bool>& done, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Prints the message if VEXEL_LOG shows `level`.
void LogAt(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vexel
