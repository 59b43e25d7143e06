// Shared ground for the player tests: a player made through the exported interface, playing clips
// that the sample generator made at test time (make_player_clips in CMakeLists.txt) through the
// real decoder module, and the frame number each picture carries.
//
// Threads: the fixture runs on the test's thread; the helpers that poll do so with short sleeps and
// a deadline.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "frame_code.h"
#include "vexel/ticks.h"
#include "vexelplayer.h"
#include "wait_until.h"

namespace player_test {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int64_t kSecond = vexel::kTicksPerSecond;
// clip.mp4: 128x64 at 25 fps, 6 s (frames 0 to 149), a keyframe every second, and the generator's
// sound: a 100 ms beep at the start of every second.
constexpr int64_t kFrame = kSecond / 25;
constexpr int64_t kLastFrame = 149;
constexpr int64_t kClipTicks = 150 * kFrame;

inline std::string Clip(const char* name = "clip.mp4") {
    return std::string(VEXEL_PLAYER_CLIPS) + "/" + name;
}

inline double MsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

using vexel::testing::WaitUntil;

// What a presented panorama sample shows: its frame number (-1 for an end marker) and time.
struct Picture {
    int64_t frame = -1;
    int64_t time = 0;
    bool seek = false;
    bool end = false;  // the end marker of a playback or a seek
};

inline Picture Read(InlayBuffer* sample) {
    const auto width = static_cast<int>(InlayBuffer_GetWidth(sample));
    Picture p;
    p.end = width == 0;
    if (!p.end) {
        p.frame = framecode::Read(InlayBuffer_GetBuffer(sample), width,
                                  static_cast<int>(InlayBuffer_GetHeight(sample)));
    }
    p.time = static_cast<int64_t>(InlayBuffer_GetTime(sample));
    p.seek = InlayBuffer_GetSeek(sample);
    return p;
}

class PlayerTest : public testing::Test {
protected:
    void SetUp() override {
        player = Create();
        ASSERT_NE(player, nullptr);
    }
    void TearDown() override { DestroyPlayer(); }

    void DestroyPlayer() {
        Destroy(player);
        player = nullptr;
    }

    int32_t OpenClip(uint64_t start = 0, uint64_t end = 0, const char* name = "clip.mp4") {
        return Open(player, Clip(name).c_str(), start, end, 0);
    }

    // Takes the current samples (both, as a render loop does); calls take(Picture) for a panorama.
    template <class Take>
    void Poll(Take take) {
        InlayBuffer_Release(GetCurrentViewSample(player));
        if (InlayBuffer* pre = GetCurrentPreSample(player)) {
            take(Read(pre));
            InlayBuffer_Release(pre);
        }
    }

    // Takes pictures until frame `last` shows, or with `toTheEnd` until the end marker after it:
    // every frame in order at its own time, none before `first`. (A loaded machine may hold the
    // test thread back past a picture, never the last one: the end marker waits for it.)
    void ExpectPlays(int64_t first, int64_t last, bool toTheEnd = false) {
        int64_t shown = -1;
        bool ended = false;
        ASSERT_TRUE(WaitUntil([&] {
            Poll([&](const Picture& p) {
                ended = p.end;
                if (p.end || p.frame == shown) return;
                EXPECT_GE(p.frame, std::max(first, shown + 1)) << "out of order";
                EXPECT_EQ(p.time, p.frame * kFrame) << "frame " << p.frame;
                EXPECT_FALSE(p.seek);
                shown = p.frame;
            });
            return toTheEnd ? ended : shown >= last;
        })) << "reached frame "
            << shown;
        EXPECT_TRUE(!toTheEnd || shown == last) << "the last frame was " << shown;
    }

    // The picture a seek presents: the last one before the end marker that closes the seek. The
    // caller stops the player before the next seek: requests wait while a seek is shown.
    Picture SeekTo(int64_t target) {
        Seek(player, target);
        Picture shown;
        bool closed = false;
        EXPECT_TRUE(WaitUntil([&] {
            Poll([&](const Picture& p) {
                if (!p.end) shown = p;
                closed = p.end && p.seek;
            });
            return closed;
        })) << "no end of the seek to "
            << target;
        return shown;
    }

    PlayerHandle player = nullptr;
};

}  // namespace player_test
