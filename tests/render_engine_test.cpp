// The render engine driven through its sample entry on a clock the test advances: each frame is
// presented when the clock reaches its time and not before, the clock held back until the decoder
// is ahead, pause and resume, the last picture kept a second, time-freeze copies, seek mode and
// stopping, and the engine's states.
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "vexel/status.h"
#include "engine/render_engine.h"
#include "test_tick_clock.h"

namespace vexel {
namespace {

using std::chrono::milliseconds;
using std::chrono::microseconds;
using State = RenderEngine::State;
constexpr uint32_t kWidth = 64, kHeight = 32;

struct Presented {
    uint32_t number;  // the value every pixel of the delivered picture held; 0 for the end marker
    int64_t timeMs;
    bool seek;
    uint32_t width;
    TickClock::TimePoint at;  // the test clock's reading when the frame was taken
    bool IsEnd() const { return width == 0; }
};

class RenderEngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        MediaFormatPayload payload{};
        payload.video.width = kWidth;
        payload.video.height = kHeight;
        payload.video.pixelFormat = kPixelFormatBgra32;
        engine.SetVideoFormat(payload);
        engine.SetTickClockForTesting(&clock);
    }
    void TearDown() override { engine.Stop(); }

    // A picture whose every pixel holds `number`, at `timeMs`.
    int32_t Deliver(uint32_t number, int64_t timeMs) {
        const std::vector<uint32_t> picture(size_t{kWidth} * kHeight, number);
        const int64_t ticks = Ticks(milliseconds(timeMs)).count();
        return engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                    static_cast<uint32_t>(picture.size() * 4), ticks, ticks + 100'000);
    }

