// The render engine driven through its sample entry on a clock the test advances: each frame is
// presented when the clock reaches its time and not before, the clock held back until the decoder
// is ahead, pause and resume, the last picture kept a second, time-freeze copies, seek mode and
// stopping, the engine's states, and view changes (gesture values, SetView, path keyframes, view
// sizes) showing on the next presented frame, with every view sample's pixels checked against a
// drawing of its panorama at the angles it carries. Pictures that convert themselves (as the
// decoder module's do) are converted top row first when drawn, shared by freeze copies and let go
// by a stop. The sound path: audio blocks wait until the clock starts the sound (after the preroll,
// with the first picture), seek previews keep them waiting, stopping releases and refuses them, and
// an engine whose graph cannot be built plays on silently.
#include "engine/render_engine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <future>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "engine_test_support.h"
#include "mediagraph/com_runtime.h"
#include "projection/view_projector.h"
#include "sibling_module.h"
#include "test_tick_clock.h"
#include "vexel/com_object.h"
#include "vexel/status.h"
#include "wait_until.h"
#include "wav_reader.h"

namespace vexel {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using State = RenderEngine::State;
constexpr uint32_t kWidth = 64, kHeight = 32;

// A picture that converts itself, as the decoder module's do; `alive` counts the living ones.
class LatePicture final : public ComObject<IPictureSource> {
public:
    LatePicture(std::vector<uint32_t> pixels, std::atomic<int>& alive)
        : pixels_(std::move(pixels)), alive_(alive) {
        ++alive_;
    }
    int32_t QueryInterface(const GUID*, void**) override { return E_NOINTERFACE; }
    int32_t WriteTopDown(uint8_t* dst, uint32_t stride, uint32_t width, uint32_t height) override {
        if (size_t{width} * height != pixels_.size() || stride < width * 4) return E_INVALIDARG;
        for (uint32_t y = 0; y < height; ++y)
            std::memcpy(dst + size_t{y} * stride, &pixels_[size_t{y} * width], width * 4);
        return S_OK;
    }

private:
    ~LatePicture() override { --alive_; }
    const std::vector<uint32_t> pixels_;
    std::atomic<int>& alive_;
};

struct Presented {
    uint32_t number;  // the value every pixel of the delivered picture held; 0 for the end marker
    int64_t timeMs;
    bool seek;
    uint32_t width;
    TickClock::TimePoint at;  // the test clock's reading when the frame was taken
    ViewAngles view{};        // as the view sample carries it
    uint32_t viewWidth = 0;   // 0: no view sample
    bool IsEnd() const { return width == 0; }
};

bool SameView(const ViewAngles& a, const ViewAngles& b) {
    return a.pan == b.pan && a.tilt == b.tilt && a.fov == b.fov;
}

class RenderEngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        engine.SetVideoFormat(testing::PictureFormat(kWidth, kHeight));
        engine.SetTickClockForTesting(&clock);
    }
    void TearDown() override { engine.Stop(); }

    // A picture whose every pixel holds `number` (number < 256), at `timeMs`; with `pattern`, each
    // pixel also holds its column and row, so that every direction shows a different view. `late`
    // delivers it as a picture that converts itself.
    int32_t Deliver(uint32_t number, int64_t timeMs, bool pattern = false, bool late = false) {
        std::vector<uint32_t> picture(size_t{kWidth} * kHeight, number);
        for (uint32_t y = 0; pattern && y < kHeight; ++y) {
            for (uint32_t x = 0; x < kWidth; ++x)
                picture[size_t{y} * kWidth + x] += (x << 10) | (y << 18);
        }
        const int64_t ticks = Ticks(milliseconds(timeMs)).count();
        if (late) {
            auto source = CountedRef<IPictureSource>::Adopt(
                NewObject<LatePicture>(std::move(picture), latePictures));
            return engine.OnVideoPicture(std::move(source), ticks, ticks + 100'000);
        }
        return engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                    static_cast<uint32_t>(picture.size() * 4), ticks,
                                    ticks + 100'000);
    }

    // Takes the current samples, if a frame was presented since the last take (the view after
    // the panorama, so both are of one frame: the next one needs the clock or both taken).
    std::optional<Presented> Take() {
        InlayBuffer* pre = engine.TakeCurrentPreSample();
        if (pre == nullptr) return std::nullopt;
        InlayBuffer* view = engine.TakeCurrentViewSample();  // none when the drawing failed
        const uint32_t number = pre->pixels ? reinterpret_cast<const uint32_t*>(pre->pixels)[0] : 0;
        Presented seen{number, pre->time / 10'000, pre->seek, pre->width, clock.Now()};
        if (view != nullptr) {
            EXPECT_EQ(view->time, pre->time);
            seen.view = {view->pan, view->tilt, view->fov};
            seen.viewWidth = view->width;
            // The view shows the panorama in the direction it claims, whenever that was decided.
            if (view->pixels != nullptr && pre->pixels != nullptr) {
                std::vector<uint32_t> expected(size_t{view->width} * view->height);
                RenderPanoramaView(
                    reinterpret_cast<const uint32_t*>(pre->pixels),
                    static_cast<int32_t>(pre->width), static_cast<int32_t>(pre->height),
                    expected.data(), static_cast<int32_t>(view->width),
                    static_cast<int32_t>(view->height), view->pan, view->tilt, view->fov);
                EXPECT_EQ(std::memcmp(expected.data(), view->pixels, expected.size() * 4), 0)
                    << "frame " << number << " was not drawn at pan " << view->pan;
            }
        }
        ReleaseInlayBuffer(pre);
        ReleaseInlayBuffer(view);
        return seen;
    }

    // Waits (on the wall clock) for the next presentation that needs no clock step.
    Presented Next() {
        std::optional<Presented> seen;
        EXPECT_TRUE(testing::WaitUntil([&] { return (seen = Take()).has_value(); }))
            << "nothing presented";
        return seen.value_or(Presented{});
    }
    void AwaitState(State state) {
        EXPECT_TRUE(testing::WaitUntil([&] { return engine.GetStateForTesting() == state; }));
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
            clock.AwaitWaiters(
                [&] { return (frame = Take()) || engine.GetStateForTesting() == State::kEnded; });
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
        ASSERT_FALSE(early.has_value())
            << "frame " << early->number << " came before the decoder was ahead";
    }

    // Each frame comes in the 5 ms step that reaches its time, its time counted from `startMs`
    // at the clock reading `origin`.
    static void ExpectOnTime(const std::vector<Presented>& frames, TickClock::TimePoint origin,
                             int64_t startMs) {
        for (const Presented& p : frames) {
            if (p.IsEnd()) continue;
            const double lateMs = std::chrono::duration<double, std::milli>(p.at - origin).count() -
                                  (p.timeMs - startMs);
            EXPECT_TRUE(lateMs >= 0.0 && lateMs < 5.0)
                << "frame " << p.number << " " << lateMs << " ms late";
        }
    }

    std::atomic<int> latePictures{0};  // declared before the engine, which holds them
    testing::TestTickClock clock;
    RenderEngine engine;
};

// Bad pictures are dropped. A view size is taken when neither side is 0 or over 16384 and the
// view is at most 512 MiB; otherwise the size stays.
TEST_F(RenderEngineTest, PresentsEachFrameWhenTheClockReachesItsTimeThenTheEndAndSeeksOneFrame) {
    const uint32_t sides[] = {0, 1, 8192, 8193, 16384, 16385, UINT32_MAX};
    for (uint32_t w : sides) {
        for (uint32_t h : sides) {
            const uint32_t oldWidth = engine.ViewWidth(), oldHeight = engine.ViewHeight();
            engine.SetViewDim(w, h);
            const bool taken = w > 0 && h > 0 && w <= 16384 && h <= 16384 &&
                               uint64_t{w} * h * 4 <= (uint64_t{512} << 20);
            EXPECT_EQ(engine.ViewWidth(), taken ? w : oldWidth) << w << "x" << h;
            EXPECT_EQ(engine.ViewHeight(), taken ? h : oldHeight) << w << "x" << h;
        }
    }
    engine.SetViewDim(40, 20);
    engine.Start(Ticks(0));
    std::vector<uint32_t> tooShort(10, 0);
    EXPECT_EQ(engine.OnVideoSample(reinterpret_cast<const uint8_t*>(tooShort.data()), 40, 0, 1),
              kOk);
    EXPECT_EQ(engine.OnVideoSample(nullptr, kWidth * kHeight * 4, 0, 1), kOk);
    for (uint32_t i = 0; i < 20; ++i) ASSERT_EQ(Deliver(i + 1, i * 10), kOk);
    engine.OnVideoEndOfStream();  // the decoder is far ahead: the clock starts at once
    const TickClock::TimePoint origin = clock.Now();
    const std::vector<Presented> shown = Play(19);
    ASSERT_EQ(shown.size(), 19u);
    ExpectOnTime(shown, origin, 0);
    for (uint32_t i = 0; i < 19; ++i) {
        EXPECT_EQ(shown[i].number, i + 1) << "a bad picture was shown";
        EXPECT_FALSE(shown[i].seek);
        EXPECT_EQ(shown[i].viewWidth, 40u) << "frame " << i + 1;
    }
    // Nobody takes the last picture: the present thread keeps it a second for the client (from
    // 192.5 ms on this clock) before the end marker replaces it.
    clock.AwaitWaiters();
    clock.Advance(milliseconds(10));
    clock.AwaitWaiters();
    clock.Advance(milliseconds(995));
    clock.AwaitWaiters();
    EXPECT_NE(engine.GetStateForTesting(), State::kEnded);
    clock.Advance(milliseconds(10));
    AwaitState(State::kEnded);
    const Presented end = Next();
    EXPECT_TRUE(end.IsEnd()) << "the last picture was not replaced";
    EXPECT_FALSE(end.seek);
    EXPECT_EQ(engine.GetCurrentPlayTime(), Ticks(milliseconds(190)))
        << "the end marker is not a frame";

    // Seek mode shows one frame at once, far ahead of a clock that never moves, then refuses more.
    // (Seeking from each state, and playing on after a seek, show in the player's seek tests.)
    engine.Stop();
    engine.StartSeek(Ticks(milliseconds(5'000)));
    ASSERT_EQ(Deliver(7, 5'000), kOk);
    EXPECT_EQ(Next().number, 7u);
    AwaitState(State::kSeekFrameShown);
    EXPECT_EQ(Deliver(8, 5'040), ERR_SAMPLE_REFUSED);
    engine.OnVideoEndOfStream();
    const Presented seekEnd = Next();
    EXPECT_TRUE(seekEnd.IsEnd());
    EXPECT_TRUE(seekEnd.seek) << "the end marker of a seek carries the seek flag";
    engine.Stop();
    EXPECT_EQ(Deliver(9, 0), ERR_SAMPLE_REFUSED) << "stopped";
}

// A decoder slow to start (one frame, then nothing for 200 ms) must not start the clock, or every
// frame after the first would be late; after a resume the same, though never for more than half a
// second. A pause shows the frame whose wait began before it and nothing after; the resume runs the
// clock on from that frame. A view that cannot be drawn costs its frame the view sample only.
TEST_F(RenderEngineTest, TheClockStartsOnceTheDecoderIsAheadOrAfterHalfASecondAndStopsForAPause) {
    engine.Start(Ticks(0));
    ASSERT_EQ(Deliver(1, 0), kOk);
    ASSERT_NO_FATAL_FAILURE(AssertHeldFor(milliseconds(200)));
    for (uint32_t i = 1; i < 12; ++i) ASSERT_EQ(Deliver(i + 1, i * 40), kOk);
    TickClock::TimePoint origin = clock.Now();  // the clock starts here: the decoder is ahead
    std::vector<Presented> shown = Play(11);
    ASSERT_EQ(shown.size(), 11u);
    EXPECT_EQ(shown.front().number, 1u);
    ExpectOnTime(shown, origin, 0);

    clock.AwaitWaiters();  // for frame 12, at 440 ms
    engine.Pause();
    clock.Advance(milliseconds(500));
    EXPECT_EQ(Next().number, 12u);
    ASSERT_EQ(Deliver(13, 480), kOk);
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_FALSE(Take().has_value()) << "a frame came while paused";

    engine.FailRenderingForTesting(true);
    engine.Start(Ticks(-1));  // from frame 12, at 440 ms; then the decoder stalls
    ASSERT_NO_FATAL_FAILURE(AssertHeldFor(milliseconds(499)));
    clock.Advance(milliseconds(2));
    origin = clock.Now();
    shown = Play(1);
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].viewWidth, 0u);
    engine.FailRenderingForTesting(false);
    ASSERT_EQ(Deliver(14, 520), kOk);
    engine.OnVideoEndOfStream();
    for (const Presented& p : Play()) shown.push_back(p);
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_EQ(shown[0].number, 13u);
    EXPECT_EQ(shown[1].number, 14u);
    EXPECT_NE(shown[1].viewWidth, 0u);
    ExpectOnTime(shown, origin, 440);
}

// The number Take reads is the top-left pixel of a patterned picture: a picture turned upside
// down, or a freeze copy left without one, shows another number.
TEST_F(RenderEngineTest, LatePicturesAreDrawnTopRowFirstSharedByFreezeCopiesAndLetGoOnStop) {
    ASSERT_TRUE(engine.TakesPictureSources());
    StreamInfo info{};
    info.frameRate = 10.0;
    engine.SetVideoStreamInfo(info);
    const double times[] = {50}, durations[] = {200};
    engine.SetTimeFreeze(times, durations, 1);
    engine.Start(Ticks(0));
    for (uint32_t ms : {0, 100, 200}) ASSERT_EQ(Deliver(ms / 100 + 1, ms, true, true), kOk);
    engine.OnVideoEndOfStream();
    std::vector<std::pair<int64_t, uint32_t>> shown;  // presentation ms, source frame
    for (const Presented& p : Play()) {
        if (!p.IsEnd()) shown.emplace_back(p.timeMs, p.number);
    }
    const std::vector<std::pair<int64_t, uint32_t>> expected = {
        {0, 1}, {50, 2}, {150, 2}, {300, 2}, {400, 3}};
    EXPECT_EQ(shown, expected);
    EXPECT_EQ(latePictures.load(), 0) << "converted pictures are let go";

    engine.Stop();
    engine.Start(Ticks(0));
    for (uint32_t i = 0; i < 8; ++i) ASSERT_EQ(Deliver(i + 1, i * 100, true, true), kOk);
    engine.Stop();
    EXPECT_EQ(latePictures.load(), 0) << "a stop lets the queued pictures go";
}

// The engine with the real lens module, whose view path starts empty and is left empty. Frames are
// a second apart: the present thread decides a frame's view early by the time a drawing takes on
// this machine (the steady clock's, whatever the test clock says), which must not reach back to
// the frame before.
TEST_F(RenderEngineTest, EachViewChangeShowsOnTheNextPresentedFrameAndAReplayShowsTheSame) {
    const auto clear =
        testing::ModuleFunction<ClearPanoramaPathFn>(kLensParamsModule, kClearPanoramaPathSymbol);
    ASSERT_NE(clear, nullptr);
    clear();
    PanoramaLens lens;  // loaded by path above, the module is now found by its name
    ASSERT_TRUE(PanoramaLens::Available());
    constexpr uint32_t kFrames = 10;
    engine.SetTimeRange(0, Ticks(std::chrono::seconds(20)).count());
    engine.SetViewDim(24, 12);
    // Starts from 0 with patterned frames a second apart and takes the first, shown at once.
    const auto startFrames = [&] {
        engine.Start(Ticks(0));
        for (uint32_t i = 0; i < kFrames; ++i) EXPECT_EQ(Deliver(i + 1, i * 1000, true), kOk);
        engine.OnVideoEndOfStream();  // every frame queued: the clock starts without waiting
        Next();
        clock.AwaitWaiters();
        clock.Advance(microseconds(500));  // off the frame grid
    };
    // Waits until the present thread waits for the next frame (drawn ahead by then), lets
    // `change` act, and moves the clock past that frame's time.
    const auto nextAfter = [&](auto change) {
        clock.AwaitWaiters();
        change();
        clock.Advance(milliseconds(1000));
        return Next();
    };

    std::vector<ViewAngles> live;
    startFrames();  // frame 0 shows the view an empty path leaves alone
    live.push_back(nextAfter([&] {
                       engine.SetView(40.0, 10.0, 90.0);
                       engine.SetView(std::nan(""), 0.0, 90.0);  // refused
                   }).view);
    EXPECT_TRUE(SameView(live.back(), {40.0, 10.0, 90.0}));
    live.push_back(
        nextAfter([] { PanoramaLens::SetAngle(2.0, 70.0, 0.0, 80.0); }).view);  // a keyframe for it
    EXPECT_TRUE(SameView(live.back(), {70.0, 0.0, 80.0}));
    // A pan's queued values play out one per presented frame, turning at every frame so that its
    // keyframes keep every sample.
    live.push_back(nextAfter([&] {
                       engine.StartPan();
                       for (double pan : {100.0, 90.0, 100.0}) engine.AddPan(pan, 5.0);
                   }).view);
    EXPECT_TRUE(SameView(live.back(), {100.0, 5.0, 80.0})) << "the field of view follows the path";
    for (double pan : {90.0, 100.0}) {
        live.push_back(nextAfter([] {}).view);
        EXPECT_EQ(live.back().pan, pan);
    }
    // SetView right after the gesture: its keyframe is at the next frame, after the gesture's.
    live.push_back(nextAfter([&] {
                       engine.EndPan();
                       engine.SetView(-30.0, 0.0, 80.0);
                   }).view);
    EXPECT_TRUE(SameView(live.back(), {-30.0, 0.0, 80.0}));
    const Presented resized = nextAfter([&] { engine.SetViewDim(16, 8); });
    live.push_back(resized.view);
    EXPECT_EQ(resized.viewWidth, 16u) << "a new view size waited for a frame drawn later";
    EXPECT_TRUE(SameView(live.back(), {-30.0, 0.0, 80.0}))
        << "the gesture's keyframes overrode SetView";

    // Played again, the path alone shows what was shown live, frame by frame (the field of view,
    // keyed at 80 on both sides of the gesture, is read between keyframes, to rounding).
    engine.Stop();
    startFrames();
    for (size_t i = 0; i < live.size(); ++i) {
        const ViewAngles replayed = nextAfter([] {}).view;
        EXPECT_EQ(replayed.pan, live[i].pan) << "frame " << i + 1;
        EXPECT_EQ(replayed.tilt, live[i].tilt) << "frame " << i + 1;
        EXPECT_NEAR(replayed.fov, live[i].fov, 1e-9) << "frame " << i + 1;
    }
    engine.Stop();
    clear();
}

// 8 kHz stereo 16-bit, in the stream description and the decoded format.
void SetUpAudio(RenderEngine& engine) {
    StreamInfo info{};
    info.kind = kStreamKindAudio;
    info.channels = 2;
    info.samplesPerSecond = 8000;
    info.bitsPerSample = 16;
    uint8_t bytes[kAudioStreamInfoBytes];
    std::memcpy(bytes, &info, sizeof(bytes));
    engine.SetAudioStreamInfo(bytes);
    MediaFormatPayload payload{};
    payload.audio.channels = 2;
    payload.audio.samplesPerSecond = 8000;
    payload.audio.bitsPerSample = 16;
    engine.SetAudioFormat(payload);
}

// One 20 ms audio block on a thread of its own, as a codec host's delivery thread.
std::future<int32_t> DeliverAudioAsync(RenderEngine& engine, int64_t timeMs) {
    return std::async(std::launch::async, [&engine, timeMs] {
        std::vector<uint8_t> block(640, 1);
        return engine.OnAudioSample(block.data(), 640, timeMs * kTicksPerMs,
                                    (timeMs + 20) * kTicksPerMs);
    });
}

bool Waiting(std::future<int32_t>& result, milliseconds for_) {
    return result.wait_for(for_) == std::future_status::timeout;
}

TEST_F(RenderEngineTest, TheSoundStartsWithTheFirstPictureAfterThePrerollAndNotInASeek) {
    // Loaded by path, the module answers the engine's load by plain name (the same soname).
    ASSERT_NE(testing::LoadConversionModule("libAudioFeedFilter.so"), nullptr);
    UseCaptureFile("engine-preroll");
    SetUpAudio(engine);
    engine.Start(Ticks(0));
    ASSERT_EQ(Deliver(1, 0), kOk);
    auto held = DeliverAudioAsync(engine, 0);
    clock.AwaitWaiters();  // the present thread holds the first picture: the decoder is not ahead
    clock.Advance(milliseconds(300));
    clock.AwaitWaiters();
    EXPECT_FALSE(Take().has_value());
    EXPECT_TRUE(Waiting(held, milliseconds(100))) << "the sound started before the picture";
    engine.OnVideoEndOfStream();  // every frame is queued: picture and sound start
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), kOk);
    EXPECT_EQ(Next().number, 1u);
    EXPECT_TRUE(Next().IsEnd());
    engine.Stop();

    engine.StartSeek(Ticks(milliseconds(400)));  // far ahead of a clock that does not move
    held = DeliverAudioAsync(engine, 400);
    ASSERT_EQ(Deliver(2, 400), kOk);
    EXPECT_EQ(Next().number, 2u);  // the seek frame is shown, yet the preview runs no sound
    EXPECT_TRUE(Waiting(held, milliseconds(100)));
    engine.Stop();  // releases the waiting block promptly, refused
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), ERR_SAMPLE_REFUSED);
}

TEST_F(RenderEngineTest, WithoutAGraphManagerThereIsNoSoundAndNoWaiting) {
    class Refusing final : public ComObject<IClassFactory> {
    public:
        HRESULT QueryInterface(const GUID* iid, void** out) override {
            *out = nullptr;
            if (*iid == IID_IUnknown || *iid == IID_IClassFactory)
                return ShareInterface<IClassFactory>(this, out);
            return E_NOINTERFACE;
        }
        HRESULT CreateInstance(IUnknown*, const GUID*, void** out) override {
            *out = nullptr;
            return E_FAIL;
        }
    };
    ASSERT_NE(testing::LoadConversionModule("libAudioFeedFilter.so"), nullptr);
    CountedRef<IClassFactory> refusing(new Refusing);
    uint32_t cookie = 0;
    ASSERT_EQ(RegisterClassObjectForTesting(&CLSID_FilterGraph, refusing.get(), &cookie), S_OK);
    SetUpAudio(engine);  // the failure stays inside
    RevokeClassObjectForTesting(cookie);

    engine.Start(Ticks(0));
    auto dropped = DeliverAudioAsync(engine, 0);
    ASSERT_FALSE(Waiting(dropped, milliseconds(2000)));  // dropped at once, nothing holds it
    EXPECT_EQ(dropped.get(), kOk);
    engine.SetVolume(-2000);  // nothing to reach, nothing fails
    engine.Pause();
    engine.Stop();
    EXPECT_EQ(DeliverAudioAsync(engine, 20).get(), ERR_SAMPLE_REFUSED);
}

}  // namespace
}  // namespace vexel
