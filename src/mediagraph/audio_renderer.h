// AudioRenderer: the runtime's audio renderer filter (CLSID_AudioRenderer). Its one input pin takes
// PCM (8 or 16 bits, 1 to 8 channels) and places each block at its stream time, counted from the
// instant the filter runs; gaps play as silence. Pausing holds the position and keeps what is
// queued; stopping drops it at once and returns to stream time 0. About two seconds may wait; a
// Receive beyond that blocks until the sound plays on, and returns at once when the filter stops.
//
// The device (AudioDevice: SDL, or the silent fallback) is opened when the pin is connected, starts
// with the first run and then plays continuously, silence while paused or stopped, until the pin is
// disconnected or the filter goes away.
//
// Threads: any. `lock_` guards the state and the queue, and is the only lock the device's thread
// takes; `connectionLock_` serialises connecting and disconnecting and owns the device, and is
// never taken while holding `lock_`.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "audio/audio_device.h"
#include "audio/pcm_timeline.h"
#include "vexel/com_object.h"
#include "vexel/counted_ref.h"
#include "vexel/filter_parts.h"
#include "vexel/media_graph.h"

namespace vexel {

class AudioRenderer final : public OnePinFilter<IBasicAudio> {
public:
    AudioRenderer() = default;  // made through Create
    // A new renderer asked for `iid`.
    static HRESULT Create(const GUID* iid, void** out);
    // True for the PCM types the renderer plays.
    static bool Accepts(const MediaType& type);

    HRESULT QueryInterface(const GUID* iid, void** out) override;

    // IMediaFilter, IBaseFilter
    HRESULT Stop() override;
    HRESULT Pause() override;
    HRESULT Run() override;

    // IBasicAudio
    HRESULT put_Volume(int32_t volume) override;
    HRESULT get_Volume(int32_t* volume) override;

private:
    class InputPin final : public OwnedPin<PINDIR_INPUT>, public ISampleInput {
    public:
        explicit InputPin(AudioRenderer& owner) : OwnedPin(owner, u"In"), owner_(owner) {}
        HRESULT QueryInterface(const GUID* iid, void** out) override;
        uint32_t AddRef() override { return OwnedPin::AddRef(); }
        uint32_t Release() override { return OwnedPin::Release(); }

        HRESULT Connect(IPin* receivePin, const MediaType* type) override;
        HRESULT ReceiveConnection(IPin* connector, const MediaType* type) override;
        HRESULT Disconnect() override;
        HRESULT ConnectedTo(IPin** pin) override;
        HRESULT ConnectionMediaType(MediaType* type) override;
        HRESULT QueryAccept(const MediaType* type) override;
        HRESULT GetMediaType(uint32_t index, MediaType* type) override;
        HRESULT EndOfStream() override;
        HRESULT Receive(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) override;

    private:
        AudioRenderer& owner_;
    };

    ~AudioRenderer() override;

    HRESULT ReceiveConnection(IPin* connector, const MediaType* type);
    HRESULT DisconnectInput();
    HRESULT Receive(const uint8_t* data, uint32_t size, int64_t start);
    // The device's request for the next frames.
    void Pull(uint8_t* out, uint32_t frames, PerfClock::time_point firstFrameAt,
              const WAVEFORMATEX& format);

    IPin& Pin() override { return pin_; }

    InputPin pin_{*this};
    std::atomic<int32_t> volume_{0};

    std::mutex connectionLock_;  // connecting, disconnecting, device_
    std::unique_ptr<AudioDevice> device_;

    // Under lock_ (OnePinFilter's, with the state):
    std::condition_variable room_;  // the queue shrank or the filter stopped
    CountedRef<IPin> peer_;
    MediaType type_{};
    std::unique_ptr<PcmTimeline> timeline_;  // while connected
    size_t bound_ = 0;                       // bytes that may wait
    bool runStartPending_ = false;           // the next pull begins the stream at runAt_
    PerfClock::time_point runAt_;
};

}  // namespace vexel
