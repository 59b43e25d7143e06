// A codec host that decodes nothing, for what no real file provokes: a host that cannot be made, a
// reader that offers no status, a reader that stays busy. Its file has one video stream; its
// readers deliver nothing. The test picks the fault with FakeHost_SetFault and reads how often the
// readers were polled and run.
//
// Threads: any object may be called from any thread; the fault and the counters are atomic.
#include "fake_host.h"

#include <atomic>
#include <cstring>

#include "vexel/codec_host.h"
#include "vexel/com_object.h"

namespace {

using namespace vexel;

std::atomic<int> gFault{kFakeHostNoFault};
std::atomic<int64_t> gPolls{0}, gRuns{0};

// What every fake object shares: it offers no further interface, and its reserved slots and
// properties take anything. (A slot no listed interface declares is an unused plain function.)
template <class... Interfaces>
class Fake : public ComObject<Interfaces...> {
public:
    int32_t QueryInterface(const GUID*, void**) { return E_NOINTERFACE; }
    int32_t Reserved1() { return S_OK; }
    int32_t Reserved2() { return S_OK; }
    int32_t Reserved3() { return S_OK; }
    int32_t Reserved4() { return S_OK; }
    int32_t SetProperty(const PropertyHeader*) { return S_OK; }
};

class Description final : public Fake<MediaDescription> {
public:
    int32_t GetStreamCount(uint32_t* count) override {
        *count = 1;
        return S_OK;
    }
    int32_t GetStreamInfo(uint16_t, uint64_t*, StreamInfo* info, uint64_t*,
                          uint64_t* streamDuration, void*) override {
        std::memset(info, 0, sizeof *info);
        info->kind = kStreamKindVideo;
        info->width = 64;
        info->height = 32;
        info->frameRate = 25.0;
        info->duration = 1.0;
        if (streamDuration != nullptr) *streamDuration = 10'000'000;
        return S_OK;
    }
};

class Reader final : public Fake<MediaReader, PlaybackControl, PlaybackStatus> {
public:
    int32_t QueryInterface(const GUID* id, void** out) override {
        if (CheckQuery(id, out) != S_OK) return E_POINTER;
        if (*id == IID_PlaybackControl)
            return ShareInterface(static_cast<PlaybackControl*>(this), out);
        if (*id == IID_PlaybackStatus && gFault != kFakeHostNoStatus) {
            return ShareInterface(static_cast<PlaybackStatus*>(this), out);
        }
        return E_NOINTERFACE;
    }
    int32_t Open(const char*, MediaDescription** out) override {
        *out = NewObject<Description>();
        return S_OK;
    }
    int32_t SelectStream(uint32_t, MediaStream** out) override {
        *out = NewObject<Fake<MediaStream>>();
        return S_OK;
    }
    int32_t SetSink(Vexel::IPushStream*) override { return S_OK; }
    int32_t GetProperty(PropertyHeader* record) override {
        if (record->size < sizeof(MediaFormat) || record->key != KEY_MediaFormat) return E_FAIL;
        auto& video = reinterpret_cast<MediaFormat*>(record)->payload.video;
        video.width = 64;
        video.height = 32;
        video.pixelFormat = 11;  // 32-bit pixels, rows bottom-up
        video.frameRate = 25.0;
        return S_OK;
    }
    int32_t SetPositions(int64_t*, uint32_t, int64_t*, uint32_t) override { return S_OK; }
    int32_t Run() override {
        ++gRuns;
        return S_OK;
    }
    int32_t Pause() override { return S_OK; }
    int32_t Stop() override { return S_OK; }
    int32_t GetState(uint32_t* state) override {
        ++gPolls;
        *state = gFault == kFakeHostBusy ? 2 : 0;  // 2: running
        return S_OK;
    }
};

class Host final : public Fake<CodecHost> {
public:
    int32_t CreateReader(MediaReader** out) override {
        *out = NewObject<Reader>();
        return S_OK;
    }
};

}  // namespace

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_EXPORT int32_t CreateCodecHost(CodecHost** out) {
    *out = gFault == kFakeHostCannotBeMade ? nullptr : NewObject<Host>();
    return *out == nullptr ? E_FAIL : S_OK;
}

FAKE_EXPORT void FakeHost_SetFault(int fault) { gFault = fault; }
FAKE_EXPORT int64_t FakeHost_Polls() { return gPolls; }
FAKE_EXPORT int64_t FakeHost_Runs() { return gRuns; }
