// Seeking: half a frame either side of the target from each state, the frame at the target shown,
// requests coalesced while a seek is shown, and Play discarding requests.
#include "player_fixture.h"

namespace player_test {
namespace {

class Seeking : public PlayerTest {
protected:
    void SetUp() override {
        PlayerTest::SetUp();
        ASSERT_EQ(OpenScript(Script(300, 25.0)), 0);  // 12 s; half a frame is 200,000 ticks
        SetViewDim(player, 32, 16);
    }

    // Waits for the command thread to run the video reader from `mark` on, then for the seek to
    // finish: the sample getters share the lock the command thread holds for a whole seek.
    void WaitForSeekServed(size_t mark) {
        ASSERT_TRUE(WaitForCall("video", "Run", mark)) << "no seek served";
        InlayBuffer_Release(GetCurrentViewSample(player));
    }

    // Both readers were positioned once from `mark` on, at [start, stop).
    void ExpectPositioned(size_t mark, int64_t start, int64_t stop) {
        for (const char* reader : {"video", "audio"}) {
            const auto positions = Find(reader, "SetPositions", mark);
            ASSERT_EQ(positions.size(), 1u) << reader;
            EXPECT_EQ(positions[0].args[0], start) << reader;
            EXPECT_EQ(positions[0].args[2], stop) << reader;
        }
    }

    // The frame shown by the seek: the first picture with a width.
    int64_t ShownFrame(double* time = nullptr) {
        int64_t frame = -2;
        WaitUntil([&] {
            InlayBuffer* pre = GetCurrentPreSample(player);
            if (pre != nullptr && InlayBuffer_GetWidth(pre) != 0) {
                frame = FrameOf(pre);
                if (time) *time = InlayBuffer_GetTime(pre);
            }
            InlayBuffer_Release(pre);
            return frame != -2;
        });
        return frame;
    }
};

TEST_F(Seeking, FromStoppedPositionsHalfAFrameEitherSideAndShowsTheTarget) {
    const size_t mark = LogSize();
    Seek(player, 100'000'000);
    WaitForSeekServed(mark);
    ExpectPositioned(mark, 99'800'000, 100'200'000);
    double time = 0;
    EXPECT_EQ(ShownFrame(&time), 250);
    EXPECT_EQ(time, 100'000'000.0);
    EXPECT_EQ(GetCurrentPlayTime(player), 100'000'000);
    EXPECT_EQ(Count("audio", "Run", mark), 0u) << "a seek shows no sound";
}

TEST_F(Seeking, NearTheStartBeginsAtZero) {
    const size_t mark = LogSize();
    Seek(player, 100'000);
    WaitForSeekServed(mark);
    ExpectPositioned(mark, 0, 300'000);
    EXPECT_EQ(ShownFrame(), 0);
}

TEST_F(Seeking, FromPlayingAndFromPausedStopsFirst) {
    Play(player, 0);
    size_t mark = LogSize();
    Seek(player, 40'000'000);
    WaitForSeekServed(mark);
    ExpectPositioned(mark, 39'800'000, 40'200'000);
    EXPECT_EQ(ShownFrame(), 100);

    // Play after a seek stops the seek, then plays as from Stopped.
    mark = LogSize();
    Play(player, 40'000'000);
    ExpectPositioned(mark, 40'000'000, 120'000'000);
    EXPECT_EQ(Count("audio", "Run", mark), 1u);

    Pause(player);
    mark = LogSize();
    Seek(player, 80'000'000);
    WaitForSeekServed(mark);
    EXPECT_EQ(Count("video", "Stop", mark), 1u) << "a paused reader is stopped first";
    ExpectPositioned(mark, 79'800'000, 80'200'000);
    EXPECT_EQ(ShownFrame(), 200);
}

TEST_F(Seeking, ABurstWaitingBehindASeekIsServedOnceWithTheLastTarget) {
    size_t mark = LogSize();
    Seek(player, 20'000'000);
    WaitForSeekServed(mark);
    EXPECT_EQ(ShownFrame(), 50);

    // While a seek is shown, requests wait; ten of them make one repositioning after Stop.
    mark = LogSize();
    for (int i = 1; i <= 9; ++i) Seek(player, i * 5'000'000);
    Seek(player, 100'000'000);
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(LogSize(), mark) << "served while a seek was shown";

    Stop(player);
    WaitForSeekServed(mark);
    std::this_thread::sleep_for(milliseconds(50));  // room for a wrongly served second batch
    ExpectPositioned(mark, 99'800'000, 100'200'000);
    EXPECT_EQ(ShownFrame(), 250);
}

TEST_F(Seeking, PlayDiscardsRequestsWaitingBehindASeek) {
    size_t mark = LogSize();
    Seek(player, 20'000'000);
    WaitForSeekServed(mark);

    Seek(player, 60'000'000);
    mark = LogSize();
    Play(player, 0);
    std::this_thread::sleep_for(milliseconds(50));
    ExpectPositioned(mark, 0, 120'000'000);
    EXPECT_EQ(Count("audio", "Run", mark), 1u);
}

}  // namespace
}  // namespace player_test
