// How the PCM source lines up stamps after a resume: stamps from a new origin continue the running
// stream without a gap or an overlap, stamps already on their way keep their place.
#include "../modules/audiofeed/stamp_rebase.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace vexel::audiofeed {
namespace {

constexpr int64_t kBlock = 200'000;  // 20 ms

// One script of starts, resumes and 20 ms blocks: each block stamped from `start` must land at
// `placed`.
TEST(StampRebase, StampsStayOnOneRunningStreamAcrossResumes) {
    enum Op { kRestart, kResume, kMap };
    constexpr int64_t kOrigin = 9'800'000;  // after a resume the player stamps from 0.98 s
    const struct {
        Op op;
        int64_t start = 0, placed = 0;
        const char* what = "";
    } steps[] = {
        {kResume},
        {kMap, 7 * kBlock, 7 * kBlock, "nothing to follow means nothing to correct"},
        {kRestart},
        {kMap, 0, 0},
        {kMap, 5 * kBlock, 5 * kBlock,
         "a gap in the stamps without a resume is a gap in the sound"},
        {kMap, 49 * kBlock, 49 * kBlock},
        {kResume},
        {kMap, 50 * kBlock, 50 * kBlock, "a block already on its way keeps its place"},
        {kMap, 51 * kBlock - kOrigin, 51 * kBlock, "the new origin is laid right after it"},
        {kMap, 52 * kBlock - kOrigin, 52 * kBlock, "the correction holds for what follows"},
        {kMap, 60 * kBlock - kOrigin, 60 * kBlock, "gaps included"},
        {kRestart},
        {kMap, kBlock, kBlock, "until the next start time"},
        {kResume},
        {kMap, 2 * kBlock + 15'000, 2 * kBlock + 15'000, "small jitter is no new origin"},
        {kMap, 4 * kBlock + 500'000, 3 * kBlock + 15'000, "the next real break is"},
    };
    StampRebase rebase;
    for (const auto& step : steps) {
        if (step.op == kRestart) rebase.Restart();
        if (step.op == kResume) rebase.ExpectNewOrigin();
        if (step.op != kMap) continue;
        int64_t start = step.start, stop = step.start + kBlock;
        rebase.Map(start, stop);
        EXPECT_EQ(start, step.placed) << step.what;
        EXPECT_EQ(stop, step.placed + kBlock) << step.what;
    }

    // Stamps at the ends of 64 bits saturate.
    StampRebase extreme;
    int64_t start = INT64_MAX - 10, stop = INT64_MAX;
    extreme.Map(start, stop);
    extreme.ExpectNewOrigin();
    start = INT64_MIN;
    stop = INT64_MIN + 10;
    extreme.Map(start, stop);
    EXPECT_LE(start, stop);
}

}  // namespace
}  // namespace vexel::audiofeed
