// Hosts that push hard, bounded to a few seconds (the sanitizer trees run them too): a seek storm
// with threads polling samples and flipping Play and Pause, after which the player still shows the
// right frames; and create/open/play/close/destroy churn that must give back every file
// descriptor, thread and byte it took.
#include <dirent.h>
#include <malloc.h>

#include <atomic>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "player_fixture.h"

namespace player_test {
namespace {

class Stress : public PlayerTest {};

TEST_F(Stress, SeekStormWithPollingAndPlayPauseFlipsLeavesAWorkingPlayer) {
    ASSERT_EQ(OpenClip(), 0);
    SetViewDim(player, 32, 16);

    std::atomic<bool> done{false};
    std::atomic<int> badPictures{0}, badTimes{0}, samples{0};
    // Polls what a render loop would: both samples and the play time. Every picture handed over is
    // a frame of the clip or an end marker, and every time lies inside the media.
    std::thread poller([&] {
        while (!done.load()) {
            for (InlayBuffer* sample :
                 {GetCurrentPreSample(player), GetCurrentViewSample(player)}) {
                if (sample == nullptr) continue;
                ++samples;
                const double time = InlayBuffer_GetTime(sample);
                if (time < 0.0 || time > static_cast<double>(kClipTicks)) ++badTimes;
                InlayBuffer_Release(sample);
            }
            Poll([&](const Picture& p) {
                if (!p.end && (p.frame < 0 || p.frame > kLastFrame)) ++badPictures;
            });
            const int64_t now = GetCurrentPlayTime(player);
            if (now < 0 || now > kClipTicks) ++badTimes;
        }
    });
    // A UI thread flipping playback while the storm goes on.
    std::thread flipper([&] {
        for (int i = 0; !done.load(); ++i) {
            switch (i % 4) {
                case 0:
                    Play(player, (i % 6) * kSecond);
                    break;
                case 1:
                    Pause(player);
                    break;
                case 2:
                    Play(player, 0);
                    break;
                default:
                    Stop(player);
                    break;
            }
            // Long enough for the decoder to get pictures out, even under the sanitizers.
            std::this_thread::sleep_for(milliseconds(100));
        }
    });

    std::mt19937_64 random(15);
    std::uniform_int_distribution<int64_t> inside(0, kClipTicks);
    const int64_t extremes[] = {std::numeric_limits<int64_t>::min(), -1, kClipTicks + 1,
                                std::numeric_limits<int64_t>::max()};
    const auto start = Clock::now();
    int seeks = 0;
    for (; MsSince(start) < 2000; ++seeks) {
        Seek(player, seeks % 10 == 0 ? extremes[(seeks / 10) % 4] : inside(random));
        // Bursts, with room after each for a seek to be served and shown.
        std::this_thread::sleep_for(milliseconds(seeks % 10 == 9 ? 50 : 1));
    }
    std::this_thread::sleep_for(milliseconds(200));  // seeks and plays being served meanwhile
    done.store(true);
    poller.join();
    flipper.join();
    EXPECT_GE(seeks, 100) << "Seek calls were slow";
    EXPECT_EQ(badPictures.load(), 0);
    EXPECT_EQ(badTimes.load(), 0);
    EXPECT_GT(samples.load(), 0) << "nothing was presented during the storm";

    // Afterwards the player behaves as if nothing happened: a seek shows its frame. (Play drops
    // the storm's requests still waiting; the Stop ends what it started.)
    Play(player, 0);
    Stop(player);
    EXPECT_EQ(SeekTo(4 * kSecond).frame, 100);
}

// What the process holds: open file descriptors, threads, bytes allocated on the heap.
struct Holdings {
    int descriptors = 0;
    int threads = 0;
    size_t heapBytes = 0;  // 0 where a sanitizer's allocator does not report it (LSan checks there)
};

int CountEntries(const char* folder) {
    int count = 0;
    if (DIR* dir = opendir(folder)) {
        while (const dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

Holdings Now() {
    Holdings h;
    h.descriptors = CountEntries("/proc/self/fd") - 1;  // less the one opendir holds
    h.threads = CountEntries("/proc/self/task");
    h.heapBytes = mallinfo2().uordblks;
    return h;
}

TEST_F(Stress, OpenPlayCloseChurnGivesBackDescriptorsThreadsAndMemory) {
    DestroyPlayer();
    // One cycle: a new player plays a little, the file is re-opened and closed, the player goes.
    const std::string clip = Clip();
    auto cycle = [&clip](int n) {
        PlayerHandle p = Create();
        ASSERT_EQ(Open(p, clip.c_str(), 0, 0, 0), 0);
        SetViewDim(p, 32, 16);
        Play(p, (n % 5) * kSecond);
        WaitUntil([p] {
            InlayBuffer* pre = GetCurrentPreSample(p);
            InlayBuffer_Release(pre);
            return pre != nullptr;
        });
        InlayBuffer_Release(GetCurrentViewSample(p));
        if (n % 2 == 0) {
            ASSERT_EQ(Open(p, clip.c_str(), 0, 0, 0), 0);
        }
        Seek(p, kSecond);
        if (n % 3 == 0) Close(p);
        Destroy(p);
    };
    cycle(0);  // loads the modules and sets up what lives for the process
    const Holdings before = Now();
    const auto start = Clock::now();
    int cycles = 0;
    while (cycles < 5 || (MsSince(start) < 2000 && cycles < 60)) cycle(++cycles);
    // Destroy joins every thread of the player; those of the decoder end with its readers.
    Holdings after = Now();
    WaitUntil([&] { return (after = Now()).threads <= before.threads; });

    EXPECT_EQ(after.descriptors, before.descriptors) << "after " << cycles << " cycles";
    EXPECT_LE(after.threads, before.threads) << "after " << cycles << " cycles";
    // Pooled picture buffers and allocator caches may stay; a leak of even one frame's pictures a
    // cycle would not.
    if (before.heapBytes != 0) {
        EXPECT_LT(after.heapBytes, before.heapBytes + (size_t{1} << 20))
            << "after " << cycles << " cycles";
    }
}

}  // namespace
}  // namespace player_test
