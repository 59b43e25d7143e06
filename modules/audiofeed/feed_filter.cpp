#include "feed_filter.h"

#include <algorithm>
#include <cstring>

namespace vexel::audiofeed {

namespace {

bool SameFormat(const WAVEFORMATEX& a, const WAVEFORMATEX& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
}

bool SameType(const MediaType& a, const MediaType& b) {
    return a.majorType == b.majorType && a.subType == b.subType && SameFormat(a.format, b.format);
}

}  // namespace

HRESULT FeedFilter::Create(const GUID* iid, void** out) {
    return CreateObject<FeedFilter>(iid, out);
}

HRESULT FeedFilter::QueryInterface(const GUID* iid, void** out) {
    if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
    if (*iid == IID_IUnknown || *iid == IID_IMediaFilter || *iid == IID_IBaseFilter) {
        return ShareInterface<IBaseFilter>(this, out);
    }
    if (*iid == IID_IPcmFeed) return ShareInterface<IPcmFeed>(this, out);
    return E_NOINTERFACE;
}

MediaType FeedFilter::OfferedType() const {
    return MediaType{MEDIATYPE_Audio, MEDIASUBTYPE_PCM, format_};
}

// ---------------------------------------------------------------------------------------------
// State

HRESULT FeedFilter::Stop() {
    std::lock_guard<std::mutex> guard(lock_);
    state_ = State_Stopped;
    stamps_.Restart();
    startTimeSet_ = false;
    return S_OK;
}

HRESULT FeedFilter::Pause() {
    std::lock_guard<std::mutex> guard(lock_);
    state_ = State_Paused;
    return S_OK;
}

HRESULT FeedFilter::Run() {
    std::lock_guard<std::mutex> guard(lock_);
    if (state_ == State_Paused && !startTimeSet_) stamps_.ExpectNewOrigin();
    startTimeSet_ = false;
    state_ = State_Running;
    return S_OK;
}

// ---------------------------------------------------------------------------------------------
// IPcmFeed

HRESULT FeedFilter::SetFormat(const WAVEFORMATEX* format) {
    if (format == nullptr) return E_POINTER;
    if (format->wFormatTag != WAVE_FORMAT_PCM || format->nChannels == 0 ||
        format->nSamplesPerSec == 0 || format->nBlockAlign == 0) {
        return E_INVALIDARG;
    }
    std::lock_guard<std::mutex> guard(lock_);
    if (peer_ && !SameFormat(*format, format_)) return GRAPH_E_ALREADY_CONNECTED;
    format_ = *format;
    hasFormat_ = true;
    return S_OK;
}

HRESULT FeedFilter::EndOfStream() {
    CountedRef<IPin> peer;
    {
        std::lock_guard<std::mutex> guard(lock_);
        peer = peer_;
    }
    return peer ? peer->EndOfStream() : GRAPH_E_NOT_CONNECTED;
}

HRESULT FeedFilter::SetStartTime(int64_t) {
    // Stamps count from the instant of the next run; the position itself needs no keeping.
    std::lock_guard<std::mutex> guard(lock_);
    stamps_.Restart();
    startTimeSet_ = true;
    return S_OK;
}

HRESULT FeedFilter::Deliver(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) {
    if (data == nullptr && size != 0) return E_POINTER;
    CountedRef<ISampleInput> input;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (state_ == State_Stopped || !input_) return S_FALSE;
        input = input_;
        stamps_.Map(start, stop);
    }
    // Not under the lock: the input may block until there is room, and the graph must be able to
    // stop (which releases it) meanwhile.
    return input->Receive(data, size, start, stop);
}

// ---------------------------------------------------------------------------------------------
// The output pin

HRESULT FeedFilter::Connect(IPin* receivePin, const MediaType* type) {
    if (receivePin == nullptr) return E_POINTER;
    MediaType offer;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (peer_) return GRAPH_E_ALREADY_CONNECTED;
        if (state_ != State_Stopped) return GRAPH_E_NOT_STOPPED;
        if (!hasFormat_) return GRAPH_E_NO_ACCEPTABLE_TYPES;
        offer = OfferedType();
    }
    if (type != nullptr && !SameType(*type, offer)) return GRAPH_E_TYPE_NOT_ACCEPTED;
    PIN_DIRECTION direction = PINDIR_OUTPUT;
    if (receivePin->QueryDirection(&direction) < 0 || direction != PINDIR_INPUT)
        return GRAPH_E_INVALID_DIRECTION;

    HRESULT hr = receivePin->ReceiveConnection(&pin_, &offer);
    if (hr == GRAPH_E_TYPE_NOT_ACCEPTED && type == nullptr) return GRAPH_E_NO_ACCEPTABLE_TYPES;
    if (hr < 0) return hr;
    CountedRef<ISampleInput> input;
    hr = receivePin->QueryInterface(&IID_ISampleInput, reinterpret_cast<void**>(input.put()));
    if (hr < 0 || !input) {
        receivePin->Disconnect();
        return E_NOINTERFACE;
    }
    std::lock_guard<std::mutex> guard(lock_);
    peer_ = CountedRef<IPin>(receivePin);
    input_ = std::move(input);
    return S_OK;
}

HRESULT FeedFilter::DisconnectOutput() {
    CountedRef<IPin> peer;  // released after the lock
    CountedRef<ISampleInput> input;
    std::lock_guard<std::mutex> guard(lock_);
    if (!peer_) return S_FALSE;
    if (state_ != State_Stopped) return GRAPH_E_NOT_STOPPED;
    peer = std::move(peer_);
    input = std::move(input_);
    return S_OK;
}

HRESULT FeedFilter::OutputPin::QueryInterface(const GUID* iid, void** out) {
    if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
    if (*iid == IID_IUnknown || *iid == IID_IPin) return ShareInterface<IPin>(this, out);
    return E_NOINTERFACE;
}

HRESULT FeedFilter::OutputPin::Connect(IPin* receivePin, const MediaType* type) {
    return owner_.Connect(receivePin, type);
}

HRESULT FeedFilter::OutputPin::ReceiveConnection(IPin*, const MediaType*) {
    return GRAPH_E_INVALID_DIRECTION;
}

HRESULT FeedFilter::OutputPin::Disconnect() { return owner_.DisconnectOutput(); }

HRESULT FeedFilter::OutputPin::ConnectedTo(IPin** pin) {
    std::lock_guard<std::mutex> guard(owner_.lock_);
    return AnswerPeer(owner_.peer_.get(), pin);
}

HRESULT FeedFilter::OutputPin::ConnectionMediaType(MediaType* type) {
    if (type == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(owner_.lock_);
    if (!owner_.peer_) return GRAPH_E_NOT_CONNECTED;
    *type = owner_.OfferedType();
    return S_OK;
}

HRESULT FeedFilter::OutputPin::QueryAccept(const MediaType* type) {
    if (type == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(owner_.lock_);
    return owner_.hasFormat_ && SameType(*type, owner_.OfferedType()) ? S_OK : S_FALSE;
}

HRESULT FeedFilter::OutputPin::GetMediaType(uint32_t index, MediaType* type) {
    if (type == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(owner_.lock_);
    if (index != 0 || !owner_.hasFormat_) return S_FALSE;
    *type = owner_.OfferedType();
    return S_OK;
}

HRESULT FeedFilter::OutputPin::EndOfStream() { return E_UNEXPECTED; }

}  // namespace vexel::audiofeed
