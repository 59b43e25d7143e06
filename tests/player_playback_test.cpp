// Opening and playing real clips through the exported interface: what the player reports, the
// clamped play range, files it cannot play, opening again on a playing player, destroying a busy
// player, and the view calls that depend on the state.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class Playback : public PlayerTest {
protected:
    // Pans of the next `count` presented view samples, or of those presented within 3 s, or
    // until `until` shows up.
    std::vector<double> ViewPans(size_t count, double until = -1.0) {
        std::vector<double> pans;
        const auto start = Clock::now();
        while (pans.size() < count && MsSince(start) < 3000) {
            if (InlayBuffer* view = GetCurrentViewSample(player)) {
                if (InlayBuffer_GetWidth(view) != 0) pans.push_back(InlayBuffer_GetPan(view));
                InlayBuffer_Release(view);
                if (!pans.empty() && pans.back() == until) break;
            }
            std::this_thread::sleep_for(milliseconds(2));
        }
        return pans;
    }
};

TEST_F(Playback, ReportsTheClipClampsTheRangeAndPlaysOnlyIt) {
    EXPECT_EQ(GetFrameRate(player), 0.0);
    const struct {
        int64_t start, end, rangeStart, rangeEnd;
    } cases[] = {
        {0, 0, 0, kClipTicks},
        {kSecond, 3 * kSecond, kSecond, 3 * kSecond},
        {0, 7 * kSecond, 0, kClipTicks},
        {7 * kSecond, 0, 0, kClipTicks},
        {3 * kSecond, 2 * kSecond, 0, 2 * kSecond},  // start tested against the clamped end
        {kClipTicks, kClipTicks, kClipTicks, kClipTicks},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + " .. " + std::to_string(c.end));
        ASSERT_EQ(OpenClip(static_cast<uint64_t>(c.start), static_cast<uint64_t>(c.end)), 0);
        EXPECT_EQ(GetWidth(player), 64u);  // half the stream's picture
        EXPECT_EQ(GetHeight(player), 32u);
        EXPECT_EQ(GetFrameRate(player), 25.0);
        uint64_t start = 1, end = 1;
        GetRange(player, &start, &end);
        EXPECT_EQ(start, static_cast<uint64_t>(c.rangeStart));
        EXPECT_EQ(end, static_cast<uint64_t>(c.rangeEnd));
    }
    ASSERT_EQ(OpenClip(kSecond, 14 * kSecond / 10), 0);
    Play(player, kSecond);
    ExpectPlays(25, 34, true);
}

