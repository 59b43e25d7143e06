// The codec host contract as the player sees it: identifiers and property records byte for byte,
// counted references, the render sinks, and loading the decoder module.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "codec/load_codec_host.h"
#include "codec/render_sinks.h"
#include "common/counted_ref.h"
#include "common/status.h"
#include "platform/module.h"
#include "vexel/codec_host.h"

namespace vexel {
namespace {

// The 16 bytes of a GUID written as "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX", in memory order: the
// first three groups little-endian, the rest as written.
std::vector<uint8_t> GuidBytes(const std::string& text) {
    std::string hex;
    for (char c : text) {
        if (c != '-') hex += c;
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    std::swap(bytes[0], bytes[3]);
    std::swap(bytes[1], bytes[2]);
    std::swap(bytes[4], bytes[5]);
    std::swap(bytes[6], bytes[7]);
    return bytes;
}

template <class T>
std::vector<uint8_t> BytesOf(const T& value, size_t offset, size_t count) {
    const auto* p = reinterpret_cast<const uint8_t*>(&value) + offset;
    return std::vector<uint8_t>(p, p + count);
}

template <class T>
bool AllZero(const T& value, size_t from, size_t to) {
    const auto* p = reinterpret_cast<const uint8_t*>(&value);
    for (size_t i = from; i < to; ++i) {
        if (p[i] != 0) return false;
    }
    return true;
}

uint32_t U32At(const void* record, size_t offset) {
    uint32_t v;
    std::memcpy(&v, static_cast<const uint8_t*>(record) + offset, sizeof v);
    return v;
}

TEST(CodecIdentifiers, MatchTheirTextualForms) {
    const struct {
        const GUID& id;
        const char* text;
    } cases[] = {
        {IID_PlaybackControl, "D5446441-71C0-4304-958D-931F1C4A3454"},
        {IID_PlaybackStatus, "60D02ABF-98CC-41CF-8605-8A3923E6C87F"},
        {KEY_DecodeMode, "B8C05071-685F-4CA1-AC16-D3F3EB0145AB"},
        {KEY_StreamSetup, "1003262F-CEBC-42A2-B1BE-66A08ECF6FD6"},
        {KEY_MediaFormat, "7F825B52-C0F7-4155-83B2-D6A623F5217E"},
        {IID_PushStream, "14BEE145-C7DA-4EF4-8EA0-DD767E8F59B6"},
        {KEY_SampleInfo, "21F33478-0F43-4204-A63F-3268D4F605E4"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(BytesOf(c.id, 0, 16), GuidBytes(c.text)) << c.text;
    }
    EXPECT_TRUE(IID_PushStream == IID_PushStream);
    EXPECT_TRUE(IID_PushStream != KEY_SampleInfo);
}

TEST(CodecRecords, GoOutWithTheirSizesKeysAndValues) {
    const DecodeModeProperty mode = MakeDecodeModeProperty(1);
    EXPECT_EQ(U32At(&mode, 0), 28u);
    EXPECT_EQ(BytesOf(mode, 4, 16), GuidBytes("B8C05071-685F-4CA1-AC16-D3F3EB0145AB"));
    EXPECT_EQ(BytesOf(mode, 20, 1), std::vector<uint8_t>{0});
    EXPECT_EQ(U32At(&mode, 24), 1u);

    const StreamSetupProperty setup = MakeStreamSetupProperty();
    EXPECT_EQ(U32At(&setup, 0), 32u);
    EXPECT_EQ(BytesOf(setup, 4, 16), GuidBytes("1003262F-CEBC-42A2-B1BE-66A08ECF6FD6"));
    EXPECT_EQ(U32At(&setup, 20), 0u);
    EXPECT_EQ(BytesOf(setup, 24, 8), std::vector<uint8_t>(8, 0xFF));

    const MediaFormat format = MakeMediaFormatRequest();
    EXPECT_EQ(U32At(&format, 0), 112u);
    EXPECT_EQ(BytesOf(format, 4, 16), GuidBytes("7F825B52-C0F7-4155-83B2-D6A623F5217E"));
    EXPECT_TRUE(AllZero(format, 20, sizeof format));

    const SampleInfo info = MakeSampleInfoRequest();
    EXPECT_EQ(U32At(&info, 0), 104u);
    EXPECT_EQ(BytesOf(info, 4, 16), GuidBytes("21F33478-0F43-4204-A63F-3268D4F605E4"));
    EXPECT_TRUE(AllZero(info, 20, sizeof info));
}

// ---------------------------------------------------------------------------------------------
// Counted references

struct FakeObject : virtual IVexelBase {
    int addRefs = 0;
    int releases = 0;
    int32_t QueryInterface(const GUID* id, void** out) override {
        if (*id != IID_PlaybackControl) return ERR_NO_INTERFACE;
        AddRef();
        *out = static_cast<IVexelBase*>(this);
        return kOk;
    }
    uint32_t AddRef() override { return static_cast<uint32_t>(++addRefs - releases); }
    uint32_t Release() override { return static_cast<uint32_t>(addRefs - ++releases); }
    int held() const { return addRefs - releases; }
};

TEST(CountedRef, CopiesMovesAndResetsBalanceTheCount) {
    FakeObject object;
    {
        CountedRef<FakeObject> a(&object);
        EXPECT_EQ(object.held(), 1);
        CountedRef<FakeObject> b = a;
        EXPECT_EQ(object.held(), 2);
        CountedRef<FakeObject> c = std::move(b);
        EXPECT_FALSE(b);
        EXPECT_EQ(c.get(), &object);
        EXPECT_EQ(object.held(), 2);

        c = c;  // self-assignment keeps the reference
        EXPECT_EQ(object.held(), 2);
        b = c;
        EXPECT_EQ(object.held(), 3);
        b = std::move(c);
        EXPECT_EQ(object.held(), 2);
        a.reset();
        a.reset();
        EXPECT_EQ(object.held(), 1);
        b = nullptr;
        EXPECT_EQ(object.held(), 0);
        a = CountedRef<FakeObject>(&object);
    }
    EXPECT_EQ(object.held(), 0);
}

TEST(CountedRef, AdoptsAndHandsOverWithoutCounting) {
    FakeObject first;
    FakeObject second;
    first.AddRef();
    second.AddRef();
    {
        auto ref = CountedRef<FakeObject>::Adopt(&first);
        EXPECT_EQ(first.held(), 1);
        ref.Attach(&second);  // gives back the reference on `first`
        EXPECT_EQ(first.held(), 0);
        EXPECT_EQ(second.held(), 1);
        FakeObject* raw = ref.Detach();
        EXPECT_EQ(raw, &second);
        EXPECT_FALSE(ref);
        EXPECT_EQ(second.held(), 1);
        ref.Attach(raw);
    }
    EXPECT_EQ(second.held(), 0);
}

TEST(CountedRef, OutParameterAndQueryRelease) {
    FakeObject object;
    FakeObject other;
    CountedRef<FakeObject> ref(&object);

    FakeObject** slot = ref.put();  // gives back the held reference first
    EXPECT_EQ(object.held(), 0);
    other.AddRef();
    *slot = &other;
    EXPECT_EQ(ref.get(), &other);

    CountedRef<IVexelBase> asked;
    EXPECT_EQ(asked.QueryFrom(ref.get(), IID_PlaybackControl), kOk);
    EXPECT_EQ(asked.get(), static_cast<IVexelBase*>(&other));
    EXPECT_EQ(other.held(), 2);

    EXPECT_EQ(asked.QueryFrom(ref.get(), IID_PlaybackStatus), ERR_NO_INTERFACE);
    EXPECT_FALSE(asked);
    EXPECT_EQ(other.held(), 1);
    EXPECT_EQ(asked.QueryFrom(static_cast<FakeObject*>(nullptr), IID_PlaybackControl),
              ERR_NULL_ARGUMENT);
}

// ---------------------------------------------------------------------------------------------
// Render sinks

struct FakeSample : IPushSample {
    BufferDesc buffer{};
    int64_t start = 0;
    int64_t stop = 0;
    uint32_t kind = kMediaKindVideo;
    std::vector<std::string> calls;
    SampleInfo infoOnEntry{};

    FakeSample(const void* data, uint32_t size, uint32_t mediaKind)
        : kind(mediaKind) {
        buffer.data = const_cast<void*>(data);
        buffer.size = size;
    }
    int32_t QueryInterface(const GUID*, void**) override { return ERR_NO_INTERFACE; }
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    int32_t GetBuffer(BufferDesc* out) override {
        calls.push_back("GetBuffer");
        out->data = buffer.data;
        out->size = buffer.size;
        return kOk;
    }
    int32_t BufferAcquired() override {
        calls.push_back("BufferAcquired");
        return kOk;
    }
    int32_t GetInfo(SampleInfo* info) override {
        calls.push_back("GetInfo");
        infoOnEntry = *info;
        info->startTime = start;
        info->stopTime = stop;
        info->mediaKind = kind;
        return kOk;
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
    int videoEnds = 0;
    int audioEnds = 0;
    int32_t result = kOk;
    bool throwOnSample = false;

    int32_t OnVideoSample(const uint8_t* d, uint32_t s, int64_t a, int64_t b) override {
        return Take({true, d, s, a, b});
    }
    int32_t OnAudioSample(const uint8_t* d, uint32_t s, int64_t a, int64_t b) override {
        return Take({false, d, s, a, b});
    }
    void OnVideoEndOfStream() override { ++videoEnds; }
    void OnAudioEndOfStream() override { ++audioEnds; }

    int32_t Take(const Delivery& d) {
        if (throwOnSample) throw std::bad_alloc();
        deliveries.push_back(d);
        return result;
    }
};

TEST(RenderSink, AnswersOnlyThePushInterfaceWithoutCounting) {
    FakeTarget target;
    CountedRef<RenderSink> sink = VideoRenderSink::Create(&target);
    Vexel::IPushStream* handedToHost = sink.get();

    void* out = nullptr;
    EXPECT_EQ(handedToHost->QueryInterface(&IID_PushStream, &out), kOk);
    EXPECT_EQ(out, static_cast<void*>(handedToHost));

    // The count is unchanged: one reference (ours) is left to take and give back.
    EXPECT_EQ(handedToHost->AddRef(), 2u);
    EXPECT_EQ(handedToHost->Release(), 1u);

    void* untouched = &target;
    EXPECT_EQ(handedToHost->QueryInterface(&IID_PlaybackControl, &untouched), ERR_NO_INTERFACE);
    EXPECT_EQ(untouched, static_cast<void*>(&target));
    EXPECT_EQ(handedToHost->QueryInterface(&IID_PushStream, nullptr), ERR_NULL_ARGUMENT);
    EXPECT_EQ(handedToHost->QueryInterface(nullptr, &out), ERR_NULL_ARGUMENT);
    EXPECT_EQ(handedToHost->Notify(), kOk);
}

TEST(RenderSink, LastReleaseDestroysTheSinkOnce) {
    // Each sink starts with the one reference Create hands over; the host may add its own. Run
    // under a leak and use-after-free checker, this fails on a missing or repeated destruction.
    FakeTarget target;
    for (auto create : {&VideoRenderSink::Create, &AudioRenderSink::Create}) {
        RenderSink* sink = create(&target).Detach();
        EXPECT_EQ(sink->AddRef(), 2u);
        EXPECT_EQ(sink->Release(), 1u);
        EXPECT_EQ(sink->Release(), 0u);
    }
}

TEST(RenderSink, HandsWellFormedSamplesToTheEngine) {
    FakeTarget target;
    auto video = VideoRenderSink::Create(&target);
    auto audio = AudioRenderSink::Create(&target);
    const uint8_t picture[16] = {1};
    const uint8_t pcm[8] = {2};

    FakeSample frame(picture, sizeof picture, kMediaKindVideo);
    frame.start = 400000;
    frame.stop = 733333;
    EXPECT_EQ(video->Push(&frame), kOk);
    EXPECT_EQ(frame.calls, (std::vector<std::string>{"GetBuffer", "BufferAcquired", "GetInfo"}));
    const SampleInfo expectedRequest = MakeSampleInfoRequest();
    EXPECT_EQ(std::memcmp(&frame.infoOnEntry, &expectedRequest, sizeof expectedRequest), 0);

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
    EXPECT_EQ(target.deliveries[1].data, pcm);
    EXPECT_EQ(target.deliveries[1].start, -5);
    EXPECT_EQ(target.deliveries[1].stop, 10);
}

TEST(RenderSink, MalformedSamplesNeverReachTheEngineNorEscape) {
    FakeTarget target;
    auto video = VideoRenderSink::Create(&target);
    auto audio = AudioRenderSink::Create(&target);
    const uint8_t bytes[4] = {};

    FakeSample audioToVideo(bytes, 4, kMediaKindAudio);
    FakeSample videoToAudio(bytes, 4, kMediaKindVideo);
    FakeSample empty(bytes, 0, kMediaKindVideo);
    FakeSample noData(nullptr, 4, kMediaKindVideo);
    FakeSample otherKind(bytes, 4, 1);

    EXPECT_EQ(video->Push(&audioToVideo), ERR_SAMPLE_FAULT);
    EXPECT_EQ(audio->Push(&videoToAudio), ERR_SAMPLE_FAULT);
    EXPECT_EQ(video->Push(&empty), ERR_SAMPLE_FAULT);
    EXPECT_EQ(video->Push(&noData), ERR_SAMPLE_FAULT);
    EXPECT_EQ(video->Push(&otherKind), ERR_SAMPLE_FAULT);
    EXPECT_EQ(video->Push(nullptr), ERR_NULL_ARGUMENT);
    EXPECT_TRUE(target.deliveries.empty());

    // A failure inside the engine is kept on this side too.
    FakeSample good(bytes, 4, kMediaKindVideo);
    target.throwOnSample = true;
    EXPECT_EQ(video->Push(&good), ERR_SAMPLE_FAULT);
}

TEST(RenderSink, UnpackThrowsAPlainStandardException) {
    const uint8_t bytes[4] = {};
    FakeSample wrongKind(bytes, 4, kMediaKindAudio);
    try {
        UnpackSample(wrongKind, kMediaKindVideo);
        ADD_FAILURE() << "no exception";
    } catch (const std::exception& e) {
        EXPECT_EQ(typeid(e), typeid(std::exception));
    }
    FakeSample good(bytes, 4, kMediaKindAudio);
    good.start = 7;
    const DeliveredSample delivered = UnpackSample(good, kMediaKindAudio);
    EXPECT_EQ(delivered.data, bytes);
    EXPECT_EQ(delivered.startTime, 7);
}

TEST(RenderSink, EndOfStreamReachesTheEngineAndAlwaysSucceeds) {
    FakeTarget target;
    auto video = VideoRenderSink::Create(&target);
    auto audio = AudioRenderSink::Create(&target);
    EXPECT_EQ(video->EndOfStream(), kOk);
    EXPECT_EQ(audio->EndOfStream(), kOk);
    EXPECT_EQ(audio->EndOfStream(), kOk);
    EXPECT_EQ(target.videoEnds, 1);
    EXPECT_EQ(target.audioEnds, 2);
}

TEST(RenderSink, DisconnectedSinkRefusesSamples) {
    FakeTarget target;
    auto video = VideoRenderSink::Create(&target);
    auto audio = AudioRenderSink::Create(&target);
    video->Disconnect();
    audio->Disconnect();
    const uint8_t bytes[4] = {};
    FakeSample frame(bytes, 4, kMediaKindVideo);
    FakeSample block(bytes, 4, kMediaKindAudio);
    EXPECT_EQ(video->Push(&frame), ERR_SAMPLE_REFUSED);
    EXPECT_EQ(audio->Push(&block), ERR_SAMPLE_REFUSED);
    EXPECT_EQ(video->EndOfStream(), kOk);
    EXPECT_EQ(audio->EndOfStream(), kOk);
    EXPECT_TRUE(target.deliveries.empty());
    EXPECT_EQ(target.videoEnds + target.audioEnds, 0);
}

// ---------------------------------------------------------------------------------------------
// Loading the decoder module

constexpr char kMissingMessage[] = "can not find DecodeHost.dll for intel decode! \n";

size_t CountOf(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

TEST(LoadCodecHost, MissingModuleIsReportedAtEveryCall) {
    CodecHostLibrary library("libVexelAbsentDecodeHost.so");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(library.CreateHost());
    EXPECT_FALSE(library.CreateHost());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string(kMissingMessage) + kMissingMessage);
}

TEST(LoadCodecHost, ConcurrentFirstCallsAllFailCleanly) {
    CodecHostLibrary library("libVexelAbsentDecodeHost.so");
    constexpr int kThreads = 8;
    std::vector<std::thread> threads;
    std::vector<int> found(kThreads, -1);
    testing::internal::CaptureStdout();
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] { found[i] = library.CreateHost() ? 1 : 0; });
    }
    for (auto& t : threads) t.join();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(found, std::vector<int>(kThreads, 0));
    EXPECT_EQ(CountOf(out, kMissingMessage), static_cast<size_t>(kThreads));
}

TEST(LoadCodecHost, ModuleWithoutEntryPointGivesNothingSilently) {
    CodecHostLibrary library("libm.so.6");  // present on every system, no CreateCodecHost
    testing::internal::CaptureStdout();
    EXPECT_FALSE(library.CreateHost());
    EXPECT_FALSE(library.CreateHost());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(LoadCodecHost, ProcessWideLoaderReportsAMissingDecodeHost) {
    if (ModuleHandle(kDecodeHostFileName)) {
        GTEST_SKIP() << kDecodeHostFileName << " is on the search path";
    }
    testing::internal::CaptureStdout();
    EXPECT_FALSE(LoadCodecHost());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), kMissingMessage);
}

}  // namespace
}  // namespace vexel
