// The renderer's timed queue and volume: blocks placed at their stream times, silence in the gaps,
// rounding absorbed, late or overlapping data cut away, and the gain of a volume.
#include "audio/pcm_timeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "audio/pcm_gain.h"
#include "vexel/ticks.h"

namespace vexel {
namespace {

// 8 kHz mono 16-bit: 8 frames (16 bytes) per millisecond.
WAVEFORMATEX Mono16() { return {WAVE_FORMAT_PCM, 1, 8000, 16000, 2, 16, 0}; }

// `frames` samples counting up from `first`.
std::vector<uint8_t> Ramp(int16_t first, int frames) {
    std::vector<uint8_t> bytes(static_cast<size_t>(frames) * 2);
    for (int i = 0; i < frames; ++i) {
        const auto v = static_cast<int16_t>(first + i);
        std::memcpy(&bytes[static_cast<size_t>(i) * 2], &v, 2);
    }
    return bytes;
}

// Runs of `count` samples from `first` on, `step` apart (silence: first and step 0).
std::vector<int16_t> Runs(std::initializer_list<std::array<int, 3>> runs) {
    std::vector<int16_t> samples;
    for (const auto& [count, first, step] : runs) {
        for (int i = 0; i < count; ++i) samples.push_back(static_cast<int16_t>(first + step * i));
    }
    return samples;
}

std::vector<int16_t> Play(PcmTimeline& timeline, uint32_t frames) {
    std::vector<int16_t> out(frames);
    timeline.Read(reinterpret_cast<uint8_t*>(out.data()), frames);
    return out;
}

TEST(PcmTimeline, BlocksPlayAtTheirStreamTimesWithSilenceBetween) {
    PcmTimeline timeline(Mono16());
    const auto a = Ramp(1, 80), b = Ramp(1000, 40);
    timeline.Add(a.data(), 160, 10 * kTicksPerMs);  // frames 80..159
    timeline.Add(b.data(), 80, 30 * kTicksPerMs);   // frames 240..279
    EXPECT_EQ(timeline.QueuedBytes(), 240u);
    EXPECT_EQ(Play(timeline, 300),
              Runs({{80, 0, 0}, {80, 1, 1}, {80, 0, 0}, {40, 1000, 1}, {20, 0, 0}}));
    EXPECT_EQ(timeline.QueuedBytes(), 0u);
    EXPECT_EQ(timeline.Position(), 300);
}

// Stamps within 2 ms of the queued end join it, and reads split anywhere play every frame once.
TEST(PcmTimeline, NearbyStampsJoinTheQueueAndSplitReadsPlayEveryFrameOnce) {
    PcmTimeline timeline(Mono16());
    const auto a = Ramp(0, 160), b = Ramp(160, 160), c = Ramp(320, 160);
    timeline.Add(a.data(), 320, 0);
    timeline.Add(b.data(), 320, 21 * kTicksPerMs);  // 1 ms late: no gap
    timeline.Add(c.data(), 320, 39 * kTicksPerMs);  // 1 ms early: no overlap
    std::vector<int16_t> out;
    for (uint32_t step : {7u, 153u, 1u, 99u, 220u}) {
        const auto part = Play(timeline, step);
        out.insert(out.end(), part.begin(), part.end());
    }
    EXPECT_EQ(out, Runs({{480, 0, 1}}));
}

TEST(PcmTimeline, LateAndOverlappingDataIsCutAway) {
    PcmTimeline timeline(Mono16());
    Play(timeline, 100);  // the first 12.5 ms have played
    const auto a = Ramp(0, 160);
    timeline.Add(a.data(), 320, 0);  // only frames 100.. are still to come
    EXPECT_EQ(timeline.QueuedBytes(), 120u);
    const auto b = Ramp(1000, 160);
    timeline.Add(b.data(), 320, 10 * kTicksPerMs);  // lies 10 ms under a: its first 80 frames go
    EXPECT_EQ(Play(timeline, 240), Runs({{60, 100, 1}, {80, 1080, 1}, {100, 0, 0}}));

    const auto old = Ramp(5, 10);
    timeline.Add(old.data(), 20, 0);  // wholly in the past: dropped
    EXPECT_EQ(timeline.QueuedBytes(), 0u);
}

TEST(PcmTimeline, AfterRunningDryALateBlockIsCutNotDelayed) {
    PcmTimeline timeline(Mono16());
    const auto a = Ramp(0, 80), b = Ramp(80, 80);
    timeline.Add(a.data(), 160, 0);
    Play(timeline, 88);  // a played, and 8 frames (1 ms) of silence: b, due at frame 80, is late
    timeline.Add(b.data(), 160, 10 * kTicksPerMs);
    // b keeps its time: its first 8 frames are gone, the rest plays where it belongs.
    EXPECT_EQ(Play(timeline, 72), Runs({{72, 88, 1}}));
}

TEST(PcmTimeline, PartialFramesAndEightBitSilence) {
    const WAVEFORMATEX stereo8 = {WAVE_FORMAT_PCM, 2, 8000, 16000, 2, 8, 0};
    PcmTimeline timeline(stereo8);
    const uint8_t bytes[5] = {1, 2, 3, 4, 5};
    // Two whole frames at frame 40; the odd byte is dropped.
    timeline.Add(bytes, 5, 5 * kTicksPerMs);
    EXPECT_EQ(timeline.QueuedBytes(), 4u);
    std::vector<uint8_t> out(100), expected(100, 0x80);  // 8-bit silence is 0x80
    std::copy(bytes, bytes + 4, expected.begin() + 80);
    timeline.Read(out.data(), 50);
    EXPECT_EQ(out, expected);

    timeline.Clear();
    EXPECT_EQ(timeline.Position(), 0);
    EXPECT_EQ(timeline.QueuedBytes(), 0u);
}

TEST(PcmTimeline, ExtremeStampsDoNotOverflow) {
    PcmTimeline timeline(Mono16());
    const auto a = Ramp(1, 8);
    timeline.Add(a.data(), 16, INT64_MAX);
    timeline.Add(a.data(), 16, INT64_MIN);
    const auto out = Play(timeline, 16);
    EXPECT_EQ(out[0], 0);
}

// (The player's volume test hears -2000 as a tenth of 16-bit sound.)
TEST(PcmGain, VolumeIsHundredthsOfADecibel) {
    EXPECT_NEAR(VolumeToGain(-600), 0.501187, 1e-6);
    EXPECT_EQ(VolumeToGain(-10000), 0.0);
    EXPECT_EQ(VolumeToGain(-30000), 0.0);

    std::vector<uint8_t> pcm16(4);
    const int16_t in[2] = {1000, -32768};
    std::memcpy(pcm16.data(), in, 4);
    ApplyVolume(pcm16.data(), 4, 16, -2000);
    int16_t out[2];
    std::memcpy(out, pcm16.data(), 4);
    EXPECT_EQ(out[0], 100);
    EXPECT_EQ(out[1], -3277);

    uint8_t pcm8[2] = {228, 28};
    ApplyVolume(pcm8, 2, 8, -2000);
    EXPECT_EQ(pcm8[0], 138);
    EXPECT_EQ(pcm8[1], 118);
    ApplyVolume(pcm8, 2, 8, -10000);
    EXPECT_EQ(pcm8[0], 128);
}

}  // namespace
}  // namespace vexel
