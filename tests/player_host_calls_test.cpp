// What the player asks of the codec host, call by call: opening both readers, the property records
// byte for byte, and the calls behind Play, Pause, Stop, Close and Destroy in each state.
#include <future>
#include <string>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

using CallList = std::vector<std::string>;

std::vector<uint8_t> Bytes(const ScriptedCall& call, size_t from, size_t to) {
    return std::vector<uint8_t>(call.record + from, call.record + to);
}

std::vector<uint8_t> U32(uint32_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}

class HostCalls : public PlayerTest {};

TEST_F(HostCalls, OpenMakesOneReaderPerStreamKindAndKeepsOnlyTheirControls) {
    const char* path = "/media/scripted/clip.mp4";
    host.Configure(ScriptedScript{});
    ASSERT_EQ(Open(player, path, 0, 0, 0), 0);

    const CallList expected = {
        "module.CreateCodecHost", "host1.CreateReader", "video.Open",
        "description1.GetStreamCount", "description1.GetStreamInfo(0)", "video.SetProperty",
        "video.SelectStream(0)", "stream1.SetProperty", "video.GetProperty", "video.SetSink",
        "stream1.Destroyed", "description1.Destroyed", "host1.Destroyed",
        "video.QueryInterface(PlaybackControl)", "video.SetPositions(0,0,10000000,0)",
        // The audio reader: its own host, the streams up to the first audio one.
        "module.CreateCodecHost", "host2.CreateReader", "audio.Open",
        "description2.GetStreamCount", "description2.GetStreamInfo(0)",
        "description2.GetStreamInfo(1)", "audio.SelectStream(1)", "audio.GetProperty",
        "audio.SetSink", "stream2.Destroyed", "description2.Destroyed", "host2.Destroyed",
        "audio.QueryInterface(PlaybackControl)", "audio.SetPositions(0,0,10000000,0)"};
    EXPECT_EQ(Calls(), expected);

    // The path goes through unchanged, pointer and all.
    for (const ScriptedCall& open : Find("video", "Open")) {
        EXPECT_EQ(open.args[0], reinterpret_cast<intptr_t>(path));
        EXPECT_STREQ(reinterpret_cast<const char*>(open.record), path);
    }
    // The reader references were dropped: each reader lives on through its control alone.
    EXPECT_EQ(host.Reader(VideoReader()).references, 1);
    EXPECT_EQ(host.Reader(AudioReader()).references, 1);
    EXPECT_EQ(host.LiveObjects(), 2);
}

TEST_F(HostCalls, PropertyRecordsGoOutByteForByte) {
    ASSERT_EQ(OpenScript(ScriptedScript{}), 0);

    const auto decodeMode = Find("video", "SetProperty");
    ASSERT_EQ(decodeMode.size(), 1u);
    ASSERT_EQ(decodeMode[0].recordSize, 28u);
    EXPECT_EQ(Bytes(decodeMode[0], 0, 4), U32(28));
    EXPECT_EQ(Bytes(decodeMode[0], 4, 20), GuidBytes("B8C05071-685F-4CA1-AC16-D3F3EB0145AB"));
    EXPECT_EQ(decodeMode[0].record[20], 0);  // flag; bytes 21..23 are not part of the record
    EXPECT_EQ(Bytes(decodeMode[0], 24, 28), U32(1));

    const auto setup = Find("stream1", "SetProperty");
    ASSERT_EQ(setup.size(), 1u);
    ASSERT_EQ(setup[0].recordSize, 32u);
    EXPECT_EQ(Bytes(setup[0], 0, 4), U32(32));
    EXPECT_EQ(Bytes(setup[0], 4, 20), GuidBytes("1003262F-CEBC-42A2-B1BE-66A08ECF6FD6"));
    EXPECT_EQ(Bytes(setup[0], 20, 24), U32(0));
    EXPECT_EQ(Bytes(setup[0], 24, 32), std::vector<uint8_t>(8, 0xFF));

    EXPECT_TRUE(Find("stream2", "SetProperty").empty()) << "the audio stream gets no setup";

    for (const char* reader : {"video", "audio"}) {
        const auto format = Find(reader, "GetProperty");
        ASSERT_EQ(format.size(), 1u) << reader;
        ASSERT_EQ(format[0].recordSize, 112u) << reader;
        EXPECT_EQ(Bytes(format[0], 0, 4), U32(112)) << reader;
        EXPECT_EQ(Bytes(format[0], 4, 20), GuidBytes("7F825B52-C0F7-4155-83B2-D6A623F5217E"))
            << reader;
        EXPECT_EQ(Bytes(format[0], 20, 24), U32(0)) << reader;
    }
}

