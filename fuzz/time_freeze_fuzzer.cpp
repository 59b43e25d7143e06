// The time-freeze list under any sequence of its operations (Set, Insert, Get, MapPlayTime,
// ShiftAt) with any values, non-finite and extreme ones included. Checks what holds for every list:
// Get reports the segments sorted by time, and a list without segments maps times unchanged.
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

#include "engine/time_freeze.h"

namespace {

double AnyDouble(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 2)) {
        case 0:
            return std::bit_cast<double>(in.ConsumeIntegral<uint64_t>());
        case 1:
            return in.ConsumeFloatingPoint<double>();
        default:
            return static_cast<double>(in.ConsumeIntegralInRange<int32_t>(-100000, 100000));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    vexel::TimeFreezeList list;
    std::vector<double> times, durations;
    while (in.remaining_bytes() > 0) {
        switch (in.ConsumeIntegralInRange(0, 4)) {
            case 0: {
                const int32_t count = in.ConsumeIntegralInRange<int32_t>(-1, 64);
                times.assign(count > 0 ? count : 0, 0.0);
                durations.assign(times.size(), 0.0);
                for (size_t i = 0; i < times.size(); ++i) {
                    times[i] = AnyDouble(in);
                    durations[i] = AnyDouble(in);
                }
                list.Set(times.data(), durations.data(), count);
                break;
            }
            case 1:
                list.Insert(AnyDouble(in), AnyDouble(in));
                break;
            case 2: {
                const int32_t count = list.Get(nullptr, nullptr, 0);
                if (count < 0) std::abort();
                times.assign(count, 0.0);
                durations.assign(count, 0.0);
                if (list.Get(times.data(), durations.data(), count) != count) std::abort();
                for (int32_t i = 1; i < count; ++i) {
                    if (times[i] < times[i - 1]) std::abort();  // lookups rely on the order
                }
                break;
            }
            case 3: {
                const int64_t position = in.ConsumeIntegral<int64_t>();
                const int64_t mapped = list.MapPlayTime(position);
                if (list.Get(nullptr, nullptr, 0) == 0 && mapped != position) std::abort();
                break;
            }
            default:
                list.ShiftAt(std::bit_cast<float>(in.ConsumeIntegral<uint32_t>()));
                break;
        }
    }
    return 0;
}
