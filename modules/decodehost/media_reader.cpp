#include "media_reader.h"

#include <algorithm>
#include <cstring>

namespace vexel::decodehost {

namespace {

bool IsRecord(const PropertyHeader* record, const GUID& key, size_t size) {
    return record != nullptr && record->key == key && record->size >= size;
}

}  // namespace

Reader::~Reader() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        quit_.store(true);
        span_.fetch_add(1);
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
    if (sink_ != nullptr) sink_->Release();
}

bool Reader::Busy() const {
    const uint32_t state = state_.load();
    return spanActive_ || state == kRunning || state == kPaused || state == kStopping;
}

int32_t Reader::QueryInterface(const GUID* id, void** out) {
    if (id == nullptr || out == nullptr) return E_INVALIDARG;
    if (*id == IID_PlaybackControl) return ShareInterface(static_cast<PlaybackControl*>(this), out);
    if (*id == IID_PlaybackStatus) return ShareInterface(static_cast<PlaybackStatus*>(this), out);
    return E_NOINTERFACE;
}

int32_t Reader::Open(const char* utf8Path, MediaDescription** out) {
    if (out == nullptr) return E_INVALIDARG;
    *out = nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    if (Busy()) return E_NOT_READY;
    watched_.store(span_.load());  // Stop now interrupts the open
    int error = 0;
    std::unique_ptr<MediaFile> file = MediaFile::Open(
        utf8Path, [this] { return Interrupted(); }, &error);
    if (!file) return E_FAIL;
    *out = NewObject<Description>(file->streams());
    video_.reset();
    audio_.reset();
    decoder_.reset();
    file_ = std::move(file);
    state_.store(kIdle);
    return S_OK;
}

int32_t Reader::SelectStream(uint32_t index, MediaStream** out) {
    if (out != nullptr) *out = nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    if (!file_ || Busy()) return E_NOT_READY;
    if (index >= file_->streams().size()) return E_INVALIDARG;
    const StreamInfo& info = file_->streams()[index].info;
    if (info.kind != kStreamKindVideo && info.kind != kStreamKindAudio) return E_INVALIDARG;

    decoder_.reset();
    video_.reset();
    audio_.reset();
    auto decoder = StreamDecoder::Open(*file_, static_cast<int>(index));
    if (!decoder) return E_FAIL;
    const AVCodecContext* codec = decoder->codec();
    if (info.kind == kStreamKindVideo) {
        if (codec->width <= 0 || codec->height <= 0) return E_FAIL;
        video_ = std::make_unique<VideoConverter>(codec->width, codec->height);
    } else {
        if (codec->ch_layout.nb_channels <= 0 || codec->sample_rate <= 0) return E_FAIL;
        audio_ = std::make_unique<AudioConverter>(codec->ch_layout.nb_channels, codec->sample_rate);
    }
    decoder_ = std::move(decoder);
    const uint64_t duration = file_->streams()[index].durationTicks;
    end_ = duration > 0 ? static_cast<int64_t>(duration) : kMaxMediaTicks;
    state_.store(kIdle);
    current_ = 0;
    stop_ = 0;
    positionsPending_ = true;
    if (out != nullptr) *out = NewObject<SelectedStream>();
    return S_OK;
}

int32_t Reader::SetSink(Vexel::IPushStream* sink) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (spanActive_) return E_NOT_READY;
    if (sink != nullptr) sink->AddRef();
    if (sink_ != nullptr) sink_->Release();
    sink_ = sink;
    return S_OK;
}

int32_t Reader::GetProperty(PropertyHeader* record) {
    if (record == nullptr) return E_INVALIDARG;
    if (!IsRecord(record, KEY_MediaFormat, sizeof(MediaFormat))) return E_NOT_FOUND;
    std::lock_guard<std::mutex> lock(mutex_);
    if (!decoder_) return E_NOT_READY;

    auto* format = reinterpret_cast<MediaFormat*>(record);
    std::memset(&format->payload, 0, sizeof format->payload);
    if (video_) {
        VideoFormatPayload& video = format->payload.video;
        video.width = static_cast<uint32_t>(video_->width());
        video.height = static_cast<uint32_t>(video_->height());
        video.pixelFormat = kFormatBgra32;
        video.frameRate = decoder_->frameRate();
        // The frame interval in ticks, carried along for whoever wants it.
        video.formatExtra = static_cast<uint64_t>(decoder_->frameInterval());
    } else if (audio_) {
        AudioFormatPayload& audio = format->payload.audio;
        audio.channels = static_cast<uint32_t>(audio_->channels());
        audio.samplesPerSecond = static_cast<uint32_t>(audio_->rate());
        audio.bitsPerSample = kPcmBits;
    }
    return S_OK;
}

