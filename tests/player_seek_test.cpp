// Seeking a real clip: the frame at the target shown from each state, targets outside the media
// brought into it, requests waiting behind a shown seek coalesced to the newest, Play discarding
// them.
#include <limits>

#include "player_fixture.h"

namespace player_test {
namespace {

class Seeking : public PlayerTest {
protected:
    void SetUp() override {
        PlayerTest::SetUp();
        ASSERT_EQ(OpenClip(), 0);
        SetViewDim(player, 32, 16);
    }

    // Expects the seek to `target` to show `frame` at its time and leave the play time there.
    void ExpectSeekShows(int64_t target, int64_t frame) {
        SCOPED_TRACE(target);
        const Picture shown = SeekTo(target);
        EXPECT_EQ(shown.frame, frame);
        EXPECT_EQ(shown.time, frame * kFrame);
        EXPECT_EQ(GetCurrentPlayTime(player), frame * kFrame);
    }
};

TEST_F(Seeking, FromEachStateShowsTheNearestFrameAndServesTheNewestWaitingRequestOnce) {
    ExpectSeekShows(100 * kFrame + kFrame / 3, 100);  // Stopped: the nearest below
    Stop(player);
    ExpectSeekShows(60 * kFrame - kFrame / 3, 60);  // the nearest above
    Stop(player);
    ExpectSeekShows(kFrame / 4, 0);  // near the start
    Stop(player);

    Play(player, 0);
    ExpectPlays(0, 3);
    ExpectSeekShows(40 * kFrame, 40);  // Playing: stops first
    Play(player, 40 * kFrame);         // Play after a seek plays on from its frame
    ExpectPlays(40, 45);

    Pause(player);
    ExpectSeekShows(80 * kFrame, 80);  // Paused

    // While a seek is shown, requests wait; the picture stays.
    for (int i = 1; i <= 9; ++i) Seek(player, i * 10 * kFrame);
    Seek(player, 125 * kFrame);
    std::this_thread::sleep_for(milliseconds(100));
    Poll([](const Picture& p) { EXPECT_TRUE(p.end || p.frame == 80) << p.frame; });

    // Stop lets the newest through, and only it: the next seek to be shown is the newest's frame.
    Stop(player);
    bool closed = false;
    EXPECT_TRUE(WaitUntil([&] {
        Poll([&](const Picture& p) {
            EXPECT_TRUE(p.end || p.frame == 80 || p.frame == 125) << p.frame;
            closed = p.end && p.seek && GetCurrentPlayTime(player) == 125 * kFrame;
        });
        return closed;
    }));

    // Play drops a waiting request: playback from the start, the target never shown.
    Seek(player, 100 * kFrame);
    Play(player, 0);
    ExpectPlays(0, 10);
    std::this_thread::sleep_for(milliseconds(50));
    Poll([](const Picture& p) { EXPECT_LT(p.frame, 90) << "the dropped seek was served"; });
}

TEST_F(Seeking, TargetsOutsideTheMediaAreBroughtIntoIt) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min(),
                      kMax = std::numeric_limits<int64_t>::max();
    for (const int64_t target : {kMin, int64_t{-1}}) {
        ExpectSeekShows(target, 0);
        Stop(player);
    }
    // Past the end, with 2 s of time freeze making the timeline 8 s: the media's end.
    const double freezeAt = 1000.0, freezeFor = 2000.0;
    SetTimeFreeze(player, &freezeAt, &freezeFor, 1);
    for (const int64_t target : {kMax, kClipTicks + 2 * kSecond + 1}) {
        SCOPED_TRACE(target);
        SeekTo(target);
        EXPECT_EQ(GetCurrentPlayTime(player), kClipTicks);
        Stop(player);
    }
    SetTimeFreeze(player, nullptr, nullptr, 0);

    // Play brings its position into the media too (Play(0) is the media's start, not the range's).
    ASSERT_EQ(OpenClip(2 * kSecond, 4 * kSecond), 0);
    Play(player, kMin);
    ExpectPlays(0, 2);
    Stop(player);
    Play(player, kMax);  // past the range's end: its end marker and nothing played
    EXPECT_TRUE(WaitUntil([&] {
        bool ended = false;
        Poll([&](const Picture& p) {
            EXPECT_TRUE(p.end || p.frame >= 99) << p.frame;
            ended = p.end;
        });
        return ended;
    }));
}

}  // namespace
}  // namespace player_test
