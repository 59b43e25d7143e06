// The process's resident memory as the kernel reports it, for the playback benchmark and the
// engine's memory test. Linux only; any thread.
#pragma once

#include <fstream>
#include <string>

namespace vexel {

// A field of /proc/self/status in bytes (VmRSS, VmHWM); 0 when missing.
inline double StatusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(field + ":", 0) == 0)
            return std::stod(line.substr(field.size() + 1)) * 1024.0;
    }
    return 0.0;
}

// Starts a new peak of the resident set (VmHWM) from the current one.
inline void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

}  // namespace vexel
