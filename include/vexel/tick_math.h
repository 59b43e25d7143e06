// Saturating arithmetic on 64-bit tick counts. Times reach the library and its modules from hosts
// and from files, so a sum may meet the ends of the 64-bit range; it stops there instead of
// wrapping round, and a fractional count is brought into the range before it is truncated.
//
// Threads: pure functions, any thread.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace vexel {

inline int64_t AddTicks(int64_t a, int64_t b) {
    int64_t sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}

inline int64_t SubTicks(int64_t a, int64_t b) {
    int64_t difference = 0;
    if (!__builtin_sub_overflow(a, b, &difference)) return difference;
    return b < 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}

// A fractional tick count truncated toward zero to whole ticks; beyond 64 bits it stops at the
// ends of the range, and not-a-number gives 0.
inline int64_t TruncateTicks(double ticks) {
    if (std::isnan(ticks)) return 0;
    // 2^63 is the first double beyond the range; the largest below it converts exactly.
    constexpr double kLimit = 9223372036854775808.0;
    if (ticks >= kLimit) return std::numeric_limits<int64_t>::max();
    if (ticks < -kLimit) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(ticks);
}

}  // namespace vexel
