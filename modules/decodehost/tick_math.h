// Saturating sums of 64-bit tick counts. Times reach the module from hosts and from files, so a
// sum may meet the ends of the 64-bit range; it stops there instead of wrapping round.
//
// Threads: pure functions, any thread.
#pragma once

#include <cstdint>
#include <limits>

namespace vexel::decodehost {

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

}  // namespace vexel::decodehost
