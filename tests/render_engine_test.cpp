// The render engine driven directly through its sample entry, without a codec host: queue bounds,
// presentation order and timing, seek mode, end of stream and stopping.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "vexel/status.h"
#include "engine/render_engine.h"

namespace vexel {
namespace {

using Clock = std::chrono::steady_clock;
constexpr uint32_t kWidth = 64, kHeight = 32;
constexpr int64_t kTicksPerMs = 10000;

MediaFormatPayload Bgra32Format() {
    MediaFormatPayload payload{};
    payload.video.width = kWidth;
    payload.video.height = kHeight;
    payload.video.pixelFormat = 11;
    payload.video.frameRate = 100.0;
    return payload;
}

// A bottom-up picture whose every pixel holds the frame number.
std::vector<uint32_t> FramePicture(uint32_t number) {
    return std::vector<uint32_t>(size_t{kWidth} * kHeight, number);
}

int32_t Deliver(RenderEngine& engine, uint32_t number, int64_t timeMs) {
    auto picture = FramePicture(number);
    return engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                static_cast<uint32_t>(picture.size() * 4), timeMs * kTicksPerMs,
                                (timeMs + 10) * kTicksPerMs);
}

struct Presented {
    uint32_t number;
    int64_t time;
    bool seek;
    uint32_t width;
};

// Takes samples until `count` frames (or the end marker) were seen or the time runs out.
std::vector<Presented> Collect(RenderEngine& engine, size_t count, std::chrono::milliseconds limit) {
    std::vector<Presented> seen;
    const auto end = Clock::now() + limit;
    while (seen.size() < count && Clock::now() < end) {
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        ReleaseInlayBuffer(engine.TakeCurrentViewSample());
        if (pre == nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        uint32_t number = 0;
        if (pre->pixels != nullptr) number = reinterpret_cast<const uint32_t*>(pre->pixels)[0];
        seen.push_back({number, pre->time, pre->seek, pre->width});
        ReleaseInlayBuffer(pre);
        if (seen.back().width == 0) break;
    }
    return seen;
}

class RenderEngineTest : public ::testing::Test {
protected:
    void SetUp() override { engine.SetVideoFormat(Bgra32Format()); }
    RenderEngine engine;
};

TEST_F(RenderEngineTest, PresentsEveryFrameInOrderAtItsTimeThenTheEnd) {
    engine.SetViewDim(40, 20);
    engine.Start(0);
    std::thread producer([&] {
        for (uint32_t i = 0; i < 20; ++i) ASSERT_EQ(Deliver(engine, i + 1, i * 10), kOk);
        engine.OnVideoEndOfStream();
    });
    const auto started = Clock::now();
    double firstAtMs = -1.0;  // the clock starts when the first frame is ready to present
    std::vector<Presented> seen;
    std::vector<double> lateness;
    while (seen.size() < 21 && Clock::now() - started < std::chrono::seconds(10)) {
        InlayBuffer* view = engine.TakeCurrentViewSample();
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        if (pre != nullptr) {
            const double atMs = std::chrono::duration<double, std::milli>(Clock::now() - started).count();
            const uint32_t number = pre->pixels ? reinterpret_cast<const uint32_t*>(pre->pixels)[0] : 0;
            seen.push_back({number, pre->time, pre->seek, pre->width});
            if (pre->width != 0) {
                if (firstAtMs < 0) firstAtMs = atMs;
                lateness.push_back(atMs - firstAtMs - static_cast<double>(pre->time) / kTicksPerMs);
                ASSERT_NE(view, nullptr);
                EXPECT_EQ(view->width, 40u);
                EXPECT_EQ(view->height, 20u);
                EXPECT_EQ(view->size, 40u * 20 * 4);
                EXPECT_EQ(view->time, pre->time);
            }
        }
        ReleaseInlayBuffer(view);
        ReleaseInlayBuffer(pre);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    producer.join();
    ASSERT_EQ(seen.size(), 21u);
    for (uint32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(seen[i].number, i + 1);
        EXPECT_EQ(seen[i].time, int64_t{i} * 10 * kTicksPerMs);
    }
    EXPECT_EQ(seen[20].width, 0u);  // the end marker
    EXPECT_FALSE(seen[20].seek);
    // Measured from the first sighting, which may itself be late: against the median offset no
    // frame comes early, and the offsets stay together.
    std::sort(lateness.begin(), lateness.end());
    const double typical = lateness[lateness.size() / 2];
    EXPECT_GT(lateness.front() - typical, -5.0);
    EXPECT_LT(lateness[lateness.size() * 9 / 10] - typical, 15.0);
    EXPECT_EQ(engine.GetCurrentPlayTime(), 190 * kTicksPerMs);
    engine.Stop();
}

TEST_F(RenderEngineTest, DeliveryBlocksAtThirtyWaitingFramesAndStopReleasesIt) {
    engine.Start(0);
    engine.Pause();  // nothing is rendered: the decoded queue fills up
    std::atomic<int> delivered{0};
    std::atomic<int32_t> lastStatus{kOk};
    std::thread producer([&] {
        for (uint32_t i = 0; i < 40; ++i) {
            const int32_t status = Deliver(engine, i, i * 10);
            lastStatus = status;
            if (status != kOk) return;
            ++delivered;
        }
    });
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (delivered.load() < 30 && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(delivered.load(), 30);  // the 31st waits for room

    const auto stopAt = Clock::now();
    engine.Stop();
    producer.join();
    EXPECT_LT(Clock::now() - stopAt, std::chrono::milliseconds(500));
    EXPECT_EQ(lastStatus.load(), ERR_SAMPLE_REFUSED);
    EXPECT_EQ(Deliver(engine, 99, 0), ERR_SAMPLE_REFUSED);  // stopped: nothing more is taken
}

TEST_F(RenderEngineTest, SeekModeShowsOneFrameAtOnceThenRefuses) {
    engine.StartSeek(5'000 * kTicksPerMs);  // the frame's time lies far ahead of the clock
    ASSERT_EQ(Deliver(engine, 7, 5'000), kOk);
    auto seen = Collect(engine, 1, std::chrono::seconds(5));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].number, 7u);
    // Once shown, further pictures are refused until Stop.
    const auto deadline = Clock::now() + std::chrono::seconds(2);
    int32_t status = kOk;
    while (status == kOk && Clock::now() < deadline) {
        status = Deliver(engine, 8, 5'010);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(status, ERR_SAMPLE_REFUSED);
    engine.OnVideoEndOfStream();
    seen = Collect(engine, 1, std::chrono::seconds(3));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].width, 0u);
    EXPECT_TRUE(seen[0].seek);  // the end marker carries the seek flag
    engine.Stop();
    engine.Start(0);  // a new start takes pictures again
    EXPECT_EQ(Deliver(engine, 9, 0), kOk);
    engine.Stop();
}

TEST_F(RenderEngineTest, PauseHoldsPresentationAndResumeContinuesFromTheLastFrame) {
    engine.Start(0);
    for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(Deliver(engine, i, i * 20), kOk);
    auto seen = Collect(engine, 1, std::chrono::seconds(5));
    ASSERT_EQ(seen.size(), 1u);
    engine.Pause();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    // Whatever was presented before the pause took effect, nothing follows while paused.
    Collect(engine, 3, std::chrono::milliseconds(30));
    EXPECT_TRUE(Collect(engine, 1, std::chrono::milliseconds(100)).empty());
    engine.Start(-1);
    engine.OnVideoEndOfStream();
    seen = Collect(engine, 5, std::chrono::seconds(5));
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back().width, 0u);
    engine.Stop();
}

TEST_F(RenderEngineTest, UntakenSamplesStayAboutASecondBeforeTheEnd) {
    engine.Start(0);
    ASSERT_EQ(Deliver(engine, 1, 0), kOk);
    engine.OnVideoEndOfStream();
    const auto start = Clock::now();
    // Nobody takes the last picture: it is replaced by the empty end samples after ~1 s.
    InlayBuffer* pre = nullptr;
    while (Clock::now() - start < std::chrono::seconds(5)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (Clock::now() - start < std::chrono::milliseconds(600)) continue;
        pre = engine.TakeCurrentPreSample();
        if (pre != nullptr && pre->width == 0) break;
        ReleaseInlayBuffer(std::exchange(pre, nullptr));
    }
    ASSERT_NE(pre, nullptr);
    EXPECT_EQ(pre->width, 0u);
    EXPECT_GT(Clock::now() - start, std::chrono::milliseconds(900));
    ReleaseInlayBuffer(pre);
    engine.Stop();
}

TEST_F(RenderEngineTest, ViewSizeChangesApplyToLaterFramesAndOverflowingSizesAreIgnored) {
    engine.SetViewDim(100000, 100000);  // 40 GB views are refused
    EXPECT_EQ(engine.ViewWidth(), 320u);
    engine.SetViewDim(16, 8);
    EXPECT_EQ(engine.ViewWidth(), 16u);
    EXPECT_EQ(engine.ViewHeight(), 8u);
    engine.Start(0);
    ASSERT_EQ(Deliver(engine, 1, 0), kOk);
    InlayBuffer* view = nullptr;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (view == nullptr && Clock::now() < deadline) {
        view = engine.TakeCurrentViewSample();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->width, 16u);
    // A uniform picture renders as its blended colour everywhere, alpha set.
    const uint32_t* pixels = reinterpret_cast<const uint32_t*>(view->pixels);
    for (uint32_t i = 0; i < 16 * 8; ++i) ASSERT_EQ(pixels[i] >> 24, 0xFFu);
    ReleaseInlayBuffer(view);
    engine.Stop();
}

TEST_F(RenderEngineTest, ShortOrMisformattedPicturesAreDroppedNotQueued) {
    engine.Start(0);
    std::vector<uint32_t> tooShort(10, 0);
    EXPECT_EQ(engine.OnVideoSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1), kOk);
    EXPECT_EQ(engine.OnVideoSample(nullptr, kWidth * kHeight * 4, 0, 1), kOk);
    EXPECT_TRUE(Collect(engine, 1, std::chrono::milliseconds(100)).empty());
    // Audio has no output yet: blocks are taken and dropped at once.
    EXPECT_EQ(engine.OnAudioSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1), kOk);
    engine.Stop();
    EXPECT_EQ(engine.OnAudioSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1), ERR_SAMPLE_REFUSED);
}

}  // namespace
}  // namespace vexel
