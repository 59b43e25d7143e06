#include "codec/render_sinks.h"

#include <exception>

#include "vexel/status.h"

namespace vexel {

namespace {

// A delivered sample as the sinks hand it on.
struct DeliveredSample {
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    int64_t startTime = 0;  // 100-ns ticks
    int64_t stopTime = 0;   // 100-ns ticks
};

// Reads the times of `sample`. Throws a std::exception without a message when its media kind is
// not `mediaKind`.
SampleInfo ReadInfo(IPushSample& sample, uint32_t mediaKind) {
    SampleInfo info = MakeSampleInfoRequest();
    sample.GetInfo(&info);
    if (info.mediaKind != mediaKind) throw std::exception();
    return info;
}

// Reads `sample` through GetBuffer, BufferAcquired and GetInfo. Throws a std::exception without a
// message when it holds no data or its media kind is not `mediaKind`.
DeliveredSample UnpackSample(IPushSample& sample, uint32_t mediaKind) {
    BufferDesc buffer{};
    sample.GetBuffer(&buffer);
    sample.BufferAcquired();
    const SampleInfo info = ReadInfo(sample, mediaKind);
    if (buffer.size == 0 || buffer.data == nullptr) throw std::exception();
    return {static_cast<const uint8_t*>(buffer.data), buffer.size, info.startTime, info.stopTime};
}

}  // namespace

int32_t RenderSink::QueryInterface(const GUID* id, void** out) {
    if (out == nullptr || id == nullptr) return ERR_NULL_ARGUMENT;
    if (*id != IID_PushStream) return ERR_NO_INTERFACE;
    *out = static_cast<Vexel::IPushStream*>(this);
    return kOk;
}

int32_t RenderSink::Notify() { return kOk; }

void RenderSink::Disconnect() { target_.store(nullptr, std::memory_order_release); }

int32_t RenderSink::PushAs(IPushSample* sample, uint32_t mediaKind, DeliverFn deliver) {
    if (sample == nullptr) return ERR_NULL_ARGUMENT;
    // The caller is the codec host's delivery thread, inside another module: a malformed sample
    // (thrown by UnpackSample) or a failure in the engine ends here as a status.
    try {
        const DeliveredSample delivered = UnpackSample(*sample, mediaKind);
        SampleTarget* engine = target();
        if (engine == nullptr) return ERR_SAMPLE_REFUSED;
        return (engine->*deliver)(delivered.data, delivered.size, delivered.startTime,
                                  delivered.stopTime);
    } catch (...) {
        return ERR_SAMPLE_FAULT;
    }
}

CountedRef<RenderSink> VideoRenderSink::Create(SampleTarget* target) {
    return CountedRef<RenderSink>(new VideoRenderSink(target));
}

int32_t VideoRenderSink::Push(IPushSample* sample) {
    SampleTarget* engine = target();
    if (sample == nullptr || engine == nullptr || !engine->TakesPictureSources())
        return PushAs(sample, kMediaKindVideo, &SampleTarget::OnVideoSample);
    // A picture that converts itself is kept as it is and converted when the engine draws it;
    // every other sample is read through its buffer.
    try {
        CountedRef<IPictureSource> picture;
        picture.QueryFrom(sample, IID_PictureSource);
        if (!picture) return PushAs(sample, kMediaKindVideo, &SampleTarget::OnVideoSample);
        const SampleInfo info = ReadInfo(*sample, kMediaKindVideo);
        return engine->OnVideoPicture(std::move(picture), info.startTime, info.stopTime);
    } catch (...) {
        return ERR_SAMPLE_FAULT;
    }
}

int32_t VideoRenderSink::EndOfStream() {
    if (SampleTarget* engine = target()) engine->OnVideoEndOfStream();
    return kOk;
}

CountedRef<RenderSink> AudioRenderSink::Create(SampleTarget* target) {
    return CountedRef<RenderSink>(new AudioRenderSink(target));
}

int32_t AudioRenderSink::Push(IPushSample* sample) {
    return PushAs(sample, kMediaKindAudio, &SampleTarget::OnAudioSample);
}

int32_t AudioRenderSink::EndOfStream() {
    // The sound's end goes on to the audio output; nothing from there may reach the host.
    try {
        if (SampleTarget* engine = target()) engine->OnAudioEndOfStream();
    } catch (...) {}
    return kOk;
}

}  // namespace vexel
