// Time freeze: the stored rounding, reading with a small buffer, inserting on the presentation
// timeline with its merge, the inverse mapping, and the copies of a frame that fill a freeze.
#include "engine/time_freeze.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

#include "engine/freeze_copy_plan.h"
#include "vexel/ticks.h"

namespace vexel {
namespace {

std::vector<FreezeSegment> Read(const TimeFreezeList& list) {
    const int32_t count = list.Get(nullptr, nullptr, 0);
    std::vector<double> times(count), durations(count);
    EXPECT_EQ(list.Get(times.data(), durations.data(), count), count);
    std::vector<FreezeSegment> segments;
    for (int32_t i = 0; i < count; ++i) segments.push_back({times[i], durations[i]});
    return segments;
}

TEST(TimeFreezeList, SetRoundsToWholeMillisecondsSortsAndSkipsNonsense) {
    TimeFreezeList list;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double times[] = {3000.2, 1234.6, nan, 500.0, 9e12, 2000.0};
    const double durations[] = {10.0, 99.4, 5.0, -20.0, 1.0, 1.0};
    list.Set(times, durations, 6);
    const auto segments = Read(list);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].time, 1235.0);
    EXPECT_EQ(segments[0].duration, 99.0);
    EXPECT_EQ(segments[1].time, 2000.0);
    EXPECT_EQ(segments[2].time, 3000.0);
    // Too small a buffer: the count, and nothing copied.
    double outTimes[1] = {-1}, outDurations[1] = {-1};
    EXPECT_EQ(list.Get(outTimes, outDurations, 1), 3);
    EXPECT_EQ(outTimes[0] + outDurations[0], -2);
    EXPECT_EQ(list.Get(outTimes, outDurations, -5), 3);

    list.Set(times, durations, 0);  // a count below 1 clears
    EXPECT_EQ(list.Get(nullptr, nullptr, 0), 0);
}

TEST(TimeFreezeList, ShiftAndInverseMapping) {
    TimeFreezeList list;
    EXPECT_EQ(list.MapPlayTime(123456789), 123456789);  // no segments: unchanged
    const double times[] = {1000, 3000}, durations[] = {500, 1000};
    list.Set(times, durations, 2);

    EXPECT_EQ(list.ShiftAt(2000.0f).shift, 500.0f);
    EXPECT_EQ(list.ShiftAt(999.0f).shift, 0.0f);
    const FreezeShift at3000 = list.ShiftAt(3000.0f);
    EXPECT_EQ(at3000.shift, 1500.0f);
    EXPECT_EQ(at3000.lastTime, 3000.0);
    EXPECT_EQ(at3000.lastDuration, 1000.0);

    EXPECT_EQ(list.MapPlayTime(5000 * kTicksPerMs), 3500 * kTicksPerMs);  // after both
    EXPECT_EQ(list.MapPlayTime(4000 * kTicksPerMs), 3000 * kTicksPerMs);  // inside the second
    EXPECT_EQ(list.MapPlayTime(1200 * kTicksPerMs), 1000 * kTicksPerMs);  // inside the first
    EXPECT_EQ(list.MapPlayTime(800 * kTicksPerMs), 800 * kTicksPerMs);    // before any
}

TEST(TimeFreezeList, InsertMapsThePresentationTimeAndMergesFreezesAtOneMediaTime) {
    TimeFreezeList list;
    EXPECT_EQ(list.Insert(2000, 500), 2000);
    EXPECT_EQ(list.Insert(3000, 250), 2500);  // 500 ms of freeze came before
    EXPECT_EQ(list.Insert(2200, 100), 2000);  // inside the first freeze
    const auto segments = Read(list);
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].time, 2000);
    EXPECT_EQ(segments[0].duration, 600);
    EXPECT_EQ(segments[1].time, 2500);
    EXPECT_EQ(segments[1].duration, 250);
    EXPECT_TRUE(std::isnan(list.Insert(std::numeric_limits<double>::quiet_NaN(), 5)));
    EXPECT_EQ(Read(list).size(), 2u);
}

