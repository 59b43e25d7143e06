// Memory of a 3840x1920 playback through the engine: with the decoder far ahead (every queue full)
// and the host taking and releasing both samples of every frame, the process's resident set grows
// by no more than the 34 pictures the engine holds in flight plus 10 %, views, pooled buffers and
// the allocator's leftovers included; the rest of the 10 % is the decoder module's. Measured in the
// plain build only: the sanitizers' allocators keep freed memory on purpose.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "../bench/process_memory.h"
#include "engine_test_support.h"
#include "test_tick_clock.h"
#include "vexel/status.h"
#include "wait_until.h"

namespace vexel {
namespace {

using std::chrono::milliseconds;

TEST(RenderEngineMemory, A4kPlaybackStaysWithinThePicturesInFlight) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators hold freed memory";
#endif
    constexpr uint32_t kWidth = 3840, kHeight = 1920, kFrames = 60, kInFlight = 34;
    constexpr double kPictureBytes = double{kWidth} * kHeight * 4;
    const std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4, 0x40);
    ResetPeakMemory();  // the peak starts from here
    const double baseline = StatusBytes("VmRSS");
    if (baseline == 0.0) GTEST_SKIP() << "no /proc/self/status";
    {
        testing::TestTickClock clock;
        RenderEngine engine;
        engine.SetTickClockForTesting(&clock);
        engine.SetVideoFormat(testing::PictureFormat(kWidth, kHeight));
        engine.SetViewDim(1920, 1080);
        engine.Start(Ticks(0));
        std::atomic<uint32_t> delivered{0};
        std::thread decoder([&] {
            for (uint32_t i = 0; i < kFrames; ++i) {
                const int64_t t = int64_t{i} * 333'333;
                if (engine.OnVideoSample(picture.data(), static_cast<uint32_t>(picture.size()), t,
                                         t + 333'333) != kOk)
                    return;
                ++delivered;
            }
            engine.OnVideoEndOfStream();
        });
        // The first frame comes once the decoder is ahead; the clock stands still until every queue
        // is full (the first frame, one in the present thread, 2 rendered, 30 decoded); then one
        // frame a step, each step 5 ms past a frame's time (the present thread polls the last 2 ms
        // before one).
        ReleaseInlayBuffer(testing::AwaitPreSample(engine));
        testing::WaitUntil([&] { return delivered.load() >= kInFlight; });
        EXPECT_EQ(delivered.load(), kInFlight);
        clock.Advance(milliseconds(5));
        for (bool ended = false; !ended;) {
            clock.AwaitWaiters(
                [&] { return engine.GetStateForTesting() == RenderEngine::State::kEnded; });
            InlayBuffer* pre = engine.TakeCurrentPreSample();
            ReleaseInlayBuffer(engine.TakeCurrentViewSample());
            ended = pre != nullptr && pre->width == 0;
            ReleaseInlayBuffer(pre);
            clock.Advance(std::chrono::microseconds(33'333));
        }
        decoder.join();
        engine.Stop();
    }
    const double peak = StatusBytes("VmHWM") - baseline;
    EXPECT_LT(peak, kInFlight * kPictureBytes * 1.1);
}

}  // namespace
}  // namespace vexel