TEST_F(HostCalls, StreamQueriesClearTheirOutputsFirst) {
    ScriptedScript script;
    script.streamCount = 3;
    script.streams[0] = {0, 2, 8000, 0.0, 1.0, 10'000'000};
    script.streams[1] = {7, 0, 0, 0.0, 1.0, 10'000'000};  // neither video nor audio
    script.streams[2] = {1, 64, 32, 30.0, 1.0, 10'000'000};
    ASSERT_EQ(OpenScript(script), 0);

    // Every query: second and streamDuration cleared on entry, the last argument null.
    const auto video = Find("description1", "GetStreamInfo");
    ASSERT_EQ(video.size(), 3u);
    for (const ScriptedCall& c : video) {
        EXPECT_EQ(c.args[1], 0) << "second";
        EXPECT_EQ(c.args[2], 0) << "streamDuration";
        EXPECT_EQ(c.args[3], 1) << "reserved argument not null";
    }
    EXPECT_EQ(Find("video", "SelectStream")[0].args[0], 2);
    // The audio reader stops at the first audio stream.
    EXPECT_EQ(Find("description2", "GetStreamInfo").size(), 1u);
    EXPECT_EQ(Find("audio", "SelectStream")[0].args[0], 0);
}

TEST_F(HostCalls, PlayFromStoppedPositionsBothReadersThenRunsThem) {
    ASSERT_EQ(OpenScript(Script(300, 30.0), 10'000'000, 50'000'000), 0);
    const size_t mark = LogSize();
    Play(player, 5'000'000);  // absolute media time, before rangeStart

    const CallList expected = {"video.QueryInterface(PlaybackStatus)", "video.GetState",
                            "video.SetPositions(5000000,0,50000000,0)",
                            "audio.SetPositions(5000000,0,50000000,0)", "video.Run",
                            "audio.Run"};
    EXPECT_EQ(Calls(mark), expected);
    EXPECT_EQ(host.Reader(VideoReader()).references, 1) << "status interface not dropped";
    EXPECT_TRUE(WaitUntil([&] { return host.Reader(VideoReader()).pushesAccepted > 0; }));
}

TEST_F(HostCalls, PauseResumeAndStopDependOnTheState) {
    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    Play(player, 0);

    size_t mark = LogSize();
    Pause(player);
    EXPECT_EQ(Calls(mark), (CallList{"video.Pause", "audio.Pause"}));

    mark = LogSize();
    Play(player, 123'456'789);  // resumes; the time is not used
    EXPECT_EQ(Calls(mark), (CallList{"video.Run", "audio.Run"}));

    mark = LogSize();
    Play(player, 0);  // while playing: run again, nothing else
    EXPECT_EQ(Calls(mark), (CallList{"video.Run", "audio.Run"}));

    mark = LogSize();
    Pause(player);
    Stop(player);  // from Paused the video reader is stopped too
    EXPECT_EQ(Calls(mark), (CallList{"video.Pause", "audio.Pause", "video.Stop", "audio.Stop"}));

    Play(player, 0);
    mark = LogSize();
    Stop(player);  // from Playing only the audio reader; the engine refuses further pictures
    EXPECT_EQ(Calls(mark), (CallList{"audio.Stop"}));
    EXPECT_TRUE(WaitUntil([&] {
        const uint32_t state = host.Reader(VideoReader()).state;
        return state == 0 || state == 3;
    })) << "the video reader keeps delivering after Stop";

    mark = LogSize();
    Close(player);  // from Stopped: no stop calls, both controls dropped, video first
    EXPECT_EQ(Calls(mark), (CallList{"video.Destroyed", "audio.Destroyed"}));
    EXPECT_EQ(host.LiveObjects(), 0);
}