TEST_F(Playback, OpenFailsCleanlyForWhatHoldsNoVideoAndReplacesAPlayingFile) {
    for (const char* name : {"no-such-file.mp4", "not-media.mp4", "sound.m4a"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(OpenClip(0, 0, name), -1);
        uint64_t start = 7, end = 7;
        GetRange(player, &start, &end);
        EXPECT_EQ(start + end, 0u);
        Play(player, 0);  // still without a file: nothing plays
        std::this_thread::sleep_for(milliseconds(20));
        Poll([](const Picture&) { ADD_FAILURE() << "a picture without a file"; });
    }
    EXPECT_EQ(Open(player, "", 0, 0, 0), -1);

    // Files without sound play on the video reader alone, to the last frame; every layout is
    // reported at half its panorama, and a dual-fisheye recording taken as it is keeps its numbers.
    // The first replaces a playing file, of which nothing is left.
    ASSERT_EQ(OpenClip(), 0);
    Play(player, 0);
    ASSERT_TRUE(WaitUntil([&] { return GetCurrentPlayTime(player) >= 3 * kFrame; }));
    for (const auto& [name, height] :
         {std::pair{"silent.mp4", 32u}, {"partial.mp4", 16u}, {"dual-fisheye.mp4", 32u}}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(OpenClip(0, 0, name), 0);
        Poll([](const Picture&) { ADD_FAILURE() << "a picture of the file before"; });
        EXPECT_EQ(GetWidth(player), 64u);
        EXPECT_EQ(GetHeight(player), height);
        uint64_t start = 1, end = 1;
        GetRange(player, &start, &end);
        EXPECT_EQ(end, static_cast<uint64_t>(kSecond));
        Play(player, 0);
        ExpectPlays(0, 24, true);
        EXPECT_EQ(GetCurrentPlayTime(player), 24 * kFrame);
    }
}

// The decoder is far faster than presentation, so its delivery thread is held in the full queues;
// Stop and Destroy must get it out promptly from either state.
TEST_F(Playback, StopAndDestroyEndABusyPlayerPromptly) {
    for (bool pause : {false, true}) {
        SCOPED_TRACE(pause ? "paused" : "playing");
        ASSERT_EQ(OpenClip(), 0);
        Play(player, 0);
        ASSERT_TRUE(WaitUntil([&] { return GetCurrentPlayTime(player) >= 5 * kFrame; }));
        if (pause) Pause(player);
        auto start = Clock::now();
        Stop(player);
        EXPECT_LT(MsSince(start), 1000.0);
        Play(player, 0);
        ASSERT_TRUE(WaitUntil([&] { return GetCurrentPlayTime(player) >= 3 * kFrame; }));
        if (pause) Pause(player);
        start = Clock::now();
        DestroyPlayer();
        EXPECT_LT(MsSince(start), 1000.0);
        player = Create();
    }
}

// The view calls by state: a taken panorama is rendered on request only when not playing; gestures
// act only while playing, SetView always.
TEST_F(Playback, ViewCallsDependOnTheState) {
    InlayBuffer* picture = InlayBuffer_CreateSample(64, 32);
    std::fill_n(reinterpret_cast<uint32_t*>(InlayBuffer_GetBuffer(picture)), 64 * 32, 0xFF336699u);
    InlayBuffer_SetView(picture, 0.0, 0.0, 90.0);
    std::vector<uint8_t> view(32 * 16 * 4);
    auto renders = [&] {
        std::fill(view.begin(), view.end(), 0xCD);
        InlayBuffer_GetView(player, picture, view.data());
        return std::any_of(view.begin(), view.end(), [](uint8_t b) { return b != 0xCD; });
    };
    EXPECT_FALSE(renders()) << "rendered before any Open";
    ASSERT_EQ(OpenClip(), 0);
    SetViewDim(player, 32, 16);
    EXPECT_TRUE(renders()) << "Stopped";
    SetView(player, 10.0, 0.0, 90.0);
    StartPan(player);
    AddPan(player, 40.0, 5.0);

    Play(player, 0);
    EXPECT_FALSE(renders()) << "Playing";
    std::vector<double> pans = ViewPans(5);
    ASSERT_FALSE(pans.empty());
    for (double pan : pans) EXPECT_EQ(pan, 10.0) << "a gesture made while Stopped moved the view";

    Pause(player);
    EXPECT_TRUE(renders()) << "Paused";
    StartPan(player);
    AddPan(player, 50.0, 5.0);
    Play(player, 0);
    EXPECT_FALSE(renders()) << "Playing again";
    for (double pan : ViewPans(5)) EXPECT_EQ(pan, 10.0) << "a gesture made while Paused";

    // Outside a gesture, queued values wait: a StartPan that slipped through a gate would show.
    AddPan(player, 30.0, 5.0);
    for (double pan : ViewPans(5)) EXPECT_EQ(pan, 10.0) << "a pan applied outside a gesture";

    // While playing, the queued values are applied one per rendered frame.
    StartPan(player);
    AddPan(player, 60.0, 5.0);
    AddPan(player, 70.0, 5.0);
    pans = ViewPans(100, 70.0);
    EndPan(player);
    EXPECT_NE(std::find(pans.begin(), pans.end(), 70.0), pans.end()) << "the gesture was lost";
    for (double pan : pans) {
        EXPECT_TRUE(pan == 10.0 || pan == 30.0 || pan == 60.0 || pan == 70.0)
            << "unexpected pan " << pan;
    }
    Stop(player);
    EXPECT_TRUE(renders()) << "Stopped again";
    InlayBuffer_Release(picture);
}

}  // namespace
}  // namespace player_test
