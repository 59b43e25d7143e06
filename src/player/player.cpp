#include "player/player.h"

#include <chrono>
#include <cmath>
#include <cstring>

#include "codec/load_codec_host.h"
#include "vexel/status.h"
#include "platform/sleep.h"

namespace vexel {

namespace {

constexpr double kTicksPerSecond = 10'000'000.0;
constexpr int32_t kOpenFailed = -1;

// Seconds to ticks; durations that are negative, not a number or beyond 64 bits count as unknown.
uint64_t SecondsToTicks(double seconds) {
    const double ticks = seconds * kTicksPerSecond;
    if (!(ticks >= 0.0) || ticks >= 18446744073709551615.0) return 0;
    return static_cast<uint64_t>(ticks);
}

}  // namespace

Player::Player() {
    commandThread_.Start([this] { CommandThreadProc(); }, "vexel-command");
}

Player::~Player() {
    {
        std::lock_guard<std::mutex> guard(wakeLock_);
        stopThread_.store(true);
    }
    wake_.notify_all();
    commandThread_.Join();
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        CloseLocked();
        engine_.reset();
    }
    seekRequests_.clear();
    audioControl_.reset();
    videoControl_.reset();
}

// ---------------------------------------------------------------------------------------------
// Opening a file

int32_t Player::Open(const char* path, uint64_t start, uint64_t end, uint32_t fisheyeMode) {
    ClearSeekRequests();
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    // Replacing an engine whose threads run is not allowed: close what is open first.
    if (state_.load() != PlayerState::Closed) CloseLocked();

    CountedRef<MediaReader> reader;
    if (OpenVideoStream(path, reader) != kOk) return kOpenFailed;

    CountedRef<PlaybackControl> control;
    control.QueryFrom(reader.get(), IID_PlaybackControl);
    if (!control) return kOpenFailed;  // a reader that cannot be driven cannot be played
    videoControl_ = std::move(control);

    duration_ = SecondsToTicks(videoInfo_.duration);
    rangeEnd_ = (end != 0 && end <= duration_) ? end : duration_;
    rangeStart_ = (start <= duration_ && start <= rangeEnd_) ? start : 0;
    int64_t current = static_cast<int64_t>(rangeStart_), stop = static_cast<int64_t>(rangeEnd_);
    videoControl_->SetPositions(&current, 0, &stop, 0);
    engine_->SetTimeRange(rangeStart_, rangeEnd_);
    engine_->SetFisheyeMode(fisheyeMode);
    reader.reset();  // the control keeps the reader alive

    if (CountedRef<MediaReader> audioReader = OpenAudioStream(path)) {
        CountedRef<PlaybackControl> audio;
        audio.QueryFrom(audioReader.get(), IID_PlaybackControl);
        if (audio) {
            audioControl_ = std::move(audio);
            current = static_cast<int64_t>(rangeStart_);
            stop = static_cast<int64_t>(rangeEnd_);
            audioControl_->SetPositions(&current, 0, &stop, 0);
        }
    }
    state_.store(PlayerState::Stopped);
    return kOk;
}

int32_t Player::OpenVideoStream(const char* path, CountedRef<MediaReader>& readerOut) {
    CountedRef<CodecHost> host = LoadCodecHost();
    if (!host) return kOpenFailed;
    CountedRef<MediaReader> reader;
    host->CreateReader(reader.put());
    if (!reader) return kOpenFailed;

    CountedRef<MediaDescription> description;
    int32_t status = reader->Open(path, description.put());
    if (status != kOk) return status;
    if (!description) return kOpenFailed;

    uint32_t count = 0;
    description->GetStreamCount(&count);
    bool chosen = false;
    uint32_t index = 0;
    for (; index < count && index <= UINT16_MAX; ++index) {
        uint64_t first = 0, second = 0, streamDuration = 0;
        StreamInfo info{};
        description->GetStreamInfo(static_cast<uint16_t>(index), &first, &info, &second, &streamDuration, nullptr);
        if (info.kind == kStreamKindVideo) {
            videoInfo_ = info;
            if (videoInfo_.duration == 0.0) videoInfo_.duration = static_cast<double>(streamDuration) / kTicksPerSecond;
            chosen = true;
            break;
        }
    }
    if (!chosen) return ERR_NO_STREAM;

    const DecodeModeProperty decodeMode = MakeDecodeModeProperty(decodeMode_);
    reader->SetProperty(&decodeMode.header);
    CountedRef<MediaStream> stream;
    if (reader->SelectStream(index, stream.put()) != kOk) return ERR_NO_STREAM;
    if (stream) {
        const StreamSetupProperty setup = MakeStreamSetupProperty();
        stream->SetProperty(&setup.header);
    }

    engine_.reset();
    engine_ = std::make_unique<RenderEngine>();
    engine_->SetVideoStreamInfo(videoInfo_);
    MediaFormat format = MakeMediaFormatRequest();
    reader->GetProperty(&format.header);
    frameRate_ = format.payload.video.frameRate;
    engine_->SetVideoFormat(format.payload);
    reader->SetSink(engine_->VideoSink());
    readerOut = std::move(reader);
    return kOk;
}

