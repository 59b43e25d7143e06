// Ticks: the 100-ns unit of every time that crosses the library's own code (stream positions,
// sample times, play ranges), shared with the modules. The C interface carries the same counts as
// plain int64 values. The conversions give exactly what dividing or multiplying the count by the
// factor in double gives, so figures derived from them are reproducible.
#pragma once

#include <chrono>
#include <cstdint>
#include <ratio>

namespace vexel {

using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;

// Ticks in a second and in a millisecond, for counts kept in plain integers.
constexpr int64_t kTicksPerSecond = Ticks::period::den;
constexpr int64_t kTicksPerMs = kTicksPerSecond / 1000;

// A fractional tick count, for arithmetic that truncates only at the end.
using TicksF = std::chrono::duration<double, Ticks::period>;

// Milliseconds and seconds of a tick count (ticks / 10^4, ticks / 10^7).
constexpr double ToMs(TicksF time) {
    return std::chrono::duration<double, std::milli>(time).count();
}
constexpr double ToSeconds(TicksF time) { return std::chrono::duration<double>(time).count(); }

// Fractional milliseconds and seconds as ticks, before truncation (ms x 10^4, s x 10^7).
constexpr TicksF MsToTicksF(double ms) { return std::chrono::duration<double, std::milli>(ms); }
constexpr TicksF SecondsToTicksF(double seconds) { return std::chrono::duration<double>(seconds); }

// Truncated toward zero to whole ticks.
constexpr Ticks Truncate(TicksF time) { return std::chrono::duration_cast<Ticks>(time); }

}  // namespace vexel