TEST(TimeFreezeList, SetAndInsertShareOneBoundAndTheListOneCap) {
    constexpr double kMax = TimeFreezeList::kMaxMs;
    const double inf = std::numeric_limits<double>::infinity(),
                 nan = std::numeric_limits<double>::quiet_NaN();
    // Each value as a time and as a duration: Set stores the pair exactly when Insert takes it.
    for (const double value : {-1e300, -inf, nan, inf, 1e300, -1.0, -0.1, 0.0, 0.4, 1000.0,
                               kMax - 0.2, kMax, kMax + 0.1, kMax + 1.0, 9.3e15}) {
        for (const bool asTime : {true, false}) {
            const double time = asTime ? value : 500.0, duration = asTime ? 20.0 : value;
            TimeFreezeList set, inserted;
            set.Set(&time, &duration, 1);
            inserted.Insert(time, duration);
            const int32_t count = set.Get(nullptr, nullptr, 0);
            EXPECT_EQ(count, inserted.Get(nullptr, nullptr, 0))
                << value << (asTime ? " as time" : " as duration");
            EXPECT_EQ(count == 1, value >= 0.0 && value <= kMax) << value;
            for (const auto& segment : Read(set)) {
                EXPECT_LE(segment.time, kMax);
                EXPECT_LE(segment.duration, kMax);
            }
        }
    }

    // A million pairs keep the first kMaxSegments valid ones; a full list refuses inserts.
    std::vector<double> times(1'000'000), durations(times.size(), kMax);
    for (size_t i = 0; i < times.size(); ++i)
        times[i] = (i % 2 == 0) ? -1.0 : static_cast<double>(i);
    TimeFreezeList list;
    list.Set(times.data(), durations.data(), static_cast<int32_t>(times.size()));
    const auto segments = Read(list);
    ASSERT_EQ(segments.size(), TimeFreezeList::kMaxSegments);
    EXPECT_EQ(segments.front().time, 1.0);
    EXPECT_EQ(segments.back().time, 2.0 * TimeFreezeList::kMaxSegments - 1.0);
    EXPECT_EQ(list.Insert(5000.5, 10.0), 5000.5) << "a full list refuses, giving the time back";
    EXPECT_EQ(Read(list).size(), TimeFreezeList::kMaxSegments);
    EXPECT_EQ(list.TotalMs(), kMax * TimeFreezeList::kMaxSegments);

    // The fullest, longest list still maps every 64-bit position without leaving the range (the
    // sanitizer trees check the conversions); merging stops a duration at the bound.
    for (const int64_t position : {std::numeric_limits<int64_t>::min(), int64_t{-1}, int64_t{0},
                                   std::numeric_limits<int64_t>::max()}) {
        list.MapPlayTime(position);
    }
    TimeFreezeList merged;
    merged.Insert(1000.0, kMax);
    merged.Insert(1000.0, kMax);
    ASSERT_EQ(Read(merged).size(), 1u);
    EXPECT_EQ(Read(merged)[0].duration, kMax);
}

TEST(FreezeCopyPlan, TheFirstFrameAfterAFreezeStartsIsRepeatedAcrossIt) {
    TimeFreezeList list;
    const double times[] = {250, 1000}, durations[] = {300, 50};
    list.Set(times, durations, 2);
    auto at = [](int64_t ms) { return Ticks(std::chrono::milliseconds(ms)); };

    // (The copies and the frames after them through a whole player show in its sound tests.)
    // Shorter than a frame interval: no copy; earlier freezes shift the copies' times too.
    EXPECT_EQ(FreezeCopyPlan(at(1000), list, 10.0, false).CopyCount(), 0);
    const FreezeCopyPlan later(at(1000), list, 40.0, false);
    EXPECT_EQ(later.Time(), at(1350));
    ASSERT_EQ(later.CopyCount(), 2);
    EXPECT_EQ(later.CopyTime(0), at(1300));
    EXPECT_EQ(later.CopyTime(1), at(1325));

    EXPECT_EQ(FreezeCopyPlan(at(300), list, 10.0, true).CopyCount(), 0) << "a seek makes no copies";
    EXPECT_EQ(FreezeCopyPlan(at(300), list, 0.0, false).CopyCount(), 0) << "no frame rate";
    EXPECT_EQ(FreezeCopyPlan(at(300), TimeFreezeList(), 10.0, false).Time(), at(300));

    // Times at the ends of 64 bits and absurd frame rates stay in range: at most a copy a ms.
    const FreezeCopyPlan far(Ticks::max(), list, 10.0, false);
    EXPECT_EQ(far.Time(), Ticks::max());
    EXPECT_EQ(FreezeCopyPlan(at(250), list, 1e300, false).CopyCount(), 0);
    const FreezeCopyPlan dense(at(250), list, 5000.0, false);  // 1,500 frame intervals in 300 ms
    EXPECT_EQ(dense.CopyCount(), 300);
    EXPECT_EQ(dense.CopyTime(299), Ticks(3'098'000));
}

}  // namespace
}  // namespace vexel
