// Seeking: half a frame either side of the target from each state, the frame at the target shown,
// requests coalesced while a seek is shown, Play discarding requests, Seek and the sample getters
// never waiting for a seek, and targets outside the media brought into it.
#include <future>
#include <limits>

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

    // Waits for the command thread to run the video reader from `mark` on; the positioning comes
    // before that.
    void WaitForSeekServed(size_t mark) {
        ASSERT_TRUE(WaitForCall("video", "Run", mark)) << "no seek served";
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

TEST_F(Seeking, SeekAndTheSampleGettersReturnWhileASeekWaitsForTheReader) {
    host.SetBusy(true);  // the served seek waits for the reader, holding the player's control lock
    size_t mark = LogSize();
    Seek(player, 20'000'000);
    ASSERT_TRUE(WaitForCall("video", "GetState", mark, 2)) << "the seek is not being served";

    auto calls = std::async(std::launch::async, [this] {
        for (int i = 1; i <= 20; ++i) {
            Seek(player, i * 4'000'000);
            InlayBuffer_Release(GetCurrentPreSample(player));
            InlayBuffer_Release(GetCurrentViewSample(player));
            GetCurrentPlayTime(player);
        }
    });
    const bool returned = calls.wait_for(milliseconds(5000)) == std::future_status::ready;
    host.SetBusy(false);  // lets a blocked call end either way
    EXPECT_TRUE(returned) << "Seek or a sample getter waited for the seek in progress";
    calls.wait();

    // The seek in progress shows its target; of the twenty queued, the newest is served after Stop.
    WaitForSeekServed(mark);
    ExpectPositioned(mark, 19'800'000, 20'200'000);
    EXPECT_EQ(ShownFrame(), 50);
    mark = LogSize();
    Stop(player);
    WaitForSeekServed(mark);
    ExpectPositioned(mark, 79'800'000, 80'200'000);
    EXPECT_EQ(ShownFrame(), 200);
}

TEST_F(Seeking, PlayDropsASeekTakenButNotYetServed) {
    host.SetBusy(true);
    const size_t mark = LogSize();
    // The first Play waits for the reader holding the control lock; the seek queued meanwhile is
    // taken by the command thread, which then waits for that lock too; the second Play drops it.
    auto firstPlay = std::async(std::launch::async, [this] { Play(player, 0); });
    ASSERT_TRUE(WaitForCall("video", "GetState", mark, 2));
    Seek(player, 60'000'000);
    std::this_thread::sleep_for(milliseconds(20));  // time for the command thread to take it
    auto secondPlay = std::async(std::launch::async, [this] { Play(player, 0); });
    std::this_thread::sleep_for(milliseconds(20));
    host.SetBusy(false);
    firstPlay.wait();
    secondPlay.wait();
    std::this_thread::sleep_for(milliseconds(50));  // room for a wrongly served seek

    const auto positions = Find("video", "SetPositions", mark);
    ASSERT_EQ(positions.size(), 1u) << "the dropped seek was served";
    EXPECT_EQ(positions[0].args[0], 0);
    EXPECT_TRUE(WaitUntil([this] {
        InlayBuffer* pre = GetCurrentPreSample(player);
        const bool playing = pre != nullptr && !InlayBuffer_GetSeek(pre) && FrameOf(pre) > 0;
        InlayBuffer_Release(pre);
        return playing;
    })) << "the player does not play";
}

TEST_F(Seeking, TargetsOutsideTheMediaAreBroughtIntoIt) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min(),
                      kMax = std::numeric_limits<int64_t>::max();
    // Far before the start: the first frame.
    for (const int64_t target : {kMin, int64_t{-1}}) {
        const size_t mark = LogSize();
        Seek(player, target);
        WaitForSeekServed(mark);
        ExpectPositioned(mark, 0, 200'000);
        EXPECT_EQ(ShownFrame(), 0) << target;
        EXPECT_EQ(GetCurrentPlayTime(player), 0);
        Stop(player);
    }
    // Far past the end, with 2 s of time freeze making the timeline 14 s: the media's end, 12 s.
    const double freezeAt = 1000.0, freezeFor = 2000.0;
    SetTimeFreeze(player, &freezeAt, &freezeFor, 1);
    for (const int64_t target : {kMax, int64_t{140'000'001}}) {
        const size_t mark = LogSize();
        Seek(player, target);
        WaitForSeekServed(mark);
        ExpectPositioned(mark, 119'800'000, 120'200'000);
        EXPECT_EQ(GetCurrentPlayTime(player), 120'000'000) << target;
        Stop(player);
    }
    SetTimeFreeze(player, nullptr, nullptr, 0);

    // Play: the same bounds; inside them nothing moves (Play(0) is the media's start, not the
    // range's).
    ASSERT_EQ(OpenScript(Script(300, 25.0), 20'000'000, 80'000'000), 0);
    for (const auto& [target, start] :
         {std::pair<int64_t, int64_t>{kMin, 0}, {0, 0}, {kMax, 120'000'000}}) {
        const size_t mark = LogSize();
        Play(player, target);
        ExpectPositioned(mark, start, 80'000'000);
        Stop(player);
    }
}

}  // namespace
}  // namespace player_test
