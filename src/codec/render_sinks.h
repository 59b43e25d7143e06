// The push sinks that a codec host delivers decoded samples into: VideoRenderSink and
// AudioRenderSink, both implementing Vexel::IPushStream through RenderSink. Each unpacks a
// delivered sample into data, byte count and start/stop time, checks its media kind and hands it to
// its SampleTarget (the render engine); the video sink hands on the sample's picture source instead
// where the sample offers one and the target takes it.
//
// Threads: Push, Notify and EndOfStream run on the codec host's delivery threads (one per stream).
// QueryInterface, AddRef and Release may come from any thread. Disconnect runs on the thread that
// destroys the engine, after the host has stopped delivering.
#pragma once

#include <atomic>
#include <cstdint>

#include "codec/sample_target.h"
#include "vexel/codec_host.h"
#include "vexel/com_object.h"
#include "vexel/counted_ref.h"

namespace vexel {

// Counted by ComObject: made with no reference, destroyed with its last one.
class RenderSink : public ComObject<Vexel::IPushStream> {
public:
    // Answers IID_PushStream only, with this sink's IPushStream pointer and without adding a
    // reference (the engine and the host count references themselves).
    int32_t QueryInterface(const GUID* id, void** out) override;

    int32_t Notify() override;  // accepted and ignored

    // Forgets the target: later samples are refused and end of stream is ignored. The engine calls
    // it before it goes away, in case the host still holds a reference to the sink.
    void Disconnect();

protected:
    explicit RenderSink(SampleTarget* target) : target_(target) {}
    ~RenderSink() override = default;

    using DeliverFn = int32_t (SampleTarget::*)(const uint8_t*, uint32_t, int64_t, int64_t);
    int32_t PushAs(IPushSample* sample, uint32_t mediaKind, DeliverFn deliver);
    SampleTarget* target() const { return target_.load(std::memory_order_acquire); }

private:
    std::atomic<SampleTarget*> target_;
};

class VideoRenderSink final : public RenderSink {
public:
    // A new sink holding one reference, handing video samples to `target`.
    static CountedRef<RenderSink> Create(SampleTarget* target);

    // Samples of media kind 0 go to OnVideoPicture when the target takes picture sources and the
    // sample offers one, else to OnVideoSample; the target's status is returned.
    int32_t Push(IPushSample* sample) override;
    int32_t EndOfStream() override;  // OnVideoEndOfStream; always 0

private:
    using RenderSink::RenderSink;
    ~VideoRenderSink() override = default;
};

class AudioRenderSink final : public RenderSink {
public:
    // A new sink holding one reference, handing audio blocks to `target`.
    static CountedRef<RenderSink> Create(SampleTarget* target);

    // Samples of media kind 2 go to OnAudioSample, whose status is returned.
    int32_t Push(IPushSample* sample) override;
    int32_t EndOfStream() override;  // OnAudioEndOfStream; always 0

private:
    using RenderSink::RenderSink;
    ~AudioRenderSink() override = default;
};

}  // namespace vexel
