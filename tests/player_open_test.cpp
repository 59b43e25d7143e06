// Opening a file: what makes Open fail, the clamped play range, the stream facts the player
// reports, files with and without sound, and opening again on an open player.
#include <string>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class Opening : public PlayerTest {
protected:
    // Open failed and nothing of the host is left alive; the player stays without a file. A
    // failure after the video stream was selected has already taken the decoded frame rate.
    void ExpectCleanFailure(const ScriptedScript& script, bool streamSelected = false) {
        EXPECT_EQ(OpenScript(script), -1);
        EXPECT_EQ(host.LiveObjects(), 0) << "a failed Open kept host objects";
        EXPECT_EQ(host.LiveReferences(), 0);
        uint64_t start = 7, end = 7;
        GetRange(player, &start, &end);
        EXPECT_EQ(start, 0u);
        EXPECT_EQ(end, 0u);
        if (!streamSelected) {
            EXPECT_EQ(GetFrameRate(player), 0.0);
        }
        const size_t mark = LogSize();
        Play(player, 0);  // still without a file: nothing to drive
        EXPECT_EQ(LogSize(), mark);
    }
};

TEST_F(Opening, FailsCleanlyWithoutAHostAFileAVideoStreamOrAControl) {
    std::vector<std::pair<const char*, ScriptedScript>> cases(6);
    cases[0].first = "no host";
    cases[0].second.failCreateHost = true;
    cases[1].first = "unreadable file";
    cases[1].second.failOpen = true;
    cases[2].first = "sound only";
    cases[2].second.streamCount = 1;
    cases[2].second.streams[0] = {0, 2, 8000, 0.0, 1.0, 10'000'000};
    cases[3].first = "no streams";
    cases[3].second.streamCount = 0;
    cases[4].first = "other kinds";
    cases[4].second.streams[0].kind = 2;
    cases[4].second.streams[1].kind = 5;
    cases[5].first = "no control";
    cases[5].second.noPlaybackControl = true;
    for (const auto& [name, script] : cases) {
        SCOPED_TRACE(name);
        host.Reset();
        testing::internal::CaptureStdout();
        ExpectCleanFailure(script, script.noPlaybackControl);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "")
            << "the module is there: nothing to say";
    }
}

TEST_F(Opening, ClampsThePlayRangeToTheDuration) {
    const struct {
        uint64_t start, end, rangeStart, rangeEnd;
    } cases[] = {
        {0, 0, 0, 600'000'000},
        {100'000'000, 300'000'000, 100'000'000, 300'000'000},
        {0, 700'000'000, 0, 600'000'000},
        {700'000'000, 0, 0, 600'000'000},
        {300'000'000, 200'000'000, 0, 200'000'000},  // start tested against the clamped end
        {600'000'000, 600'000'000, 600'000'000, 600'000'000},
    };
    ScriptedScript script = Script(1500, 25.0);
    script.streams[0].duration = 60.0;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + " .. " + std::to_string(c.end));
        host.Reset();
        ASSERT_EQ(OpenScript(script, c.start, c.end), 0);
        uint64_t start = 1, end = 1;
        GetRange(player, &start, &end);
        EXPECT_EQ(start, c.rangeStart);
        EXPECT_EQ(end, c.rangeEnd);
        for (const char* reader : {"video", "audio"}) {
            const auto positions = Find(reader, "SetPositions");
            ASSERT_EQ(positions.size(), 1u) << reader;
            EXPECT_EQ(positions[0].args[0], static_cast<int64_t>(c.rangeStart)) << reader;
            EXPECT_EQ(positions[0].args[2], static_cast<int64_t>(c.rangeEnd)) << reader;
        }
        DestroyPlayer();
        EXPECT_EQ(host.LiveObjects(), 0);
        player = Create();
    }
}

