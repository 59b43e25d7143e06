// The codec host contract as the player sees it: the render sinks a host pushes into (malformed
// samples stay on this side), and binding the decoder module.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>
#include <vector>

#include "codec/load_codec_host.h"
#include "codec/render_sinks.h"
#include "vexel/codec_host.h"
#include "vexel/status.h"

namespace vexel {
namespace {

// ---------------------------------------------------------------------------------------------
// Render sinks

struct FakeSample : IPushSample {
    BufferDesc buffer{};
    uint32_t kind = kMediaKindVideo;

    FakeSample(const void* data, uint32_t size, uint32_t mediaKind) : kind(mediaKind) {
        buffer.data = const_cast<void*>(data);
        buffer.size = size;
    }
    int32_t QueryInterface(const GUID*, void**) override { return ERR_NO_INTERFACE; }
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    int32_t GetBuffer(BufferDesc* out) override {
        *out = buffer;
        return S_OK;
    }
    int32_t BufferAcquired() override { return S_OK; }
    int32_t GetInfo(SampleInfo* info) override {
        info->mediaKind = kind;
        return S_OK;
    }
};

struct FakeTarget : SampleTarget {
    int videos = 0, audios = 0, ends = 0;
    int32_t result = S_OK;
    bool throwOnSample = false;

    int32_t OnVideoSample(const uint8_t*, uint32_t, int64_t, int64_t) override {
        return Take(videos);
    }
    int32_t OnAudioSample(const uint8_t*, uint32_t, int64_t, int64_t) override {
        return Take(audios);
    }
    void OnVideoEndOfStream() override { ++ends; }
    void OnAudioEndOfStream() override { ++ends; }

    int32_t Take(int& count) {
        if (throwOnSample) throw std::bad_alloc();
        ++count;
        return result;
    }
};

TEST(RenderSink, HandsWellFormedSamplesToTheEngineAndKeepsEverythingElseOnThisSide) {
    FakeTarget target;
    auto video = VideoRenderSink::Create(&target);
    auto audio = AudioRenderSink::Create(&target);
    const uint8_t picture[16] = {1};
    const uint8_t pcm[8] = {2};

    // Good samples reach the engine (the real decoder's clips check what they carry); the engine's
    // answer goes back to the host unchanged.
    FakeSample frame(picture, sizeof picture, kMediaKindVideo);
    EXPECT_EQ(video->Push(&frame), S_OK);
    FakeSample block(pcm, sizeof pcm, kMediaKindAudio);
    target.result = ERR_SAMPLE_REFUSED;
    EXPECT_EQ(audio->Push(&block), ERR_SAMPLE_REFUSED);
    EXPECT_EQ(target.videos, 1);
    EXPECT_EQ(target.audios, 1);

    // Malformed samples (wrong kind, no bytes, no data) and a failing engine end as a status.
    const uint8_t bytes[4] = {};
    FakeSample malformed[] = {{bytes, 4, kMediaKindAudio},
                              {bytes, 0, kMediaKindVideo},
                              {nullptr, 4, kMediaKindVideo},
                              {bytes, 4, 1}};
    for (FakeSample& sample : malformed) EXPECT_EQ(video->Push(&sample), ERR_SAMPLE_FAULT);
    FakeSample videoToAudio(bytes, 4, kMediaKindVideo);
    EXPECT_EQ(audio->Push(&videoToAudio), ERR_SAMPLE_FAULT);
    EXPECT_EQ(video->Push(nullptr), ERR_NULL_ARGUMENT);
    target.throwOnSample = true;
    FakeSample good(bytes, 4, kMediaKindVideo);
    EXPECT_EQ(video->Push(&good), ERR_SAMPLE_FAULT);
    EXPECT_EQ(target.videos + target.audios, 2);

    // Once disconnected from a departing engine, samples are refused and ends ignored.
    EXPECT_EQ(video->EndOfStream(), S_OK);
    EXPECT_EQ(audio->EndOfStream(), S_OK);
    video->Disconnect();
    audio->Disconnect();
    target.throwOnSample = false;
    EXPECT_EQ(video->Push(&good), ERR_SAMPLE_REFUSED);
    EXPECT_EQ(video->EndOfStream(), S_OK);
    EXPECT_EQ(audio->EndOfStream(), S_OK);
    EXPECT_EQ(target.videos + target.audios, 2);
    EXPECT_EQ(target.ends, 2);
}

// ---------------------------------------------------------------------------------------------
// Binding the decoder module

size_t CountOf(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

// A missing module is reported at every call, from every thread; a module without the entry point
// gives nothing, silently.
TEST(LoadCodecHost, AMissingModuleIsReportedAtEveryCallAndOneWithoutEntryPointIsNot) {
    SiblingModule absent("libVexelAbsentDecodeHost.so", kDecodeHostMissing);
    constexpr int kThreads = 8;
    std::vector<std::thread> threads;
    std::vector<int> found(kThreads, -1);
    testing::internal::CaptureStdout();
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] { found[i] = LoadCodecHost(absent) ? 1 : 0; });
    }
    for (auto& t : threads) t.join();
    EXPECT_FALSE(LoadCodecHost(absent));
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(found, std::vector<int>(kThreads, 0));
    EXPECT_EQ(CountOf(out, kDecodeHostMissing), static_cast<size_t>(kThreads + 1));

    SiblingModule withoutEntry("libm.so.6", kDecodeHostMissing);  // present, no CreateCodecHost
    testing::internal::CaptureStdout();
    EXPECT_FALSE(LoadCodecHost(withoutEntry));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace vexel
