// The codec host contract as the player sees it: counted references, the render sinks, and
// binding the decoder module.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>
#include <vector>

#include "codec/load_codec_host.h"
#include "codec/render_sinks.h"
#include "vexel/codec_host.h"
#include "vexel/counted_ref.h"
#include "vexel/status.h"

namespace vexel {
namespace {

struct FakeObject : virtual IVexelBase {
    int held = 0;
    int32_t QueryInterface(const GUID* id, void** out) override {
        if (*id != IID_PlaybackControl) return ERR_NO_INTERFACE;
        AddRef();
        *out = static_cast<IVexelBase*>(this);
        return S_OK;
    }
    uint32_t AddRef() override { return static_cast<uint32_t>(++held); }
    uint32_t Release() override { return static_cast<uint32_t>(--held); }
};

TEST(CountedRef, EveryWayOfHoldingBalancesTheCount) {
    FakeObject object;
    FakeObject other;
    {
        CountedRef<FakeObject> a(&object);
        CountedRef<FakeObject> b = a;
        CountedRef<FakeObject> c = std::move(b);
        EXPECT_FALSE(b);
        EXPECT_EQ(object.held, 2);
        c = c;  // self-assignment keeps the reference
        b = std::move(c);
        a.reset();
        EXPECT_EQ(object.held, 1);

        FakeObject** slot = b.put();  // gives back the held reference first
        EXPECT_EQ(object.held, 0);
        other.AddRef();
        *slot = &other;

        CountedRef<IVexelBase> asked;
        EXPECT_EQ(asked.QueryFrom(b.get(), IID_PlaybackControl), S_OK);
        EXPECT_EQ(other.held, 2);
        EXPECT_EQ(asked.QueryFrom(b.get(), IID_PlaybackStatus), ERR_NO_INTERFACE);
        EXPECT_FALSE(asked);
        EXPECT_EQ(asked.QueryFrom(static_cast<FakeObject*>(nullptr), IID_PlaybackControl),
                  ERR_NULL_ARGUMENT);
        a = CountedRef<FakeObject>::Adopt(&object);  // no count taken: the next line pairs it
        object.AddRef();
    }
    EXPECT_EQ(object.held, 0);
    EXPECT_EQ(other.held, 0);
}

// ---------------------------------------------------------------------------------------------
// Render sinks

struct FakeSample : IPushSample {
    BufferDesc buffer{};
    int64_t start = 0;
    int64_t stop = 0;
    uint32_t kind = kMediaKindVideo;
    SampleInfo infoOnEntry{};

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
        infoOnEntry = *info;
        info->startTime = start;
        info->stopTime = stop;
        info->mediaKind = kind;
        return S_OK;
    }
};

struct FakeTarget : SampleTarget {
    struct Delivery {
        bool video;
        const uint8_t* data;
        uint32_t size;
        int64_t start;
        int64_t stop;
    };
    std::vector<Delivery> deliveries;
    int ends = 0;
    int32_t result = S_OK;
    bool throwOnSample = false;

    int32_t OnVideoSample(const uint8_t* d, uint32_t s, int64_t a, int64_t b) override {
        return Take({true, d, s, a, b});
    }
    int32_t OnAudioSample(const uint8_t* d, uint32_t s, int64_t a, int64_t b) override {
        return Take({false, d, s, a, b});
    }
    void OnVideoEndOfStream() override { ++ends; }
    void OnAudioEndOfStream() override { ++ends; }

    int32_t Take(const Delivery& d) {
        if (throwOnSample) throw std::bad_alloc();
        deliveries.push_back(d);
        return result;
    }
};

TEST(RenderSink, HandsWellFormedSamplesToTheEngineAndKeepsEverythingElseOnThisSide) {
    FakeTarget target;
    auto video = VideoRenderSink::Create(&target);
    auto audio = AudioRenderSink::Create(&target);
    const uint8_t picture[16] = {1};
    const uint8_t pcm[8] = {2};

    FakeSample frame(picture, sizeof picture, kMediaKindVideo);
    frame.start = 400000;
    frame.stop = 733333;
    EXPECT_EQ(video->Push(&frame), S_OK);
    EXPECT_EQ(frame.infoOnEntry.header.size, sizeof(SampleInfo));
    EXPECT_EQ(frame.infoOnEntry.header.key, KEY_SampleInfo);

    FakeSample block(pcm, sizeof pcm, kMediaKindAudio);
    block.start = -5;
    block.stop = 10;
    target.result = ERR_SAMPLE_REFUSED;  // the engine's answer goes back to the host unchanged
    EXPECT_EQ(audio->Push(&block), ERR_SAMPLE_REFUSED);

    ASSERT_EQ(target.deliveries.size(), 2u);
    EXPECT_TRUE(target.deliveries[0].video);
    EXPECT_EQ(target.deliveries[0].data, picture);
    EXPECT_EQ(target.deliveries[0].size, 16u);
    EXPECT_EQ(target.deliveries[0].start, 400000);
    EXPECT_EQ(target.deliveries[0].stop, 733333);
    EXPECT_FALSE(target.deliveries[1].video);
    EXPECT_EQ(target.deliveries[1].start, -5);
    EXPECT_EQ(target.deliveries[1].stop, 10);

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
    EXPECT_EQ(target.deliveries.size(), 2u);

    // Once disconnected from a departing engine, samples are refused and ends ignored.
    EXPECT_EQ(video->EndOfStream(), S_OK);
    EXPECT_EQ(audio->EndOfStream(), S_OK);
    video->Disconnect();
    audio->Disconnect();
    target.throwOnSample = false;
    EXPECT_EQ(video->Push(&good), ERR_SAMPLE_REFUSED);
    EXPECT_EQ(video->EndOfStream(), S_OK);
    EXPECT_EQ(audio->EndOfStream(), S_OK);
    EXPECT_EQ(target.deliveries.size(), 2u);
    EXPECT_EQ(target.ends, 2);
}

// ---------------------------------------------------------------------------------------------
// Binding the decoder module

size_t CountOf(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

TEST(LoadCodecHost, MissingModuleIsReportedAtEveryCallFromEveryThread) {
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
}

TEST(LoadCodecHost, ModuleWithoutEntryPointGivesNothingSilently) {
    SiblingModule withoutEntry("libm.so.6", kDecodeHostMissing);  // present, no CreateCodecHost
    testing::internal::CaptureStdout();
    EXPECT_FALSE(LoadCodecHost(withoutEntry));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace vexel
