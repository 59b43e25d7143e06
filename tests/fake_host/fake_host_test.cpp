// The player against a codec host that misbehaves in ways no real file provokes: Open fails
// cleanly when the host cannot be made; Play and Seek neither hang on a reader without a status
// nor spin on a busy one, and Seek and the sample getters do not wait for them.
#include "fake_host.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "../wait_until.h"
#include "vexelplayer.h"

namespace {

using namespace std::chrono_literals;

class FakeHost : public testing::Test {
protected:
    void TearDown() override {
        Destroy(player);
        FakeHost_SetFault(kFakeHostNoFault);
    }

    // Waits until the readers were run `count` times in all.
    static bool RunsReach(int64_t count) {
        return vexel::testing::WaitUntil([count] { return FakeHost_Runs() >= count; });
    }

    PlayerHandle player = Create();
};

TEST_F(FakeHost, OpenFailsCleanlyWhenTheHostCannotBeMade) {
    FakeHost_SetFault(kFakeHostCannotBeMade);
    EXPECT_EQ(Open(player, "clip.mp4", 0, 0, 0), -1);
    const int64_t runs = FakeHost_Runs();
    Play(player, 0);
    EXPECT_EQ(FakeHost_Runs(), runs);
    FakeHost_SetFault(kFakeHostNoFault);
    EXPECT_EQ(Open(player, "clip.mp4", 0, 0, 0), 0);
}

TEST_F(FakeHost, AReaderWithoutStatusNeitherHangsPlayNorSeek) {
    FakeHost_SetFault(kFakeHostNoStatus);
    ASSERT_EQ(Open(player, "clip.mp4", 0, 0, 0), 0);
    const int64_t polls = FakeHost_Polls(), runs = FakeHost_Runs();
    auto calls = std::async(std::launch::async, [this] {
        Play(player, 0);
        Seek(player, 5'000'000);
    });
    ASSERT_EQ(calls.wait_for(5s), std::future_status::ready) << "Play waits for a missing status";
    EXPECT_TRUE(RunsReach(runs + 2)) << "the seek was not served";
    EXPECT_EQ(FakeHost_Polls(), polls);
}

TEST_F(FakeHost, PlayWaitsForABusyReaderPollingNotSpinningAndSeekDoesNotWait) {
    ASSERT_EQ(Open(player, "clip.mp4", 0, 0, 0), 0);
    FakeHost_SetFault(kFakeHostBusy);
    const int64_t runs = FakeHost_Runs();
    auto play = std::async(std::launch::async, [this] { Play(player, 0); });
    vexel::testing::WaitUntil([] { return FakeHost_Polls() >= 3; });

    const auto start = std::chrono::steady_clock::now();
    const int64_t polls = FakeHost_Polls();
    auto others = std::async(std::launch::async, [this] {
        for (int i = 1; i <= 20; ++i) {
            Seek(player, i * 400'000);
            InlayBuffer_Release(GetCurrentPreSample(player));
            InlayBuffer_Release(GetCurrentViewSample(player));
            GetCurrentPlayTime(player);
        }
    });
    EXPECT_EQ(others.wait_for(5s), std::future_status::ready) << "Seek or a getter waited";
    std::this_thread::sleep_for(200ms);
    const double elapsedMs =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    // About one poll per 10 ms. A loaded machine polls less often, never more.
    EXPECT_LT(static_cast<double>(FakeHost_Polls() - polls) / elapsedMs * 10.0, 3.0);
    EXPECT_EQ(play.wait_for(0ms), std::future_status::timeout) << "Play ran a busy reader";
    EXPECT_EQ(FakeHost_Runs(), runs);

    FakeHost_SetFault(kFakeHostNoFault);
    ASSERT_EQ(play.wait_for(5s), std::future_status::ready) << "Play waits on a ready reader";
    others.wait();
    EXPECT_TRUE(RunsReach(runs + 2)) << "the newest seek was not served after the Play";
}

}  // namespace
