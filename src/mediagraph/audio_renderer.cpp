#include "mediagraph/audio_renderer.h"

#include <algorithm>
#include <cstring>

#include "audio/pcm_gain.h"

namespace vexel {

namespace {

constexpr uint32_t kQueueSeconds = 2;

}  // namespace

HRESULT AudioRenderer::Create(const GUID* iid, void** out) {
    return CreateObject<AudioRenderer>(iid, out);
}

bool AudioRenderer::Accepts(const MediaType& type) {
    const WAVEFORMATEX& f = type.format;
    return type.majorType == MEDIATYPE_Audio && type.subType == MEDIASUBTYPE_PCM &&
           f.wFormatTag == WAVE_FORMAT_PCM && f.nChannels >= 1 && f.nChannels <= 8 &&
           (f.wBitsPerSample == 8 || f.wBitsPerSample == 16) && f.nSamplesPerSec >= 1000 &&
           f.nSamplesPerSec <= 384000 && f.nBlockAlign == f.nChannels * (f.wBitsPerSample / 8) &&
           f.nAvgBytesPerSec == uint32_t{f.nBlockAlign} * f.nSamplesPerSec;
}

AudioRenderer::~AudioRenderer() {
    // The device's thread calls Pull until it is closed; everything it touches is still alive here.
    device_.reset();
}

HRESULT AudioRenderer::QueryInterface(const GUID* iid, void** out) {
    if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
    if (*iid == IID_IUnknown || *iid == IID_IMediaFilter || *iid == IID_IBaseFilter) {
        return ShareInterface<IBaseFilter>(this, out);
    }
    if (*iid == IID_IBasicAudio) return ShareInterface<IBasicAudio>(this, out);
    return E_NOINTERFACE;
}

// ---------------------------------------------------------------------------------------------
// State

HRESULT AudioRenderer::Stop() {
    {
        std::lock_guard<std::mutex> guard(lock_);
        state_ = State_Stopped;
        runStartPending_ = false;
        if (timeline_) timeline_->Clear();
    }
    room_.notify_all();  // a waiting Receive returns at once
    return S_OK;
}

HRESULT AudioRenderer::Pause() {
    std::lock_guard<std::mutex> guard(lock_);
    state_ = State_Paused;
    runStartPending_ = false;
    return S_OK;
}

HRESULT AudioRenderer::Run() {
    const PerfClock::time_point now = PerfClock::now();
    {
        std::lock_guard<std::mutex> guard(connectionLock_);
        if (device_) device_->Start(now);  // the first run starts the device's clock here
    }
    std::lock_guard<std::mutex> guard(lock_);
    if (state_ != State_Running) {
        state_ = State_Running;
        runAt_ = now;
        runStartPending_ = true;
    }
    return S_OK;
}

HRESULT AudioRenderer::put_Volume(int32_t volume) {
    if (volume < kVolumeSilent || volume > kVolumeFull) return E_INVALIDARG;
    volume_.store(volume);
    return S_OK;
}

HRESULT AudioRenderer::get_Volume(int32_t* volume) {
    if (volume == nullptr) return E_POINTER;
    *volume = volume_.load();
    return S_OK;
}

// ---------------------------------------------------------------------------------------------
// Connection and data

HRESULT AudioRenderer::ReceiveConnection(IPin* connector, const MediaType* type) {
    if (connector == nullptr || type == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> connection(connectionLock_);
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (timeline_) return GRAPH_E_ALREADY_CONNECTED;
        if (state_ != State_Stopped) return GRAPH_E_NOT_STOPPED;
    }
    PIN_DIRECTION direction = PINDIR_INPUT;
    if (connector->QueryDirection(&direction) < 0 || direction != PINDIR_OUTPUT) {
        return GRAPH_E_INVALID_DIRECTION;
    }
    if (!Accepts(*type)) return GRAPH_E_TYPE_NOT_ACCEPTED;
    try {
        auto timeline = std::make_unique<PcmTimeline>(type->format);
        device_ = AudioDevice::Open(
            type->format,
            [this, format = type->format](uint8_t* out, uint32_t frames, PerfClock::time_point at) {
                Pull(out, frames, at, format);
            });
        std::lock_guard<std::mutex> guard(lock_);
        peer_ = CountedRef<IPin>(connector);
        type_ = *type;
        timeline_ = std::move(timeline);
        bound_ = size_t{type->format.nAvgBytesPerSec} * kQueueSeconds;
    } catch (...) {
        device_.reset();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT AudioRenderer::DisconnectInput() {
    CountedRef<IPin> peer;  // released after the locks
    std::lock_guard<std::mutex> connection(connectionLock_);
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (!timeline_) return S_FALSE;
        if (state_ != State_Stopped) return GRAPH_E_NOT_STOPPED;
        peer = std::move(peer_);
        timeline_.reset();
        type_ = MediaType{};
    }
    device_.reset();  // not under lock_: the device's last pull takes it
    return S_OK;
}

HRESULT AudioRenderer::Receive(const uint8_t* data, uint32_t size, int64_t start) {
    if (data == nullptr && size != 0) return E_POINTER;
    std::unique_lock<std::mutex> lock(lock_);
    if (!timeline_) return GRAPH_E_NOT_CONNECTED;
    room_.wait(lock, [&] {
        return state_ == State_Stopped || !timeline_ || timeline_->QueuedBytes() == 0 ||
               timeline_->QueuedBytes() + size <= bound_;
    });
    if (state_ == State_Stopped || !timeline_) return GRAPH_E_WRONG_STATE;
    try {
        timeline_->Add(data, size, start);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void AudioRenderer::Pull(uint8_t* out, uint32_t frames, PerfClock::time_point firstFrameAt,
                         const WAVEFORMATEX& format) {
    const uint32_t frameBytes = format.nBlockAlign;
    uint32_t skip = frames;  // frames of silence before the stream's own
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (timeline_ && state_ == State_Running) {
            skip = 0;
            if (runStartPending_) {
                // The stream begins at the instant of Run, which may fall inside this request.
                runStartPending_ = false;
                const double early = std::chrono::duration<double>(runAt_ - firstFrameAt).count();
                if (early > 0)
                    skip = static_cast<uint32_t>(
                        std::min<double>(frames, early * format.nSamplesPerSec));
            }
            timeline_->Read(out + size_t{skip} * frameBytes, frames - skip);
        }
    }
    std::memset(out, format.wBitsPerSample == 8 ? 0x80 : 0x00, size_t{skip} * frameBytes);
    if (skip < frames) room_.notify_all();
    ApplyVolume(out, size_t{frames} * frameBytes, format.wBitsPerSample, volume_.load());
}

// ---------------------------------------------------------------------------------------------
// The input pin

HRESULT AudioRenderer::InputPin::QueryInterface(const GUID* iid, void** out) {
    if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
    if (*iid == IID_IUnknown || *iid == IID_IPin) return ShareInterface<IPin>(this, out);
    if (*iid == IID_ISampleInput) return ShareInterface<ISampleInput>(this, out);
    return E_NOINTERFACE;
}

HRESULT AudioRenderer::InputPin::Connect(IPin*, const MediaType*) {
    return GRAPH_E_INVALID_DIRECTION;
}

HRESULT AudioRenderer::InputPin::ReceiveConnection(IPin* connector, const MediaType* type) {
    return owner_.ReceiveConnection(connector, type);
}

HRESULT AudioRenderer::InputPin::Disconnect() { return owner_.DisconnectInput(); }

HRESULT AudioRenderer::InputPin::ConnectedTo(IPin** pin) {
    std::lock_guard<std::mutex> guard(owner_.lock_);
    return AnswerPeer(owner_.peer_.get(), pin);
}

HRESULT AudioRenderer::InputPin::ConnectionMediaType(MediaType* type) {
    if (type == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(owner_.lock_);
    if (!owner_.timeline_) return GRAPH_E_NOT_CONNECTED;
    *type = owner_.type_;
    return S_OK;
}

HRESULT AudioRenderer::InputPin::QueryAccept(const MediaType* type) {
    if (type == nullptr) return E_POINTER;
    return Accepts(*type) ? S_OK : S_FALSE;
}

HRESULT AudioRenderer::InputPin::GetMediaType(uint32_t, MediaType* type) {
    if (type == nullptr) return E_POINTER;
    return S_FALSE;  // the renderer takes what the output pin offers
}

HRESULT AudioRenderer::InputPin::EndOfStream() {
    std::lock_guard<std::mutex> guard(owner_.lock_);
    return owner_.state_ == State_Stopped ? GRAPH_E_WRONG_STATE : S_OK;
}

HRESULT AudioRenderer::InputPin::Receive(const uint8_t* data, uint32_t size, int64_t start,
                                         int64_t) {
    return owner_.Receive(data, size, start);
}

}  // namespace vexel
