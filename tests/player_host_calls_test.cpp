// What Play, Pause, Stop, Close and Destroy ask of the two readers in each state, calls that must
// leave the host alone, and the wait for a busy reader.
#include <future>
#include <string>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class HostCalls : public PlayerTest {};

TEST_F(HostCalls, EachStateStopsWhatRuns) {
    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    Play(player, 0);
    size_t mark = LogSize();
    Pause(player);
    EXPECT_EQ(Count("video", "Pause", mark) + Count("audio", "Pause", mark), 2u);

    mark = LogSize();
    Play(player, 123'456'789);  // resumes; the time is not used
    EXPECT_EQ(Count("video", "SetPositions", mark), 0u);
    EXPECT_EQ(Count("video", "Run", mark) + Count("audio", "Run", mark), 2u);

    mark = LogSize();
    Pause(player);
    Stop(player);  // from Paused the video reader is stopped too
    EXPECT_EQ(Count("video", "Stop", mark) + Count("audio", "Stop", mark), 2u);

    Play(player, 0);
    mark = LogSize();
    Stop(player);  // from Playing only the audio reader; the engine refuses further pictures
    EXPECT_EQ(Count("video", "Stop", mark), 0u);
    EXPECT_EQ(Count("audio", "Stop", mark), 1u);
    EXPECT_TRUE(WaitUntil([&] {
        const uint32_t state = host.Reader(VideoReader()).state;
        return state == 0 || state == 3;
    })) << "the video reader keeps delivering after Stop";

    Close(player);  // from Stopped: both controls dropped
    EXPECT_EQ(host.LiveObjects(), 0);

    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    Play(player, 0);
    Pause(player);
    mark = LogSize();
    DestroyPlayer();  // from Paused: both stopped, both dropped (the fixture checks the host)
    EXPECT_EQ(Count("video", "Stop", mark) + Count("audio", "Stop", mark), 2u);
}

TEST_F(HostCalls, CallsWithoutEffectLeaveTheHostAlone) {
    // No file: nothing to drive.
    Play(player, 0);
    Pause(player);
    Stop(player);
    Close(player);
    Seek(player, kSecond);
    std::this_thread::sleep_for(milliseconds(30));  // room for a wrongly served seek
    EXPECT_EQ(LogSize(), 0u);

    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    size_t mark = LogSize();
    Pause(player);  // Stopped
    EXPECT_EQ(ReaderCalls(mark), 0u);

    Play(player, 0);
    Pause(player);
    mark = LogSize();
    Pause(player);  // Paused
    EXPECT_EQ(ReaderCalls(mark), 0u);

    Close(player);
    mark = LogSize();
    Close(player);  // Closed
    Pause(player);
    Play(player, 0);
    Stop(player);
    Seek(player, kSecond);
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_EQ(ReaderCalls(mark), 0u);
}

TEST_F(HostCalls, PlayWaitsForABusyReaderPollingNotSpinning) {
    ASSERT_EQ(OpenScript(Script(300, 30.0)), 0);
    host.SetBusy(true);
    const size_t mark = LogSize();
    auto play = std::async(std::launch::async, [this] { Play(player, 0); });

    ASSERT_TRUE(WaitForCall("video", "GetState", mark, 3));
    const auto pollStart = Clock::now();
    const size_t polls = Count("video", "GetState", mark);
    std::this_thread::sleep_for(milliseconds(200));
    const size_t pollsLater = Count("video", "GetState", mark);
    const double elapsed = MsSince(pollStart);
    EXPECT_EQ(Count("video", "SetPositions", mark), 0u) << "positioned a busy reader";
    EXPECT_EQ(play.wait_for(milliseconds(0)), std::future_status::timeout);

    host.SetBusy(false);
    ASSERT_EQ(play.wait_for(milliseconds(3000)), std::future_status::ready)
        << "Play still waits after the reader became ready";
    // About one poll per 10 ms, not thousands. A loaded machine polls less often, never more, so
    // only the upper bound holds whatever the load.
    const double rate = static_cast<double>(pollsLater - polls) / elapsed * 10.0;
    EXPECT_LT(rate, 3.0);
    EXPECT_EQ(Count("video", "Run", mark), 1u);
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
    EXPECT_TRUE(WaitForCall("video", "Run", 0, 2)) << "the seek was not served";
    EXPECT_TRUE(Find("video", "GetState").empty());
}

}  // namespace
}  // namespace player_test