int32_t Reader::SetProperty(const PropertyHeader* record) {
    if (record == nullptr) return E_INVALIDARG;
    // The decode mode asks for nothing this host does differently.
    return IsRecord(record, KEY_DecodeMode, sizeof(DecodeModeProperty)) ? S_OK : E_NOT_FOUND;
}

int32_t Reader::SetPositions(int64_t* current, uint32_t, int64_t* stop, uint32_t) {
    std::lock_guard<std::mutex> lock(mutex_);
    // Positions outside the stream are brought onto it before any arithmetic: the start into
    // 0..end, a stop past the end to the end (0 or less still means the end).
    if (current != nullptr) current_ = std::clamp<int64_t>(*current, 0, end_);
    if (stop != nullptr) stop_ = std::clamp<int64_t>(*stop, 0, end_);
    positionsPending_ = true;
    return S_OK;
}

int32_t Reader::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!decoder_ || sink_ == nullptr) return E_NOT_READY;
    const uint32_t state = state_.load();
    if (state == kPaused) {
        state_.store(kRunning);
    } else if (state != kRunning) {
        if (!positionsPending_) return S_OK;  // the span was delivered; nothing new to run
        positionsPending_ = false;
        next_ = {span_.fetch_add(1) + 1, current_, stop_};
        state_.store(kRunning);
        if (!thread_.joinable()) {
            try {
                thread_ = std::thread([this] { DeliveryLoop(); });
            } catch (const std::system_error&) {
                state_.store(kIdle);
                positionsPending_ = true;
                return E_FAIL;
            }
        }
    }
    lock.unlock();
    wake_.notify_all();
    return S_OK;
}

int32_t Reader::Pause() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_.load() == kRunning) state_.store(kPaused);
    return S_OK;
}

int32_t Reader::Stop() {
    // Abandons the span under way, if any, and interrupts a blocked open or read: before the
    // lock, which an open holds.
    span_.fetch_add(1);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        positionsPending_ = true;
        state_.store(inCall_ ? kStopping : kIdle);
    }
    wake_.notify_all();
    return S_OK;
}

int32_t Reader::GetState(uint32_t* state) {
    if (state == nullptr) return E_INVALIDARG;
    *state = state_.load();
    return S_OK;
}

// ---------------------------------------------------------------------------------------------

int32_t Description::QueryInterface(const GUID* id, void** out) {
    return id == nullptr || out == nullptr ? E_INVALIDARG : E_NOINTERFACE;
}

int32_t Description::GetStreamCount(uint32_t* count) {
    if (count == nullptr) return E_INVALIDARG;
    *count = static_cast<uint32_t>(streams_.size());
    return S_OK;
}

int32_t Description::GetStreamInfo(uint16_t index, uint64_t*, StreamInfo* info, uint64_t*,
                                   uint64_t* streamDuration, void*) {
    if (index >= streams_.size()) return E_INVALIDARG;
    if (info != nullptr) *info = streams_[index].info;
    if (streamDuration != nullptr) *streamDuration = streams_[index].durationTicks;
    return S_OK;
}

int32_t SelectedStream::QueryInterface(const GUID* id, void** out) {
    return id == nullptr || out == nullptr ? E_INVALIDARG : E_NOINTERFACE;
}

int32_t SelectedStream::SetProperty(const PropertyHeader* record) {
    if (record == nullptr) return E_INVALIDARG;
    // The stream setup values ask for nothing this host does differently.
    return IsRecord(record, KEY_StreamSetup, sizeof(StreamSetupProperty)) ? S_OK : E_NOT_FOUND;
}

}  // namespace vexel::decodehost
