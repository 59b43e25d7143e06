// A host that re-opens and closes a player on one thread while its other threads steer the view,
// edit time freezes and take samples: every call must reach a live engine (one that Open replaced
// lives until the calls on it return), and nothing may hang or leak. Run under ASan and TSan.
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class Races : public PlayerTest {};

TEST_F(Races, ReopeningWhileOtherThreadsCallTheEngine) {
    host.Configure(Script(250, 25.0));
    ASSERT_EQ(Open(player, "/media/scripted/clip.mp4", 0, 0, 0), 0);

    std::atomic<bool> done{false};
    std::atomic<int64_t> calls{0};
    const std::vector<std::function<void()>> callers = {
        [&] {
            SetView(player, 10.0, 5.0, 90.0);
            SetViewDim(player, 32, 16);
            StartPan(player);
            AddPan(player, 20.0, 0.0);
            EndPan(player);
        },
        [&] {
            double times[4], durations[4];
            TimeFreeze(player, 500.0, 10.0);
            GetTimeFreeze(player, times, durations, 4);
            SetTimeFreeze(player, times, durations, 0);
        },
        [&] {
            GetCurrentPlayTime(player);
            InlayBuffer_Release(GetCurrentPreSample(player));
            InlayBuffer_Release(GetCurrentViewSample(player));
        },
    };
    std::vector<std::thread> threads;
    for (const auto& call : callers) {
        threads.emplace_back([&] {
            while (!done.load()) {
                call();
                ++calls;
            }
        });
    }

    int opens = 0;
    const auto start = Clock::now();
    while (MsSince(start) < 1500 || opens < 4) {  // sanitizers slow an Open down a lot
        ASSERT_EQ(Open(player, "/media/scripted/clip.mp4", 0, 0, 0), 0);
        Play(player, 0);  // frames arrive, so samples are taken from a running engine too
        if (++opens % 3 == 0) Close(player);
    }
    done.store(true);
    for (auto& t : threads) t.join();
    EXPECT_GT(calls.load(), 10 * opens) << "the other threads hardly ran";
}

}  // namespace
}  // namespace player_test
