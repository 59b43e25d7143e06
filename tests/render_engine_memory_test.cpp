// The engine's memory in a steady playback, with the decoder far ahead (every queue full) and the
// host taking both samples of every frame. Picture buffers are reused through the pool: once the
// queues are full no fresh buffer is made (and each view is drawn once), and samples the host
// keeps while many more frames pass through the pool still hold the pictures they were taken with.
// Under the address sanitizer a buffer waiting in the pool is poisoned, so a sample read after its
// release fails too. A 3840x1920 playback grows the resident set by no more than the 34 pictures
// the engine holds in flight plus 10 %, views, pooled buffers and the allocator's leftovers
// included (the rest of the 10 % is the decoder module's); measured in the plain build only, as
// the sanitizers' allocators keep freed memory on purpose.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "../bench/process_memory.h"
#include "engine_test_support.h"
#include "samples/pixel_buffers.h"
#include "test_tick_clock.h"
#include "vexel/status.h"

namespace vexel {
namespace {

using std::chrono::milliseconds;

// Plays `frames` pictures at 30 fps, `paint(number, picture)` filling picture `number` (from 1) on
// a decoder thread kept 30 frames ahead. The clock starts once the decoder is ahead; every step
// then lands 5 ms past a frame's time, away from the last 2 ms before one, which the present
// thread polls for. `onFrame(pre, view)` sees each presented frame's samples and keeps them by
// taking the pointers; the rest are released. Returns the number of frames presented.
template <class Paint, class OnFrame>
uint32_t PlayAhead(RenderEngine& engine, testing::TestTickClock& clock,
                   std::vector<uint32_t>& picture, uint32_t frames, Paint paint, OnFrame onFrame) {
    engine.Start(Ticks(0));
    std::atomic<uint32_t> delivered{0};
    std::thread decoder([&] {
        for (uint32_t i = 0; i < frames; ++i) {
            paint(i + 1, picture);
            const int64_t t = int64_t{i} * 333'333;
            if (engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                     static_cast<uint32_t>(picture.size() * 4), t,
                                     t + 333'333) != kOk)
                return;
            ++delivered;
        }
        engine.OnVideoEndOfStream();
    });
    uint32_t presented = 0;
    const auto awaitAhead = [&] {
        for (int i = 0; i < 20'000 && delivered.load() < std::min(frames, presented + 30); ++i)
            std::this_thread::sleep_for(milliseconds(1));
    };
    awaitAhead();
    clock.Advance(milliseconds(5));
    for (bool ended = false; !ended;) {
        clock.AwaitWaiters(
            [&] { return engine.GetStateForTesting() == RenderEngine::State::kEnded; });
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        InlayBuffer* view = engine.TakeCurrentViewSample();
        ended = pre != nullptr && pre->width == 0;
        if (pre != nullptr && !ended) {
            ++presented;
            onFrame(pre, view);
        }
        ReleaseInlayBuffer(pre);
        ReleaseInlayBuffer(view);
        awaitAhead();
        clock.Advance(std::chrono::microseconds(33'333));
    }
    decoder.join();
    engine.Stop();
    return presented;
}

struct Kept {
    InlayBuffer* sample;
    std::vector<uint8_t> pixels;  // as the sample held them when taken
};

TEST(RenderEngineMemory, SteadyPlaybackReusesBuffersAndKeptSamplesKeepTheirPictures) {
    // Pictures of 2 MiB and views of 1 MiB: both pooled.
    constexpr uint32_t kWidth = 1024, kHeight = 512, kFrames = 100;
    constexpr uint32_t kSteadyFrom = 45, kKeepFrom = 60, kKeepTo = 70;
    testing::TestTickClock clock;
    RenderEngine engine;
    engine.SetTickClockForTesting(&clock);
    engine.SetVideoFormat(testing::PictureFormat(kWidth, kHeight));
    engine.SetViewDim(512, 512);
    std::vector<uint32_t> picture(size_t{kWidth} * kHeight);
    // Frame i: every pixel holds i, except a gradient row that makes each view differ.
    const auto paint = [&](uint32_t i, std::vector<uint32_t>& pixels) {
        std::fill(pixels.begin(), pixels.end(), i);
        for (uint32_t x = 0; x < kWidth; ++x) pixels[size_t{kHeight / 2} * kWidth + x] += x;
    };
    std::vector<Kept> kept;
    uint64_t madeWhenSteady = 0;
    const auto keep = [&](InlayBuffer*& sample) {
        kept.push_back({sample, {sample->pixels, sample->pixels + sample->size}});
        sample = nullptr;
    };
    const uint32_t presented = PlayAhead(
        engine, clock, picture, kFrames, paint, [&](InlayBuffer*& pre, InlayBuffer*& view) {
            const uint32_t number = reinterpret_cast<const uint32_t*>(pre->pixels)[0];
            if (number == kSteadyFrom) madeWhenSteady = PixelPoolCountsForTesting().made;
            if (number == kKeepFrom) {
                EXPECT_EQ(PixelPoolCountsForTesting().made, madeWhenSteady)
                    << "steady playback made fresh picture buffers";
            }
            if (number >= kKeepFrom && number < kKeepTo && view != nullptr) {
                keep(pre);
                keep(view);
            }
        });
    EXPECT_EQ(presented, kFrames);
    EXPECT_EQ(engine.RedrawsForTesting(), 0u) << "a still view was drawn twice";
    EXPECT_EQ(kept.size(), size_t{2 * (kKeepTo - kKeepFrom)});
    for (const Kept& k : kept) {
        EXPECT_EQ(std::memcmp(k.sample->pixels, k.pixels.data(), k.pixels.size()), 0)
            << "a kept picture of " << k.sample->width << "x" << k.sample->height
            << " was overwritten";
        ReleaseInlayBuffer(k.sample);
    }
    // A stopped player keeps one picture and one view for its next seek, nothing more.
    ASSERT_GT(PixelPoolCountsForTesting().pooled, 2u);
    ReleasePooledPixels(PoolRelease::kKeepOneOfEachSize);
    EXPECT_EQ(PixelPoolCountsForTesting().pooled, 2u);
    const uint64_t made = PixelPoolCountsForTesting().made;
    PixelBuffer pooledPicture(AllocatePixels(kWidth * kHeight * 4));
    PixelBuffer pooledView(AllocatePixels(512 * 512 * 4));
    EXPECT_EQ(PixelPoolCountsForTesting().made, made) << "the kept buffers were not reused";
    pooledPicture.reset();
    pooledView.reset();
    ReleasePooledPixels();
    EXPECT_EQ(PixelPoolCountsForTesting().pooled, 0u);
}

TEST(RenderEngineMemory, A4kPlaybackStaysWithinThePicturesInFlight) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators hold freed memory";
#endif
    constexpr uint32_t kWidth = 3840, kHeight = 1920, kInFlight = 34;
    std::vector<uint32_t> picture(size_t{kWidth} * kHeight, 0x40404040u);
    ResetPeakMemory();  // the peak starts from here
    const double baseline = StatusBytes("VmRSS");
    if (baseline == 0.0) GTEST_SKIP() << "no /proc/self/status";
    {
        testing::TestTickClock clock;
        RenderEngine engine;
        engine.SetTickClockForTesting(&clock);
        engine.SetVideoFormat(testing::PictureFormat(kWidth, kHeight));
        engine.SetViewDim(1920, 1080);
        PlayAhead(
            engine, clock, picture, 60, [](uint32_t, std::vector<uint32_t>&) {},
            [](InlayBuffer*&, InlayBuffer*&) {});
    }
    const double peak = StatusBytes("VmHWM") - baseline;
    EXPECT_LT(peak, kInFlight * double{kWidth} * kHeight * 4 * 1.1);
}

}  // namespace
}  // namespace vexel
