// Picture buffers reused through the pool during playback: once the engine's queues are full, a
// steady playback makes hardly a fresh picture buffer (and draws each view once), and samples the
// host keeps while many more frames pass through the pool still hold the pictures they were taken
// with. Under the address sanitizer, a buffer waiting in the pool is poisoned, so a sample read
// after its release fails too.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "engine_test_support.h"
#include "samples/pixel_buffers.h"
#include "test_tick_clock.h"
#include "vexel/status.h"
#include "wait_until.h"

namespace vexel {
namespace {

struct Kept {
    InlayBuffer* sample;
    std::vector<uint8_t> pixels;  // as the sample held them when taken
};

Kept Keep(InlayBuffer* sample) {
    return {sample, std::vector<uint8_t>(sample->pixels, sample->pixels + sample->size)};
}

TEST(PicturePool, SteadyPlaybackReusesBuffersAndKeptSamplesKeepTheirPictures) {
    // Pictures of 2 MiB and views of 1 MiB: both pooled.
    constexpr uint32_t kWidth = 1024, kHeight = 512, kFrames = 100;
    constexpr uint32_t kSteadyFrom = 45, kKeepFrom = 60, kKeepTo = 70;
    testing::TestTickClock clock;
    RenderEngine engine;
    engine.SetTickClockForTesting(&clock);
    engine.SetVideoFormat(testing::PictureFormat(kWidth, kHeight));
    engine.SetViewDim(512, 512);
    engine.Start(Ticks(0));
    std::atomic<uint32_t> delivered{0};
    std::thread decoder([&] {
        // Frame i: every pixel holds i, except a gradient row that makes each view differ.
        std::vector<uint32_t> picture(size_t{kWidth} * kHeight);
        for (uint32_t i = 1; i <= kFrames; ++i) {
            std::fill(picture.begin(), picture.end(), i);
            for (uint32_t x = 0; x < kWidth; ++x) picture[size_t{kHeight / 2} * kWidth + x] += x;
            const int64_t t = int64_t{i} * 333'333;
            if (engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                     static_cast<uint32_t>(picture.size() * 4), t,
                                     t + 333'333) != kOk)
                return;
            ++delivered;
        }
        engine.OnVideoEndOfStream();
    });

    std::vector<Kept> kept;
    uint64_t madeWhenSteady = 0;
    uint32_t presented = 0;
    // The clock starts at 0 once the decoder is ahead; every step then lands 5 ms past a frame's
    // time, away from the last 2 ms before one, which the present thread polls for.
    testing::WaitUntil([&] { return delivered.load() >= 30; });
    clock.Advance(std::chrono::milliseconds(5));
    for (bool ended = false; !ended;) {
        clock.AwaitWaiters(
            [&] { return engine.GetStateForTesting() == RenderEngine::State::kEnded; });
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        InlayBuffer* view = engine.TakeCurrentViewSample();
        ended = pre != nullptr && pre->width == 0;
        if (pre != nullptr && !ended) {
            ++presented;
            const uint32_t number = reinterpret_cast<const uint32_t*>(pre->pixels)[0];
            if (number == kSteadyFrom) madeWhenSteady = PixelPoolCountsForTesting().made;
            if (number == kKeepFrom) {
                // A buffer asked for a moment before another comes back can cost a fresh one now
                // and then; a pool that reuses nothing makes two a frame.
                EXPECT_LE(PixelPoolCountsForTesting().made - madeWhenSteady, 3u)
                    << "steady playback made fresh picture buffers";
            }
            if (number >= kKeepFrom && number < kKeepTo && view != nullptr) {
                kept.push_back(Keep(std::exchange(pre, nullptr)));
                kept.push_back(Keep(std::exchange(view, nullptr)));
            }
        }
        ReleaseInlayBuffer(pre);
        ReleaseInlayBuffer(view);
        // The decoder stays ahead (30 frames queued), as in a steady playback.
        testing::WaitUntil([&] { return delivered.load() >= std::min(kFrames, presented + 30); });
        clock.Advance(std::chrono::microseconds(33'333));
    }
    decoder.join();
    engine.Stop();
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
    PixelBuffer picture(AllocatePixels(kWidth * kHeight * 4)), view(AllocatePixels(512 * 512 * 4));
    EXPECT_EQ(PixelPoolCountsForTesting().made, made) << "the kept buffers were not reused";
    picture.reset();
    view.reset();
    ReleasePooledPixels();
    EXPECT_EQ(PixelPoolCountsForTesting().pooled, 0u);
}

}  // namespace
}  // namespace vexel