    // Takes the current samples, if a frame was presented since the last take (the view after
    // the panorama, so both are of one frame: the next one needs the clock or both taken).
    std::optional<Presented> Take() {
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        if (pre == nullptr) return std::nullopt;
        InlayBuffer* view = engine.TakeCurrentViewSample();
        const uint32_t number = pre->pixels ? reinterpret_cast<const uint32_t*>(pre->pixels)[0] : 0;
        const Presented seen{number, pre->time / 10'000, pre->seek, pre->width, clock.Now()};
        EXPECT_NE(view, nullptr);
        if (view != nullptr) {
            EXPECT_EQ(view->time, pre->time);
        }
        ReleaseInlayBuffer(pre);
        ReleaseInlayBuffer(view);
        return seen;
    }

    // Waits (on the wall clock, briefly) for the next presentation that needs no clock step.
    Presented Next() {
        for (int i = 0; i < 5000; ++i) {
            if (auto seen = Take()) return *seen;
            std::this_thread::sleep_for(milliseconds(1));
        }
        ADD_FAILURE() << "nothing presented";
        return {};
    }

    // Steps the clock 5 ms at a time from 2.5 ms (never to within 2 ms of a frame's time on the
    // 5 ms grid, which the present thread polls for) until `count` frames or the end marker came,
    // taking every frame presented on the way; at most one frame is due per step.
    std::vector<Presented> Play(size_t count = SIZE_MAX) {
        std::vector<Presented> seen;
        for (int step = 0; step < 2000; ++step) {
            // Once the present thread waits on the clock, whatever was due is published. The end
            // marker is published without the clock once the last frame was taken.
            std::optional<Presented> frame;
            clock.AwaitWaiters([&] { return (frame = Take()) || engine.GetStateForTesting() == State::kEnded; });
            if (frame || (frame = Take())) {
                seen.push_back(*frame);
                if (frame->IsEnd() || seen.size() == count) return seen;
            }
            clock.Advance(step == 0 ? microseconds(2'500) : microseconds(5'000));
        }
        ADD_FAILURE() << "no end marker";
        return seen;
    }

    // Moves the clock on by `wait` while the present thread holds its first frame back; a fatal
    // failure when a frame is presented meanwhile.
    void AssertHeldFor(milliseconds wait) {
        std::optional<Presented> early;
        clock.AwaitWaiters([&] { return (early = Take()).has_value(); });
        if (!early) {
            clock.Advance(wait);
            clock.AwaitWaiters([&] { return (early = Take()).has_value(); });
        }
        ASSERT_FALSE(early.has_value()) << "frame " << early->number << " came before the decoder was ahead";
    }

    // Each frame comes in the 5 ms step that reaches its time, its time counted from `startMs`
    // at the clock reading `origin`.
    static void ExpectOnTime(const std::vector<Presented>& frames, TickClock::TimePoint origin, int64_t startMs) {
        for (const Presented& p : frames) {
            if (p.IsEnd()) continue;
            const double lateMs = std::chrono::duration<double, std::milli>(p.at - origin).count() - (p.timeMs - startMs);
            EXPECT_TRUE(lateMs >= 0.0 && lateMs < 5.0) << "frame " << p.number << " " << lateMs << " ms late";
        }
    }

    testing::TestTickClock clock;
    RenderEngine engine;
};

TEST_F(RenderEngineTest, PresentsEachFrameWhenTheClockReachesItsTimeAndNotBefore) {
    engine.SetViewDim(40, 20);
    engine.Start(Ticks(0));
    for (uint32_t i = 0; i < 20; ++i) ASSERT_EQ(Deliver(i + 1, i * 10), kOk);
    engine.OnVideoEndOfStream();

    EXPECT_EQ(Next().number, 1u);  // the decoder is far ahead: the clock starts at once
    clock.AwaitWaiters();
    clock.Advance(microseconds(500));  // off the frame grid, so no reading lands on a frame's time
    for (uint32_t i = 1; i < 20; ++i) {
        clock.AwaitWaiters();  // the present thread waits for frame i
        clock.Advance(milliseconds(7));  // 2.5 ms before its time
        clock.AwaitWaiters();
        ASSERT_FALSE(Take().has_value()) << "frame " << i << " came early";
        clock.Advance(milliseconds(3));
        const Presented seen = Next();
        EXPECT_EQ(seen.number, i + 1);
        EXPECT_EQ(seen.timeMs, int64_t{i} * 10);
        EXPECT_FALSE(seen.seek);
    }
    EXPECT_EQ(engine.GetCurrentPlayTime(), Ticks(milliseconds(190)));
    const Presented end = Next();  // taken at once: no wait for the client
    EXPECT_TRUE(end.IsEnd());
    EXPECT_FALSE(end.seek);
    EXPECT_EQ(engine.GetCurrentPlayTime(), Ticks(milliseconds(190))) << "the end marker is not a frame";
}

TEST_F(RenderEngineTest, TheLastPictureStaysASecondForTheClientBeforeTheEnd) {
    engine.Start(Ticks(0));
    ASSERT_EQ(Deliver(1, 0), kOk);
    engine.OnVideoEndOfStream();
    clock.AwaitWaiters();  // nobody takes the picture: the present thread holds the end back
    clock.Advance(milliseconds(999));
    clock.AwaitWaiters();
    EXPECT_NE(engine.GetStateForTesting(), State::kEnded);
    clock.Advance(milliseconds(2));
    for (int i = 0; i < 5000 && engine.GetStateForTesting() != State::kEnded; ++i) std::this_thread::sleep_for(milliseconds(1));
    const Presented end = Next();
    EXPECT_TRUE(end.IsEnd()) << "the last picture was not replaced";
}

TEST_F(RenderEngineTest, PauseHoldsPresentationAndResumeRunsTheClockFromTheLastFrame) {
    engine.Start(Ticks(0));
    for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(Deliver(i + 1, i * 20), kOk);
    engine.OnVideoEndOfStream();  // every frame queued: neither start waits for more
    EXPECT_EQ(Next().number, 1u);
    clock.AwaitWaiters();  // for the frame at 20 ms
    engine.Pause();
    EXPECT_EQ(engine.GetStateForTesting(), State::kPaused);
    // A frame whose wait began before the pause is shown when its time comes; nothing after it.
    clock.Advance(milliseconds(500));
    EXPECT_EQ(Next().number, 2u);
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_FALSE(Take().has_value());

    engine.Start(Ticks(-1));  // the clock restarts at 20 ms: the frame at 40 ms is 20 ms away
    clock.AwaitWaiters();
    clock.Advance(milliseconds(17));
    clock.AwaitWaiters();
    EXPECT_FALSE(Take().has_value());
    clock.Advance(milliseconds(4));
    EXPECT_EQ(Next().number, 3u);
}

// A decoder slow to start (one frame, then nothing for 200 ms) must not start the clock, or every
// frame after the first would be late; after a resume the same.
TEST_F(RenderEngineTest, TheClockStartsOnceTheDecoderIsAheadAfterAStartAndAResume) {
    engine.Start(Ticks(0));
    ASSERT_EQ(Deliver(1, 0), kOk);
    ASSERT_NO_FATAL_FAILURE(AssertHeldFor(milliseconds(200)));
    for (uint32_t i = 1; i < 12; ++i) ASSERT_EQ(Deliver(i + 1, i * 40), kOk);
    TickClock::TimePoint origin = clock.Now();  // the clock starts here: the decoder is ahead
    std::vector<Presented> shown = Play(12);
    ASSERT_EQ(shown.size(), 12u);
    EXPECT_EQ(shown.front().number, 1u);
    ExpectOnTime(shown, origin, 0);

    engine.Pause();
    engine.Start(Ticks(-1));  // from frame 12, at 440 ms
    ASSERT_EQ(Deliver(13, 480), kOk);
    ASSERT_NO_FATAL_FAILURE(AssertHeldFor(milliseconds(100)));
    engine.OnVideoEndOfStream();  // the rest of the range is queued: nothing more to wait for
    origin = clock.Now();
    shown = Play();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown.front().number, 13u);
    ExpectOnTime(shown, origin, 440);
}

