// The engine's sound path: audio blocks wait until the clock starts the sound (after the preroll,
// with the first picture), seek previews keep them waiting, stopping releases and refuses them, and
// an engine whose graph cannot be built plays on silently.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <vector>

#include "engine_test_support.h"
#include "mediagraph/com_runtime.h"
#include "sibling_module.h"
#include "test_tick_clock.h"
#include "vexel/com_object.h"
#include "vexel/status.h"
#include "vexel/ticks.h"
#include "wav_reader.h"

namespace vexel {
namespace {

using std::chrono::milliseconds;

class RenderEngineAudio : public ::testing::Test {
protected:
    void SetUp() override {
        // Loaded by path, the module answers the engine's load by plain name (the same soname).
        ASSERT_NE(testing::LoadConversionModule("libAudioFeedFilter.so"), nullptr);
        engine.SetTickClockForTesting(&clock);
        engine.SetVideoFormat(testing::PictureFormat(64, 32));
    }

    // 8 kHz stereo 16-bit, in the stream description and the decoded format.
    void SetUpAudio() {
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

    int32_t DeliverVideo(int64_t timeMs) {
        std::vector<uint32_t> picture(64 * 32, 0xFF000000u);
        return engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()),
                                    static_cast<uint32_t>(picture.size() * 4), timeMs * kTicksPerMs,
                                    (timeMs + 40) * kTicksPerMs);
    }

    // One 20 ms audio block on a thread of its own, as a codec host's delivery thread.
    std::future<int32_t> DeliverAudioAsync(int64_t timeMs) {
        return std::async(std::launch::async, [this, timeMs] {
            std::vector<uint8_t> block(640, 1);
            return engine.OnAudioSample(block.data(), 640, timeMs * kTicksPerMs,
                                        (timeMs + 20) * kTicksPerMs);
        });
    }

    // Whether the engine presents a picture (taken and released).
    bool Presents() {
        InlayBuffer* shown = testing::AwaitPreSample(engine);
        ReleaseInlayBuffer(shown);
        return shown != nullptr;
    }

    testing::TestTickClock clock;
    RenderEngine engine;
};

bool Waiting(std::future<int32_t>& result, milliseconds for_) {
    return result.wait_for(for_) == std::future_status::timeout;
}

TEST_F(RenderEngineAudio, TheSoundStartsWithTheFirstPictureAfterThePrerollAndNotInASeek) {
    UseCaptureFile("engine-preroll");
    SetUpAudio();
    engine.Start(Ticks(0));
    ASSERT_EQ(DeliverVideo(0), kOk);
    auto held = DeliverAudioAsync(0);
    clock.AwaitWaiters();  // the present thread holds the first picture: the decoder is not ahead
    clock.Advance(milliseconds(300));
    clock.AwaitWaiters();
    EXPECT_EQ(engine.TakeCurrentPreSample(), nullptr);
    EXPECT_TRUE(Waiting(held, milliseconds(100))) << "the sound started before the picture";
    engine.OnVideoEndOfStream();  // every frame is queued: picture and sound start
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), kOk);
    EXPECT_TRUE(Presents());
    engine.Stop();

    engine.StartSeek(Ticks(400 * kTicksPerMs));  // far ahead of a clock that does not move
    held = DeliverAudioAsync(400);
    ASSERT_EQ(DeliverVideo(400), kOk);
    ASSERT_TRUE(Presents());  // the seek frame is shown, yet the preview runs no sound
    EXPECT_TRUE(Waiting(held, milliseconds(100)));
    engine.Stop();  // releases the waiting block promptly, refused
    ASSERT_FALSE(Waiting(held, milliseconds(2000)));
    EXPECT_EQ(held.get(), ERR_SAMPLE_REFUSED);
}

TEST_F(RenderEngineAudio, WithoutAGraphManagerThereIsNoSoundAndNoWaiting) {
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
    CountedRef<IClassFactory> refusing(new Refusing);
    uint32_t cookie = 0;
    ASSERT_EQ(RegisterClassObjectForTesting(&CLSID_FilterGraph, refusing.get(), &cookie), S_OK);
    SetUpAudio();  // the failure stays inside
    RevokeClassObjectForTesting(cookie);

    engine.Start(Ticks(0));
    auto dropped = DeliverAudioAsync(0);
    ASSERT_FALSE(Waiting(dropped, milliseconds(2000)));  // dropped at once, nothing holds it
    EXPECT_EQ(dropped.get(), kOk);
    engine.SetVolume(-2000);  // nothing to reach, nothing fails
    engine.Pause();
    engine.Stop();
    EXPECT_EQ(DeliverAudioAsync(20).get(), ERR_SAMPLE_REFUSED);
}

}  // namespace
}  // namespace vexel
