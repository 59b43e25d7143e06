// Seeking: the calls of one served seek from each state, half a frame either side of the target,
// requests coalesced while a seek is shown, and Play discarding requests.
#include <string>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

using CallList = std::vector<std::string>;

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
    const CallList expected = {"audio.Stop", "video.QueryInterface(PlaybackStatus)",
                               "video.GetState", "video.SetPositions(99800000,0,100200000,0)",
                               "audio.SetPositions(99800000,0,100200000,0)", "video.Run"};
    EXPECT_EQ(Calls(mark), expected);
    double time = 0;
    EXPECT_EQ(ShownFrame(&time), 250);
    EXPECT_EQ(time, 100'000'000.0);
    EXPECT_EQ(GetCurrentPlayTime(player), 100'000'000);
    EXPECT_EQ(host.Reader(AudioReader()).pushesStarted, 0u) << "the audio reader was run";
}

TEST_F(Seeking, NearTheStartBeginsAtZero) {
    const size_t mark = LogSize();
    Seek(player, 100'000);
    WaitForSeekServed(mark);
    EXPECT_EQ(Find("video", "SetPositions", mark).at(0).args[0], 0);
    EXPECT_EQ(Find("video", "SetPositions", mark).at(0).args[2], 300'000);
    EXPECT_EQ(ShownFrame(), 0);
}

TEST_F(Seeking, FromPlayingAndFromPausedStopsFirst) {
    Play(player, 0);
    size_t mark = LogSize();
    Seek(player, 40'000'000);
    WaitForSeekServed(mark);
    EXPECT_EQ(Calls(mark), (CallList{"audio.Stop", "video.QueryInterface(PlaybackStatus)",
                                     "video.GetState", "video.SetPositions(39800000,0,40200000,0)",
                                     "audio.SetPositions(39800000,0,40200000,0)", "video.Run"}));
    EXPECT_EQ(ShownFrame(), 100);

    // Play after a seek stops the seek, then plays as from Stopped.
    mark = LogSize();
    Play(player, 40'000'000);
    EXPECT_EQ(Calls(mark), (CallList{"audio.Stop", "video.QueryInterface(PlaybackStatus)",
                                     "video.GetState", "video.SetPositions(40000000,0,120000000,0)",
                                     "audio.SetPositions(40000000,0,120000000,0)", "video.Run",
                                     "audio.Run"}));

    Pause(player);
    mark = LogSize();
    Seek(player, 80'000'000);
    WaitForSeekServed(mark);
    EXPECT_EQ(Calls(mark),
              (CallList{"video.Stop", "audio.Stop", "video.QueryInterface(PlaybackStatus)",
                        "video.GetState", "video.SetPositions(79800000,0,80200000,0)",
                        "audio.SetPositions(79800000,0,80200000,0)", "video.Run"}));
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
    EXPECT_EQ(Calls(mark), CallList{}) << "served while a seek was shown";

    Stop(player);
    WaitForSeekServed(mark);
    std::this_thread::sleep_for(milliseconds(50));  // room for a wrongly served second batch
    EXPECT_EQ(Calls(mark),
              (CallList{"audio.Stop", "audio.Stop", "video.QueryInterface(PlaybackStatus)",
                        "video.GetState", "video.SetPositions(99800000,0,100200000,0)",
                        "audio.SetPositions(99800000,0,100200000,0)", "video.Run"}));
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
    EXPECT_EQ(Find("video", "SetPositions", mark).size(), 1u) << "the waiting seek was served";
    EXPECT_EQ(Find("video", "SetPositions", mark).at(0).args[0], 0);
    EXPECT_EQ(Find("audio", "Run", mark).size(), 1u);
}

}  // namespace
}  // namespace player_test
