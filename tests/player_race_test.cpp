// A host that re-opens and closes a player on one thread while its other threads call every other
// export on the handle (view, gestures, time freezes, samples, play time, view size, sound, seeks,
// queries, pause and stop): every call must reach a live engine (one that Open replaced lives until
// the calls on it return), and nothing may hang, leak or race. Run under ASan and TSan.
#include <atomic>
#include <functional>
#include <limits>
#include <thread>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class Races : public PlayerTest {};

TEST_F(Races, ReopeningWhileOtherThreadsCallTheEngine) {
    ASSERT_EQ(OpenClip(), 0);

    std::atomic<bool> done{false};
    std::atomic<int64_t> calls{0};
    const std::vector<std::function<void()>> callers = {
        [&] {
            SetView(player, 10.0, 5.0, 90.0);
            SetViewDim(player, 32, 16);
            StartPan(player);
            SetPanStep(player, 1.0, 1.0);
            AddPan(player, 20.0, 0.0);
            EndPan(player);
            StartZoom(player);
            AddZoom(player, 60.0);
            EndZoom(player);
        },
        [&] {
            double times[4], durations[4];
            TimeFreeze(player, 500.0, 10.0);
            const int32_t count = GetTimeFreeze(player, times, durations, 4);
            SetTimeFreeze(player, times, durations, count <= 4 ? count : 0);
            SetTimeFreeze(player, times, durations, 0);
        },
        [&] {
            GetCurrentPlayTime(player);
            InlayBuffer_Release(GetCurrentViewSample(player));
            // A paused or seeking player renders a taken panorama at its view size (at most the
            // 320 x 180 every Open starts with, as this test never sets more).
            if (InlayBuffer* pre = GetCurrentPreSample(player)) {
                std::vector<uint32_t> view(320 * 180);
                InlayBuffer_GetView(player, pre, reinterpret_cast<uint8_t*>(view.data()));
                InlayBuffer_Release(pre);
            }
        },
        [&] {
            SetVolume(player, -500);
            Mute(player, true);
            Mute(player, false);
            uint64_t start = 0, end = 0;
            GetRange(player, &start, &end);
            GetFrameRate(player);
            GetWidth(player);
            GetHeight(player);
        },
        [&] {
            Seek(player, 2 * kSecond);
            Pause(player);
            Seek(player, std::numeric_limits<int64_t>::max());
            Stop(player);
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
        ASSERT_EQ(OpenClip(), 0);
        Play(player, 0);  // frames arrive, so samples are taken from a running engine too
        if (++opens % 3 == 0) Close(player);
    }
    done.store(true);
    for (auto& t : threads) t.join();
    EXPECT_GT(calls.load(), 10 * opens) << "the other threads hardly ran";
}

}  // namespace
}  // namespace player_test
