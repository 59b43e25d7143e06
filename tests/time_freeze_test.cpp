// Time freeze: the stored rounding, reading with a small buffer, inserting on the presentation
// timeline with its merge, the inverse mapping, and the frames the engine repeats at a freeze.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "engine/render_engine.h"
#include "engine/time_freeze.h"

namespace vexel {
namespace {

constexpr int64_t kTicksPerMs = 10000;

std::vector<FreezeSegment> Read(const TimeFreezeList& list) {
    const int32_t count = list.Get(nullptr, nullptr, 0);
    std::vector<double> times(count), durations(count);
    EXPECT_EQ(list.Get(times.data(), durations.data(), count), count);
    std::vector<FreezeSegment> segments;
    for (int32_t i = 0; i < count; ++i) segments.push_back({times[i], durations[i]});
    return segments;
}

TEST(TimeFreezeList, SetRoundsToWholeMillisecondsSortsAndSkipsNonsense) {
    TimeFreezeList list;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double times[] = {3000.2, 1234.6, nan, 500.0, 9e12, 2000.0};
    const double durations[] = {10.0, 99.4, 5.0, -20.0, 1.0, 1.0};
    list.Set(times, durations, 6);
    const auto segments = Read(list);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].time, 1235.0);
    EXPECT_EQ(segments[0].duration, 99.0);
    EXPECT_EQ(segments[1].time, 2000.0);
    EXPECT_EQ(segments[2].time, 3000.0);

    list.Set(times, durations, 0);  // a count below 1 clears
    EXPECT_EQ(list.Get(nullptr, nullptr, 0), 0);
}

TEST(TimeFreezeList, GetWithTooSmallABufferReturnsTheCountAndCopiesNothing) {
    TimeFreezeList list;
    const double times[] = {1000, 3000}, durations[] = {500, 1000};
    list.Set(times, durations, 2);
    double outTimes[1] = {-1}, outDurations[1] = {-1};
    EXPECT_EQ(list.Get(outTimes, outDurations, 1), 2);
    EXPECT_EQ(outTimes[0], -1);
    EXPECT_EQ(outDurations[0], -1);
    EXPECT_EQ(list.Get(outTimes, outDurations, -5), 2);
}

TEST(TimeFreezeList, ShiftAndInverseMapping) {
    TimeFreezeList list;
    EXPECT_EQ(list.MapPlayTime(123456789), 123456789);  // no segments: unchanged
    const double times[] = {1000, 3000}, durations[] = {500, 1000};
    list.Set(times, durations, 2);

    EXPECT_EQ(list.ShiftAt(2000.0f).shift, 500.0f);
    EXPECT_EQ(list.ShiftAt(3000.0f).shift, 1500.0f);
    EXPECT_EQ(list.ShiftAt(999.0f).shift, 0.0f);
    const FreezeShift at3000 = list.ShiftAt(3000.0f);
    EXPECT_EQ(at3000.lastTime, 3000.0);
    EXPECT_EQ(at3000.lastDuration, 1000.0);

    EXPECT_EQ(list.MapPlayTime(5000 * kTicksPerMs), 3500 * kTicksPerMs);  // after both
    EXPECT_EQ(list.MapPlayTime(4000 * kTicksPerMs), 3000 * kTicksPerMs);  // inside the second
    EXPECT_EQ(list.MapPlayTime(1200 * kTicksPerMs), 1000 * kTicksPerMs);  // inside the first
    EXPECT_EQ(list.MapPlayTime(800 * kTicksPerMs), 800 * kTicksPerMs);    // before any
}

TEST(TimeFreezeList, InsertMapsThePresentationTimeAndMergesFreezesAtOneMediaTime) {
    TimeFreezeList list;
    EXPECT_EQ(list.Insert(2000, 500), 2000);
    EXPECT_EQ(list.Insert(3000, 250), 2500);  // 500 ms of freeze came before
    EXPECT_EQ(list.Insert(2200, 100), 2000);  // inside the first freeze
    const auto segments = Read(list);
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].time, 2000);
    EXPECT_EQ(segments[0].duration, 600);
    EXPECT_EQ(segments[1].time, 2500);
    EXPECT_EQ(segments[1].duration, 250);
    EXPECT_TRUE(std::isnan(list.Insert(std::numeric_limits<double>::quiet_NaN(), 5)));
    EXPECT_EQ(Read(list).size(), 2u);
}

// The engine shifts frames behind a freeze and repeats the first frame after the freeze starts.
TEST(TimeFreezeEngine, FramesAreShiftedAndTheFreezeIsFilledWithCopies) {
    RenderEngine engine;
    MediaFormatPayload format{};
    format.video.width = 8;
    format.video.height = 4;
    format.video.pixelFormat = 11;
    engine.SetVideoFormat(format);
    StreamInfo info{};
    info.frameRate = 10.0;  // 100 ms frames
    engine.SetVideoStreamInfo(info);
    const double times[] = {250}, durations[] = {300};
    engine.SetTimeFreeze(times, durations, 1);
    engine.Start(0);
    engine.Pause();  // keep everything queued; Stop would flush it, so read back by presenting

    std::vector<uint32_t> picture(8 * 4);
    for (int64_t ms : {0, 100, 200, 300, 400}) {
        for (auto& p : picture) p = static_cast<uint32_t>(ms);
        ASSERT_EQ(engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()), 8 * 4 * 4,
                                       ms * kTicksPerMs, (ms + 100) * kTicksPerMs),
                  0);
    }
    engine.OnVideoEndOfStream();
    engine.Start(-1);
    std::vector<std::pair<int64_t, uint32_t>> shown;  // presentation ms, source frame ms
    bool sawEnd = false;  // the end that arrived before the resume is kept
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!sawEnd && std::chrono::steady_clock::now() < deadline) {
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        ReleaseInlayBuffer(engine.TakeCurrentViewSample());
        if (pre == nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            continue;
        }
        sawEnd = pre->width == 0;
        if (!sawEnd) shown.emplace_back(pre->time / kTicksPerMs, reinterpret_cast<const uint32_t*>(pre->pixels)[0]);
        ReleaseInlayBuffer(pre);
    }
    engine.Stop();
    EXPECT_TRUE(sawEnd);
    // 300 ms at 10 fps: three copies of the 300 ms frame at 250, 350, 450; then it and the
    // next one 300 ms late.
    const std::vector<std::pair<int64_t, uint32_t>> expected = {
        {0, 0}, {100, 100}, {200, 200}, {250, 300}, {350, 300}, {450, 300}, {600, 300}, {700, 400}};
    EXPECT_EQ(shown, expected);
}

}  // namespace
}  // namespace vexel
