// How the PCM source lines up stamps after a resume: stamps from a new origin continue the running
// stream without a gap or an overlap, stamps already on their way keep their place.
#include "../modules/audiofeed/stamp_rebase.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace vexel::audiofeed {
namespace {

constexpr int64_t kBlock = 200'000;  // 20 ms

struct Stamps {
    int64_t start, stop;
};

Stamps Map(StampRebase& rebase, int64_t start, int64_t stop) {
    rebase.Map(start, stop);
    return {start, stop};
}

TEST(StampRebase, StampsPassUnchangedAfterAStartTime) {
    StampRebase rebase;
    rebase.Restart();
    EXPECT_EQ(Map(rebase, 0, kBlock).start, 0);
    // A gap in the stamps without a resume is a gap in the sound.
    EXPECT_EQ(Map(rebase, 5 * kBlock, 6 * kBlock).start, 5 * kBlock);
}

TEST(StampRebase, AfterAResumeTheNewOriginContinuesTheStream) {
    StampRebase rebase;
    Map(rebase, 49 * kBlock, 50 * kBlock);  // played before the pause, old origin 0
    rebase.ExpectNewOrigin();
    // A block already on its way keeps its old stamps and its place.
    const Stamps carried = Map(rebase, 50 * kBlock, 51 * kBlock);
    EXPECT_EQ(carried.start, 50 * kBlock);
    // The player now stamps from the last presented frame, 0.98 s: the next block would land in
    // the past; it is laid right after the previous one instead.
    const int64_t origin = 9'800'000;
    const Stamps next = Map(rebase, 51 * kBlock - origin, 52 * kBlock - origin);
    EXPECT_EQ(next.start, 51 * kBlock);
    EXPECT_EQ(next.stop, 52 * kBlock);
    // The correction holds for what follows, gaps included, until the next start time.
    EXPECT_EQ(Map(rebase, 52 * kBlock - origin, 53 * kBlock - origin).start, 52 * kBlock);
    EXPECT_EQ(Map(rebase, 60 * kBlock - origin, 61 * kBlock - origin).start, 60 * kBlock);
    rebase.Restart();
    EXPECT_EQ(Map(rebase, kBlock, 2 * kBlock).start, kBlock);
}

TEST(StampRebase, SmallJitterIsNoNewOrigin) {
    StampRebase rebase;
    Map(rebase, 0, kBlock);
    rebase.ExpectNewOrigin();
    EXPECT_EQ(Map(rebase, kBlock + 15'000, 2 * kBlock).start, kBlock + 15'000);
    EXPECT_EQ(rebase.Offset(), 0);
    // The next real break after that is still taken as the new origin.
    EXPECT_EQ(Map(rebase, 3 * kBlock + 500'000, 4 * kBlock + 500'000).start, 2 * kBlock);
}

TEST(StampRebase, NothingToFollowMeansNothingToCorrect) {
    StampRebase rebase;
    rebase.ExpectNewOrigin();
    EXPECT_EQ(Map(rebase, 7 * kBlock, 8 * kBlock).start, 7 * kBlock);
}

TEST(StampRebase, ExtremeStampsSaturate) {
    StampRebase rebase;
    Map(rebase, INT64_MAX - 10, INT64_MAX);
    rebase.ExpectNewOrigin();
    const Stamps s = Map(rebase, INT64_MIN, INT64_MIN + 10);
    EXPECT_LE(s.start, s.stop);
}

}  // namespace
}  // namespace vexel::audiofeed