TEST_F(RenderEngineTest, TheClockWaitsNoLongerThanTheRangeOrHalfASecond) {
    engine.Start(Ticks(0));
    ASSERT_EQ(Deliver(1, 0), kOk);
    ASSERT_EQ(Deliver(2, 40), kOk);
    engine.OnVideoEndOfStream();  // a range of two frames
    EXPECT_EQ(Next().number, 1u) << "the clock waited for frames past the end";
    engine.Stop();

    engine.Start(Ticks(0));
    ASSERT_EQ(Deliver(1, 0), kOk);
    ASSERT_EQ(Deliver(2, 40), kOk);  // then the decoder stalls
    ASSERT_NO_FATAL_FAILURE(AssertHeldFor(milliseconds(499)));
    clock.Advance(milliseconds(2));
    const TickClock::TimePoint origin = clock.Now();
    const std::vector<Presented> shown = Play(2);
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown.front().number, 1u);
    ExpectOnTime(shown, origin, 0);
}

TEST_F(RenderEngineTest, AFreezeShiftsLaterFramesAndRepeatsTheFirstFrameAfterIt) {
    StreamInfo info{};
    info.frameRate = 10.0;  // 100 ms frames
    engine.SetVideoStreamInfo(info);
    const double times[] = {250}, durations[] = {300};
    engine.SetTimeFreeze(times, durations, 1);
    engine.Start(Ticks(0));
    for (uint32_t ms : {0, 100, 200, 300, 400}) ASSERT_EQ(Deliver(ms + 1, ms), kOk);
    engine.OnVideoEndOfStream();

    std::vector<std::pair<int64_t, uint32_t>> shown;  // presentation ms, source frame ms
    for (const Presented& p : Play()) {
        if (!p.IsEnd()) shown.emplace_back(p.timeMs, p.number - 1);
    }
    // 300 ms at 10 fps: three copies of the 300 ms frame at 250, 350, 450; then it and the next
    // one 300 ms late.
    const std::vector<std::pair<int64_t, uint32_t>> expected = {
        {0, 0}, {100, 100}, {200, 200}, {250, 300}, {350, 300}, {450, 300}, {600, 300}, {700, 400}};
    EXPECT_EQ(shown, expected);
}

TEST_F(RenderEngineTest, SeekModeShowsOneFrameAtOnceThenRefusesUntilStopped) {
    engine.StartSeek(Ticks(milliseconds(5'000)));  // far ahead of a clock that never moves
    EXPECT_EQ(engine.GetStateForTesting(), State::kSeeking);
    ASSERT_EQ(Deliver(7, 5'000), kOk);
    const Presented shown = Next();
    EXPECT_EQ(shown.number, 7u);
    for (int i = 0; i < 5000 && engine.GetStateForTesting() != State::kSeekFrameShown; ++i) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_EQ(Deliver(8, 5'040), ERR_SAMPLE_REFUSED);
    engine.OnVideoEndOfStream();
    const Presented end = Next();
    EXPECT_TRUE(end.IsEnd());
    EXPECT_TRUE(end.seek) << "the end marker of a seek carries the seek flag";

    engine.Stop();
    EXPECT_EQ(engine.GetStateForTesting(), State::kStopped);
    EXPECT_EQ(Deliver(9, 0), ERR_SAMPLE_REFUSED);
    engine.Start(Ticks(0));
    EXPECT_EQ(engine.GetStateForTesting(), State::kPlaying) << "a stop ends seeking";
    EXPECT_EQ(Deliver(9, 0), kOk);
}

TEST_F(RenderEngineTest, ViewSizesApplyToLaterFramesAndBadPicturesAreDropped) {
    engine.SetViewDim(100000, 100000);  // 40 GB views are refused
    EXPECT_EQ(engine.ViewWidth(), 320u);
    engine.SetViewDim(16, 8);
    engine.Start(Ticks(0));
    std::vector<uint32_t> tooShort(10, 0);
    EXPECT_EQ(engine.OnVideoSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1), kOk);
    EXPECT_EQ(engine.OnVideoSample(nullptr, kWidth * kHeight * 4, 0, 1), kOk);
    ASSERT_EQ(Deliver(5, 0), kOk);
    engine.OnVideoEndOfStream();

    InlayBuffer* view = nullptr;
    for (int i = 0; i < 5000 && view == nullptr; ++i) {
        ReleaseInlayBuffer(engine.TakeCurrentPreSample());
        if ((view = engine.TakeCurrentViewSample()) == nullptr) std::this_thread::sleep_for(milliseconds(1));
    }
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->width, 16u);
    EXPECT_EQ(view->height, 8u);
    // A uniform picture renders as its own colour (give or take the blend's rounding) everywhere,
    // alpha set; the dropped ones never show.
    const uint32_t* pixels = reinterpret_cast<const uint32_t*>(view->pixels);
    for (uint32_t i = 0; i < 16 * 8; ++i) ASSERT_NEAR(pixels[i], 0xFF000005u, 1u) << i;
    ReleaseInlayBuffer(view);

    // Without an audio output, blocks are taken and dropped at once; once stopped, refused.
    EXPECT_EQ(engine.OnAudioSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1), kOk);
    engine.Stop();
    EXPECT_EQ(engine.OnAudioSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1), ERR_SAMPLE_REFUSED);
}

}  // namespace
}  // namespace vexel