TEST_F(HostCalls, CloseAndDestroyWhilePlayingStopTheAudioReaderAndDropBoth) {
    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    Play(player, 0);
    size_t mark = LogSize();
    Close(player);
    EXPECT_EQ(Calls(mark), (CallList{"audio.Stop", "video.Destroyed", "audio.Destroyed"}));

    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    Play(player, 0);
    Pause(player);
    mark = LogSize();
    DestroyPlayer();
    EXPECT_EQ(Calls(mark),
              (CallList{"video.Stop", "audio.Stop", "video.Destroyed", "audio.Destroyed"}));
}

TEST_F(HostCalls, CallsWithoutEffectLeaveTheHostAlone) {
    // No file: nothing to drive.
    Play(player, 0);
    Pause(player);
    Stop(player);
    Close(player);
    Seek(player, kSecond);
    std::this_thread::sleep_for(milliseconds(30));  // a few command-thread rounds
    EXPECT_EQ(LogSize(), 0u);

    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    size_t mark = LogSize();
    Pause(player);  // Stopped
    EXPECT_EQ(Calls(mark), CallList{});

    Play(player, 0);
    Pause(player);
    mark = LogSize();
    Pause(player);  // Paused
    EXPECT_EQ(Calls(mark), CallList{});

    Close(player);
    mark = LogSize();
    Close(player);  // Closed
    Pause(player);
    Play(player, 0);
    Stop(player);
    Seek(player, kSecond);
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_EQ(Calls(mark), CallList{});
}

TEST_F(HostCalls, PlayWaitsForABusyReaderPollingNotSpinning) {
    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    host.SetBusy(true);
    const size_t mark = LogSize();
    auto play = std::async(std::launch::async, [this] { Play(player, 0); });

    ASSERT_TRUE(WaitForCall("video", "GetState", mark, 3));
    const auto pollStart = Clock::now();
    const size_t polls = Find("video", "GetState", mark).size();
    std::this_thread::sleep_for(milliseconds(200));
    const size_t pollsLater = Find("video", "GetState", mark).size();
    const double elapsed = MsSince(pollStart);
    EXPECT_TRUE(Find("video", "SetPositions", mark).empty()) << "positioned a busy reader";
    EXPECT_EQ(play.wait_for(milliseconds(0)), std::future_status::timeout);

    host.SetBusy(false);
    // A Play that never returns is ended by the test's timeout (ctest), not here.
    ASSERT_EQ(play.wait_for(milliseconds(3000)), std::future_status::ready)
        << "Play still waits after the reader became ready";

    // About one poll per 10 ms: a few dozen at most in 200 ms, not thousands.
    const double rate = static_cast<double>(pollsLater - polls) / elapsed * 10.0;
    EXPECT_GT(rate, 0.3);
    EXPECT_LT(rate, 3.0);
    EXPECT_EQ(Find("video", "SetPositions", mark).size(), 1u);
    EXPECT_EQ(Find("video", "Run", mark).size(), 1u);
}

TEST_F(HostCalls, AControlWithoutStatusNeitherHangsPlayNorSeeks) {
    ScriptedScript script = Script(250, 25.0);
    script.noPlaybackStatus = true;
    ASSERT_EQ(OpenScript(script), 0);
    auto play = std::async(std::launch::async, [this] {
        Play(player, 0);
        Seek(player, kSecond);
    });
    ASSERT_EQ(play.wait_for(milliseconds(3000)), std::future_status::ready)
        << "Play waits for a status the reader cannot give";
    // The seek is served by the command thread; Destroy must still end it cleanly.
    WaitForCall("video", "Run", 0, 2);
    EXPECT_TRUE(Find("video", "GetState").empty());
}

}  // namespace
}  // namespace player_test
