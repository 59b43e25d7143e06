// Playback through the exported interface against the scripted host: bounded queues that hold the
// host back, stopping and destroying a busy player, and the view calls that depend on the state.
#include <algorithm>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class Playback : public PlayerTest {
protected:
    // Frames still inside the player (accepted from the host, not yet presented), read so that
    // the presented frame does not change while the count is taken.
    int64_t FramesInFlight(uint32_t reader, int64_t interval) {
        for (;;) {
            const int64_t before = GetCurrentPlayTime(player);
            const ScriptedReaderStats stats = host.Reader(reader);
            if (GetCurrentPlayTime(player) == before) {
                return static_cast<int64_t>(stats.pushesAccepted) - (before / interval + 1);
            }
        }
    }

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

TEST_F(Playback, FullQueuesHoldTheHostBackAndStopReleasesItPromptly) {
    constexpr int64_t kInterval = 1'000'000;  // 10 fps: the host is far faster than presentation
    ASSERT_EQ(OpenScript(Script(200, 10.0)), 0);
    SetViewDim(player, 32, 16);
    Play(player, 0);
    const uint32_t video = VideoReader();
    ASSERT_TRUE(WaitUntil([&] { return host.Reader(video).pushesAccepted >= 30; }));
    std::this_thread::sleep_for(milliseconds(250));

    // 30 waiting for rendering, 2 rendered, one each in the hands of the render and present
    // threads: the host gets no further than that ahead of the presented frame.
    const int64_t early = FramesInFlight(video, kInterval);
    EXPECT_GE(early, 30);
    EXPECT_LE(early, 36);
    EXPECT_EQ(host.Reader(video).pushesStarted, host.Reader(video).pushesAccepted + 1)
        << "the host is not held inside Push";
    std::this_thread::sleep_for(milliseconds(300));
    const int64_t later = FramesInFlight(video, kInterval);
    EXPECT_GE(later, 30);
    EXPECT_LE(later, 36);

    const auto stopAt = Clock::now();
    Stop(player);
    const double stopMs = MsSince(stopAt);
    ASSERT_TRUE(WaitUntil([&] { return host.Reader(video).deliveriesEnded == 1; }));
    const double releasedMs = MsSince(stopAt);
    EXPECT_LT(stopMs, 500.0);
    EXPECT_LT(releasedMs, 500.0);
    const ScriptedReaderStats stats = host.Reader(video);
    EXPECT_EQ(stats.pushesRefused, 1u) << "the stopped engine should refuse the next picture";
    EXPECT_EQ(stats.state, 3u);
    EXPECT_EQ(stats.endOfStreams, 0u);
    EXPECT_EQ(stats.faults, 0u);
}

TEST_F(Playback, DestroyEndsAPlayingOrPausedPlayerWhoseHostIsBlocked) {
    for (bool pause : {false, true}) {
        SCOPED_TRACE(pause ? "paused" : "playing");
        ASSERT_EQ(OpenScript(Script(200, 10.0)), 0);
        Play(player, 0);
        ASSERT_TRUE(WaitUntil([&] { return host.Reader(VideoReader()).pushesAccepted >= 30; }));
        if (pause) Pause(player);
        const auto start = Clock::now();
        DestroyPlayer();
        EXPECT_LT(MsSince(start), 1000.0);
        EXPECT_EQ(host.LiveObjects(), 0);
        host.Reset();
        player = Create();
    }
}

TEST_F(Playback, RendersSamplesOnRequestOnlyWhenNotPlaying) {
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
    ASSERT_EQ(OpenScript(Script(250, 25.0)), 0);
    SetViewDim(player, 32, 16);
    EXPECT_TRUE(renders()) << "Stopped";
    Play(player, 0);
    EXPECT_FALSE(renders()) << "Playing";
    Pause(player);
    EXPECT_TRUE(renders()) << "Paused";
    Play(player, 0);
    EXPECT_FALSE(renders()) << "Playing again";
    Stop(player);
    EXPECT_TRUE(renders()) << "Stopped again";
    InlayBuffer_Release(picture);
}

TEST_F(Playback, GesturesActOnlyWhilePlayingAndSetViewAlways) {
    ASSERT_EQ(OpenScript(Script(250, 25.0)), 0);
    SetViewDim(player, 32, 16);
    SetView(player, 10.0, 0.0, 90.0);  // while Stopped
    StartPan(player);
    AddPan(player, 40.0, 5.0);

    Play(player, 0);
    std::vector<double> pans = ViewPans(5);
    ASSERT_FALSE(pans.empty());
    for (double pan : pans) EXPECT_EQ(pan, 10.0) << "a gesture made while Stopped moved the view";

    Pause(player);
    StartPan(player);
    AddPan(player, 50.0, 5.0);
    Play(player, 0);
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
}

}  // namespace
}  // namespace player_test