CountedRef<MediaReader> Player::OpenAudioStream(const char* path) {
    CountedRef<CodecHost> host = LoadCodecHost();
    if (!host) return nullptr;
    CountedRef<MediaReader> reader;
    host->CreateReader(reader.put());
    if (!reader) return nullptr;
    CountedRef<MediaDescription> description;
    reader->Open(path, description.put());
    if (!description) return nullptr;

    uint32_t count = 0;
    description->GetStreamCount(&count);
    for (uint32_t index = 0; index < count && index <= UINT16_MAX; ++index) {
        uint64_t first = 0, second = 0, streamDuration = 0;
        StreamInfo info{};
        description->GetStreamInfo(static_cast<uint16_t>(index), &first, &info, &second, &streamDuration, nullptr);
        if (info.kind != kStreamKindAudio) continue;

        std::memcpy(audioInfo_, &info, kAudioStreamInfoBytes);
        engine_->SetAudioStreamInfo(audioInfo_);
        CountedRef<MediaStream> stream;
        reader->SelectStream(index, stream.put());
        if (!stream) return nullptr;
        MediaFormat format = MakeMediaFormatRequest();
        reader->GetProperty(&format.header);
        engine_->SetAudioFormat(format.payload);
        reader->SetSink(engine_->AudioSink());
        return reader;
    }
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Playback control

int32_t Player::Play(int64_t time) {
    if (seekRequestCount_.load() > 0) ClearSeekRequests();  // pending seeks are dropped, not served
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    return PlayLocked(time);
}

int32_t Player::PlayLocked(int64_t time) {
    if (state_.load() == PlayerState::Closed || !engine_ || !videoControl_) return ERR_WRONG_STATE;
    if (state_.load() == PlayerState::Seeking) StopLocked();

    const int64_t mapped = engine_->MapPlayTime(time);
    if (state_.load() == PlayerState::Stopped) {
        if (!WaitForVideoReader()) return ERR_WRONG_STATE;
        int64_t current = mapped, stop = static_cast<int64_t>(rangeEnd_);
        videoControl_->SetPositions(&current, 0, &stop, 0);
        if (audioControl_) {
            current = mapped;
            stop = static_cast<int64_t>(rangeEnd_);
            audioControl_->SetPositions(&current, 0, &stop, 0);
        }
        engine_->Start(time);
    } else if (state_.load() == PlayerState::Paused) {
        engine_->Start(-1);  // resume where the pause left off
    }
    const int32_t status = videoControl_->Run();
    if (audioControl_) audioControl_->Run();
    if (Succeeded(status)) state_.store(PlayerState::Playing);
    return status;
}

int32_t Player::Pause() {
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    if (state_.load() != PlayerState::Playing) return ERR_WRONG_STATE;
    const int32_t status = engine_->Pause();
    videoControl_->Pause();
    if (audioControl_) audioControl_->Pause();
    if (Succeeded(status)) state_.store(PlayerState::Paused);
    return status;
}

int32_t Player::Stop() {
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    return StopLocked();
}

int32_t Player::StopLocked() {
    if (state_.load() == PlayerState::Closed || !engine_) return ERR_WRONG_STATE;
    // Only a paused reader is told to stop; a running one stops on the refusals of the stopped
    // engine's sink. The engine refuses first, so a reader whose Stop waits for its delivery
    // thread does not wait for ever on a thread blocked in a full queue.
    engine_->BeginStop();
    if (state_.load() == PlayerState::Paused && videoControl_) videoControl_->Stop();
    if (audioControl_) audioControl_->Stop();
    DropCurrentSamples();
    const int32_t status = engine_->Stop();
    if (Succeeded(status)) state_.store(PlayerState::Stopped);
    return status;
}

int32_t Player::ClearSeekRequests() {
    std::lock_guard<std::mutex> guard(lock_);
    seekRequests_.clear();
    seekRequestCount_.store(0);
    return kOk;
}

int32_t Player::Close() {
    ClearSeekRequests();
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    return CloseLocked();
}

int32_t Player::CloseLocked() {
    if (state_.load() == PlayerState::Closed) return ERR_WRONG_STATE;
    if (state_.load() != PlayerState::Stopped) StopLocked();
    int32_t result = ERR_WRONG_STATE;
    if (state_.load() == PlayerState::Stopped) {
        videoControl_.reset();
        audioControl_.reset();
        result = kOk;
    }
    state_.store(PlayerState::Closed);
    return result;
}

int32_t Player::Seek(int64_t time) {
    std::lock_guard<std::mutex> guard(lock_);
    seekRequests_.push_back(time);
    seekRequestCount_.store(seekRequests_.size());
    return kOk;
}

void Player::CommandThreadProc() {
    while (!stopThread_.load()) {
        if (state_.load() != PlayerState::Seeking && seekRequestCount_.load() > 0) {
            std::lock_guard<std::mutex> guard(lock_);
            if (!seekRequests_.empty()) {
                const int64_t newest = seekRequests_.back();  // older requests are dropped unseen
                seekRequests_.clear();
                seekRequestCount_.store(0);
                SeekNow(newest);
            }
        }
        std::unique_lock<std::mutex> wait(wakeLock_);
        wake_.wait_for(wait, std::chrono::milliseconds(5), [this] { return stopThread_.load(); });
    }
}

int32_t Player::SeekNow(int64_t time) {
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    if (state_.load() == PlayerState::Closed || !engine_ || !videoControl_) return ERR_WRONG_STATE;
    StopLocked();
    if (!WaitForVideoReader()) return ERR_WRONG_STATE;

    // Decode only the span of one frame around the target.
    const int64_t mapped = engine_->MapPlayTime(time);
    const double frameRate = frameRate_ > 0.0 && std::isfinite(frameRate_) ? frameRate_ : 30.0;
    const uint64_t half = static_cast<uint64_t>(kTicksPerSecond / frameRate * 0.5);
    const uint64_t target = mapped > 0 ? static_cast<uint64_t>(mapped) : 0;
    int64_t start = static_cast<int64_t>(target > half ? target - half : 0);
    int64_t stop = static_cast<int64_t>(target + half);
    videoControl_->SetPositions(&start, 0, &stop, 0);
    if (audioControl_) {
        int64_t audioStart = start, audioStop = stop;
        audioControl_->SetPositions(&audioStart, 0, &audioStop, 0);
    }
    DropCurrentSamples();
    engine_->StartSeek(mapped);
    const int32_t status = videoControl_->Run();  // the audio reader stays positioned
    if (Succeeded(status)) state_.store(PlayerState::Seeking);
    return status;
}

bool Player::WaitForVideoReader() {
    CountedRef<PlaybackStatus> status;
    status.QueryFrom(videoControl_.get(), IID_PlaybackStatus);
    if (!status) return true;
    for (;;) {
        uint32_t code = 1;
        status->GetState(&code);
        if (code == 0 || code == 3) return true;
        if (stopThread_.load()) return false;
        Sleep(10);
    }
}

void Player::DropCurrentSamples() {
    ReleaseInlayBuffer(engine_->TakeCurrentViewSample());
    ReleaseInlayBuffer(engine_->TakeCurrentPreSample());
}

// ---------------------------------------------------------------------------------------------
// Queries and settings

void Player::GetRange(uint64_t* start, uint64_t* end) const {
    if (start != nullptr) *start = rangeStart_;
    if (end != nullptr) *end = rangeEnd_;
}

int64_t Player::GetCurrentPlayTime() const { return engine_ ? engine_->GetCurrentPlayTime() : 0; }

InlayBuffer* Player::GetCurrentPreSample() {
    std::lock_guard<std::mutex> guard(lock_);
    return engine_ ? engine_->TakeCurrentPreSample() : nullptr;
}

InlayBuffer* Player::GetCurrentViewSample() {
    std::lock_guard<std::mutex> guard(lock_);
    return engine_ ? engine_->TakeCurrentViewSample() : nullptr;
}

void Player::SetViewDim(uint32_t width, uint32_t height) {
    if (engine_) engine_->SetViewDim(width, height);
}

int32_t Player::SetVolume(int32_t volume) {
    volume_ = volume;
    if (engine_) engine_->SetVolume(volume);
    return kOk;
}

int32_t Player::Mute(bool mute) {
    muted_ = mute ? 1 : 0;
    if (engine_) engine_->SetVolume(mute ? -10000 : volume_);
    return kOk;
}

void Player::GetView(const InlayBuffer* sample, uint8_t* destination) {
    if (!engine_ || state_.load() == PlayerState::Playing) return;
    RenderSampleView(sample, destination, engine_->ViewWidth(), engine_->ViewHeight());
}

}  // namespace vexel
