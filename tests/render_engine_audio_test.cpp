// The engine's sound path: audio blocks wait until the clock starts the sound (after the preroll,
// with the first picture), seek previews keep them waiting, stopping refuses them, and an engine
// whose graph cannot be built plays on silently.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "engine/render_engine.h"
#include "mediagraph/com_runtime.h"
#include "test_tick_clock.h"
#include "vexel/com_object.h"
#include "vexel/status.h"
#include "vexel/ticks.h"
#include "wav_reader.h"

namespace vexel {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Loaded by path, the module answers the engine's load by plain name (the same soname).
bool LoadFeedModule() {
    static void* module =
        dlopen((std::string(VEXEL_MODULE_DIR) + "/libAudioFeedFilter.so").c_str(), RTLD_NOW);
    return module != nullptr;
}

MediaFormatPayload VideoFormat() {
    MediaFormatPayload payload{};
    payload.video.width = 64;
    payload.video.height = 32;
    payload.video.pixelFormat = 11;
    payload.video.frameRate = 25.0;
    return payload;
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

int32_t DeliverVideo(RenderEngine& engine, int64_t timeMs) {
    std::vector<uint32_t> picture(64 * 32, 0xFF000000u);
    return engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                static_cast<uint32_t>(picture.size() * 4), timeMs * kTicksPerMs,
                                (timeMs + 40) * kTicksPerMs);
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

TEST(RenderEngineAudio, BlocksWaitForTheClockAndAStopRefusesThem) {
    UseCaptureFile("engine-hold");
    ASSERT_TRUE(LoadFeedModule());
    RenderEngine engine;
    engine.SetVideoFormat(VideoFormat());
    SetUpAudio(engine);
    engine.Start(Ticks(0));  // no picture yet: the clock, and with it the sound, has not started
    auto held = DeliverAudioAsync(engine, 0);
    EXPECT_TRUE(Waiting(held, milliseconds(150)));

    const auto stopAt = Clock::now();
    engine.Stop();
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), ERR_SAMPLE_REFUSED);
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - stopAt).count(), 2.0);
}

TEST(RenderEngineAudio, TheSoundStartsWithTheFirstPictureAfterThePreroll) {
    UseCaptureFile("engine-preroll");
    ASSERT_TRUE(LoadFeedModule());
    testing::TestTickClock clock;
    RenderEngine engine;
    engine.SetTickClockForTesting(&clock);
    engine.SetVideoFormat(VideoFormat());
    SetUpAudio(engine);
    engine.Start(Ticks(0));
    ASSERT_EQ(DeliverVideo(engine, 0), kOk);
    auto held = DeliverAudioAsync(engine, 0);
    clock.AwaitWaiters();  // the present thread holds the first picture: the decoder is not ahead
    clock.Advance(milliseconds(300));
    clock.AwaitWaiters();
    EXPECT_EQ(engine.TakeCurrentPreSample(), nullptr);
    EXPECT_TRUE(Waiting(held, milliseconds(100))) << "the sound started before the picture";

    engine.OnVideoEndOfStream();  // every frame is queued: picture and sound start
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), kOk);
    InlayBuffer* shown = nullptr;
    for (int i = 0; i < 2000 && shown == nullptr; ++i) {
        if ((shown = engine.TakeCurrentPreSample()) == nullptr)
            std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_NE(shown, nullptr);
    ReleaseInlayBuffer(shown);
    engine.Stop();
}

TEST(RenderEngineAudio, ASeekPreviewKeepsTheSoundWaitingUntilTheStop) {
    UseCaptureFile("engine-seek");
    ASSERT_TRUE(LoadFeedModule());
    RenderEngine engine;
    engine.SetVideoFormat(VideoFormat());
    SetUpAudio(engine);
    engine.StartSeek(Ticks(400 * kTicksPerMs));
    auto held = DeliverAudioAsync(engine, 400);
    ASSERT_EQ(DeliverVideo(engine, 400), kOk);
    // The seek frame is shown, yet the preview runs no sound.
    const auto deadline = Clock::now() + std::chrono::seconds(3);
    InlayBuffer* shown = nullptr;
    while (shown == nullptr && Clock::now() < deadline) {
        shown = engine.TakeCurrentPreSample();
        std::this_thread::sleep_for(milliseconds(2));
    }
    ASSERT_NE(shown, nullptr);
    ReleaseInlayBuffer(shown);
    EXPECT_TRUE(Waiting(held, milliseconds(100)));
    engine.Stop();
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), ERR_SAMPLE_REFUSED);
}

TEST(RenderEngineAudio, WithoutAGraphManagerThereIsNoSoundAndNoWaiting) {
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
    ASSERT_TRUE(LoadFeedModule());
    CountedRef<IClassFactory> refusing(new Refusing);
    uint32_t cookie = 0;
    ASSERT_EQ(RegisterClassObjectForTesting(&CLSID_FilterGraph, refusing.get(), &cookie), S_OK);
    RenderEngine engine;
    engine.SetVideoFormat(VideoFormat());
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
