#include "common/log.h"

#include <cstdarg>
#include <cstdio>

namespace vexel {

namespace {

void Print(LogLevel level, const char* format, va_list args) {
    const LogSetting& setting = CurrentLogSetting();
    if (format == nullptr || !setting.Shows(level)) return;
    std::vfprintf(setting.stream, format, args);
    std::fflush(setting.stream);
}

}  // namespace

// The fixed lines are errors: shown at every level, silenced only by "off".
void LogPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    Print(LogLevel::Error, format, args);
    va_end(args);
}

void LogOnce(std::atomic<bool>& done, const char* format, ...) {
    if (format == nullptr || done.exchange(true)) return;
    va_list args;
    va_start(args, format);
    Print(LogLevel::Error, format, args);
    va_end(args);
}

void LogAt(LogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    Print(level, format, args);
    va_end(args);
}

}  // namespace vexel
