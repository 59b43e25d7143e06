#include "common/log.h"

#include <cstdarg>
#include <cstdio>

namespace vexel {

void LogPrintf(const char* format, ...) {
    if (format == nullptr) return;
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
}

void LogOnce(std::atomic<bool>& done, const char* format, ...) {
    if (format == nullptr || done.exchange(true)) return;
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
}

}  // namespace vexel