TEST_F(Opening, ReportsHalfTheStreamSizeTheDecodedFrameRateAndTheTickDuration) {
    EXPECT_EQ(GetFrameRate(player), 0.0);
    EXPECT_EQ(GetWidth(player), 0u);

    ScriptedScript script = Script(30, 30.0);
    script.streams[0].width = 3840;
    script.streams[0].height = 1920;
    script.streams[0].frameRate = 29.97;  // the stream's own rate is not what the player reports
    script.videoFrameRate = 25.0;
    ASSERT_EQ(OpenScript(script), 0);
    EXPECT_EQ(GetWidth(player), 1920u);
    EXPECT_EQ(GetHeight(player), 960u);
    EXPECT_EQ(GetFrameRate(player), 25.0);

    Close(player);
    script.streams[0].width = 2881;
    script.streams[0].height = 1441;
    script.streams[0].duration = 0.0;  // no seconds given: the stream's ticks count
    script.streams[0].streamDuration = 450'000'000;
    ASSERT_EQ(OpenScript(script), 0);
    EXPECT_EQ(GetWidth(player), 1440u);
    EXPECT_EQ(GetHeight(player), 720u);
    uint64_t start = 1, end = 1;
    GetRange(player, &start, &end);
    EXPECT_EQ(start, 0u);
    EXPECT_EQ(end, 450'000'000u);
}

TEST_F(Opening, PlaysTheFirstOfTwoVideoStreams) {
    ScriptedScript script = Script(30, 30.0);
    script.streamCount = 3;
    script.streams[1] = {1, 1000, 500, 30.0, 1.0, 10'000'000};
    script.streams[2] = {0, 2, 8000, 0.0, 1.0, 10'000'000};
    script.streams[0].width = 200;
    ASSERT_EQ(OpenScript(script), 0);
    EXPECT_EQ(GetWidth(player), 100u);
    EXPECT_EQ(Find("description1", "GetStreamInfo").size(), 1u) << "later streams examined";
    EXPECT_EQ(Find("video", "SelectStream")[0].args[0], 0);
    EXPECT_EQ(Find("audio", "SelectStream")[0].args[0], 2);
}

TEST_F(Opening, AFileWithoutSoundPlaysOnTheVideoReaderAlone) {
    ASSERT_EQ(OpenScript(Script(250, 25.0, false)), 0);
    EXPECT_EQ(host.ReaderCount(), 2u) << "the audio reader is still asked for";
    EXPECT_EQ(AudioReader(), 0u);
    EXPECT_EQ(host.LiveObjects(), 1) << "the reader without sound was not dropped";

    Play(player, 0);
    Pause(player);
    Stop(player);
    EXPECT_EQ(Count("video", "Run"), 1u);
    EXPECT_EQ(Count("video", "Stop"), 1u);
}

TEST_F(Opening, OpenOnAnOpenPlayerReplacesTheFile) {
    ASSERT_EQ(OpenScript(Script(30, 30.0)), 0);
    const uint32_t firstVideo = VideoReader();
    const uint32_t firstAudio = AudioReader();

    ASSERT_EQ(OpenScript(Script(50, 50.0)), 0);
    EXPECT_EQ(GetFrameRate(player), 50.0);
    EXPECT_TRUE(host.Reader(firstVideo).destroyed) << "the first file's video reader lives on";
    EXPECT_NE(VideoReader(), firstVideo);
    EXPECT_NE(AudioReader(), firstAudio);
    EXPECT_TRUE(host.Reader(firstAudio).destroyed) << "the first file's audio reader lives on";
    EXPECT_EQ(host.LiveObjects(), 2);

    // The new file plays from its new readers.
    SetViewDim(player, 32, 16);
    Play(player, 0);
    ASSERT_TRUE(WaitUntil([&] { return host.Reader(VideoReader()).endOfStreams == 1; }));
    EXPECT_EQ(host.Reader(firstVideo).pushesStarted, 0u);
    InlayBuffer* sample = nullptr;
    ASSERT_TRUE(WaitUntil([&] { return (sample = GetCurrentPreSample(player)) != nullptr; }));
    EXPECT_GE(FrameOf(sample), 0);
    InlayBuffer_Release(sample);
}

}  // namespace
}  // namespace player_test
