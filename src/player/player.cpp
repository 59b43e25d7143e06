#include "player/player.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

#include "codec/load_codec_host.h"
#include "samples/pixel_buffers.h"
#include "platform/sleep.h"
#include "vexel/status.h"
#include "vexel/tick_math.h"

namespace vexel {

namespace {

constexpr int32_t kOpenFailed = -1;

// Seconds to ticks; durations that are negative, not a number or beyond 63 bits count as unknown.
uint64_t SecondsToTicks(double seconds) {
    const double ticks = SecondsToTicksF(seconds).count();
    if (!(ticks >= 0.0) || ticks >= 9223372036854775807.0) return 0;
    return static_cast<uint64_t>(ticks);
}

}  // namespace

Player::Player() {
    commandThread_.Start([this] { CommandThreadProc(); }, "vexel-command");
}

Player::~Player() {
    stopThread_.store(true);  // first, so a seek waiting for the reader gives up
    WakeCommandThread();
    commandThread_.Join();
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        CloseLocked();
        DropEngineLocked();
    }
    seekRequest_.reset();
    audioControl_.reset();
    videoControl_.reset();
}

// ---------------------------------------------------------------------------------------------
// The engine

std::shared_ptr<RenderEngine> Player::Engine() const {
    std::lock_guard<std::mutex> guard(engineLock_);
    return engine_;
}

std::shared_ptr<RenderEngine> Player::EngineWhilePlaying() const {
    return state_.load() == PlayerState::Playing ? Engine() : nullptr;
}

void Player::DropEngineLocked() {
    std::shared_ptr<RenderEngine> old;
    {
        std::lock_guard<std::mutex> guard(engineLock_);
        old.swap(engine_);
    }
}  // destroyed here unless a forwarded call still holds it, and never under engineLock_

// ---------------------------------------------------------------------------------------------
// Opening a file

int32_t Player::Open(const char* path, uint64_t start, uint64_t end, uint32_t fisheyeMode) {
    ClearSeekRequests();
    int32_t result;
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        // Replacing an engine whose threads run is not allowed: close what is open first.
        if (state_.load() != PlayerState::Closed) CloseLocked();
        std::shared_ptr<RenderEngine> engine;
        result = OpenLocked(path, start, end, fisheyeMode, engine);
        // Published set up, also when a later step failed: the old engine is gone already.
        if (engine) {
            std::lock_guard<std::mutex> engineGuard(engineLock_);
            engine_ = std::move(engine);
        }
    }
    WakeCommandThread();
    return result;
}

int32_t Player::OpenLocked(const char* path, uint64_t start, uint64_t end, uint32_t fisheyeMode,
                           std::shared_ptr<RenderEngine>& engine) {
    CountedRef<MediaReader> reader;
    if (OpenVideoStream(path, reader, engine) != kOk) return kOpenFailed;

    CountedRef<PlaybackControl> control;
    control.QueryFrom(reader.get(), IID_PlaybackControl);
    if (!control) return kOpenFailed;  // a reader that cannot be driven cannot be played
    videoControl_ = std::move(control);

    const uint64_t duration = SecondsToTicks(videoInfo_.duration);
    duration_ = duration;
    rangeEnd_ = (end != 0 && end <= duration) ? end : duration;
    rangeStart_ = (start <= duration && start <= rangeEnd_) ? start : 0;
    int64_t current = static_cast<int64_t>(rangeStart_), stop = static_cast<int64_t>(rangeEnd_);
    videoControl_->SetPositions(&current, 0, &stop, 0);
    engine->SetTimeRange(rangeStart_, rangeEnd_);
    engine->SetFisheyeMode(fisheyeMode);
    reader.reset();  // the control keeps the reader alive

    if (CountedRef<MediaReader> audioReader = OpenAudioStream(path, *engine)) {
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

int32_t Player::OpenVideoStream(const char* path, CountedRef<MediaReader>& readerOut,
                                std::shared_ptr<RenderEngine>& engine) {
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
        description->GetStreamInfo(static_cast<uint16_t>(index), &first, &info, &second,
                                   &streamDuration, nullptr);
        if (info.kind == kStreamKindVideo) {
            videoInfo_ = info;
            if (videoInfo_.duration == 0.0)
                videoInfo_.duration = ToSeconds(TicksF(static_cast<double>(streamDuration)));
            width_ = info.width;
            height_ = info.height;
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

    DropEngineLocked();
    engine = std::make_shared<RenderEngine>();
    engine->SetVideoStreamInfo(videoInfo_);
    MediaFormat format = MakeMediaFormatRequest();
    reader->GetProperty(&format.header);
    frameRate_ = format.payload.video.frameRate;
    engine->SetVideoFormat(format.payload);
    reader->SetSink(engine->VideoSink());
    readerOut = std::move(reader);
    return kOk;
}

CountedRef<MediaReader> Player::OpenAudioStream(const char* path, RenderEngine& engine) {
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
        description->GetStreamInfo(static_cast<uint16_t>(index), &first, &info, &second,
                                   &streamDuration, nullptr);
        if (info.kind != kStreamKindAudio) continue;

        std::memcpy(audioInfo_, &info, kAudioStreamInfoBytes);
        engine.SetAudioStreamInfo(audioInfo_);
        CountedRef<MediaStream> stream;
        reader->SelectStream(index, stream.put());
        if (!stream) return nullptr;
        MediaFormat format = MakeMediaFormatRequest();
        reader->GetProperty(&format.header);
        engine.SetAudioFormat(format.payload);
        reader->SetSink(engine.AudioSink());
        return reader;
    }
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Playback control

int32_t Player::Play(Ticks time) {
    ClearSeekRequests();  // pending seeks are dropped, not served
    int32_t status;
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        status = PlayLocked(time);
    }
    WakeCommandThread();
    return status;
}

int32_t Player::PlayLocked(Ticks time) {
    if (state_.load() == PlayerState::Closed || !engine_ || !videoControl_) return ERR_WRONG_STATE;
    if (state_.load() == PlayerState::Seeking) StopLocked();

    time = ClampToTimeline(time);
    const Ticks mapped = engine_->MapPlayTime(time);
    if (state_.load() == PlayerState::Stopped) {
        if (!WaitForVideoReader()) return ERR_WRONG_STATE;
        int64_t current = mapped.count(), stop = static_cast<int64_t>(rangeEnd_);
        videoControl_->SetPositions(&current, 0, &stop, 0);
        if (audioControl_) {
            current = mapped.count();
            stop = static_cast<int64_t>(rangeEnd_);
            audioControl_->SetPositions(&current, 0, &stop, 0);
        }
        engine_->Start(time);
    } else if (state_.load() == PlayerState::Paused) {
        engine_->Start(Ticks(-1));  // resume where the pause left off
    }
    const int32_t status = videoControl_->Run();
    if (audioControl_) audioControl_->Run();
    if (Succeeded(status)) state_.store(PlayerState::Playing);
    return status;
}

int32_t Player::Pause() {
    int32_t status;
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        if (state_.load() != PlayerState::Playing) return ERR_WRONG_STATE;
        status = engine_->Pause();
        videoControl_->Pause();
        if (audioControl_) audioControl_->Pause();
        if (Succeeded(status)) state_.store(PlayerState::Paused);
    }
    WakeCommandThread();
    return status;
}

int32_t Player::Stop() {
    int32_t status;
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        status = StopLocked();
    }
    // The pictures pooled for playback go back to the system but one of each size, for the next
    // seek or play; a seek's own stop keeps them all.
    ReleasePooledPixels(PoolRelease::kKeepOneOfEachSize);
    WakeCommandThread();  // a request waiting behind a shown seek is served now
    return status;
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
    seekRequest_.reset();
    ++seekGeneration_;  // a request the command thread took but has not served yet goes too
    return kOk;
}

int32_t Player::Close() {
    ClearSeekRequests();
    int32_t result;
    {
        std::lock_guard<std::mutex> controlGuard(controlLock_);
        result = CloseLocked();
    }
    ReleasePooledPixels();
    WakeCommandThread();
    return result;
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

int32_t Player::Seek(Ticks time) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        seekRequest_ = time;  // replaces an older request, which is dropped unseen
    }
    commandWake_.notify_all();
    return kOk;
}

void Player::WakeCommandThread() {
    {
        std::lock_guard<std::mutex> guard(lock_);
    }  // a waiter between its test and its wait sees the change
    commandWake_.notify_all();
}

void Player::CommandThreadProc() {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        // While a seek is shown, a request waits for the Stop that ends it.
        commandWake_.wait(guard, [this] {
            return stopThread_.load() || (seekRequest_ && state_.load() != PlayerState::Seeking);
        });
        if (stopThread_.load()) return;
        const Ticks newest = *seekRequest_;
        seekRequest_.reset();
        const uint64_t generation = seekGeneration_;
        // Served without lock_, so Seek and the sample hand-over never wait for a seek.
        guard.unlock();
        SeekNow(newest, generation);
        guard.lock();
    }
}

int32_t Player::SeekNow(Ticks time, uint64_t generation) {
    std::lock_guard<std::mutex> controlGuard(controlLock_);
    // A Play, Close or Open that came between taking the request and here dropped it.
    if (seekGeneration_.load() != generation) return ERR_WRONG_STATE;
    if (state_.load() == PlayerState::Closed || !engine_ || !videoControl_) return ERR_WRONG_STATE;
    const bool readerStopped = state_.load() == PlayerState::Paused;  // StopLocked stops it
    StopLocked();
    // A reader still delivering (playing, or a seek's catch-up the host stopped) is told to stop:
    // waiting for it to run into the stopped engine's refusals costs a decode or a whole catch-up.
    if (!readerStopped && !VideoReaderReady()) videoControl_->Stop();
    if (!WaitForVideoReader()) return ERR_WRONG_STATE;

    // Decode only the span of one frame around the target.
    time = ClampToTimeline(time);
    const Ticks mapped = engine_->MapPlayTime(time);
    const double rate = frameRate_.load();
    const double frameRate = rate > 0.0 && std::isfinite(rate) ? rate : 30.0;
    const uint64_t half = static_cast<uint64_t>(SecondsToTicksF(1.0).count() / frameRate * 0.5);
    const uint64_t target = mapped.count() > 0 ? static_cast<uint64_t>(mapped.count()) : 0;
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

Ticks Player::ClampToTimeline(Ticks time) const {
    // The player's timeline is the media's plus the time freezes; both are bounded, so the sum is.
    const int64_t end =
        AddTicks(static_cast<int64_t>(duration_.load()), engine_->FreezeTotal().count());
    return std::clamp(time, Ticks::zero(), Ticks(end));
}

bool Player::VideoReaderReady() const {
    CountedRef<PlaybackStatus> status;
    status.QueryFrom(videoControl_.get(), IID_PlaybackStatus);
    if (!status) return true;
    uint32_t code = 1;
    status->GetState(&code);
    return code == 0 || code == 3;
}

bool Player::WaitForVideoReader() {
    while (!VideoReaderReady()) {
        if (stopThread_.load()) return false;
        Sleep(10);
    }
    return true;
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

Ticks Player::GetCurrentPlayTime() const {
    const auto engine = Engine();
    return engine ? engine->GetCurrentPlayTime() : Ticks::zero();
}

InlayBuffer* Player::GetCurrentPreSample() {
    const auto engine = Engine();
    return engine ? engine->TakeCurrentPreSample() : nullptr;
}

InlayBuffer* Player::GetCurrentViewSample() {
    const auto engine = Engine();
    return engine ? engine->TakeCurrentViewSample() : nullptr;
}

void Player::SetViewDim(uint32_t width, uint32_t height) {
    if (const auto engine = Engine()) engine->SetViewDim(width, height);
}

int32_t Player::SetVolume(int32_t volume) {
    volume_ = volume;
    if (const auto engine = Engine()) engine->SetVolume(volume);
    return kOk;
}

int32_t Player::Mute(bool mute) {
    if (const auto engine = Engine()) engine->SetVolume(mute ? -10000 : volume_.load());
    return kOk;
}

void Player::GetView(const InlayBuffer* sample, uint8_t* destination) {
    const auto engine = Engine();
    if (!engine || state_.load() == PlayerState::Playing) return;
    RenderSampleView(sample, destination, engine->ViewWidth(), engine->ViewHeight());
}

// ---------------------------------------------------------------------------------------------
// View control and time freeze

void Player::SetView(double pan, double tilt, double fov) {
    if (const auto engine = Engine()) engine->SetView(pan, tilt, fov);
}

void Player::StartPan() {
    if (const auto engine = EngineWhilePlaying()) engine->StartPan();
}

void Player::SetPanStep(double x, double y) {
    if (const auto engine = EngineWhilePlaying()) engine->SetPanStep(x, y);
}

void Player::AddPan(double pan, double tilt) {
    if (const auto engine = EngineWhilePlaying()) engine->AddPan(pan, tilt);
}

void Player::EndPan() {
    if (const auto engine = EngineWhilePlaying()) engine->EndPan();
}

void Player::StartZoom() {
    if (const auto engine = EngineWhilePlaying()) engine->StartZoom();
}

void Player::AddZoom(double fov) {
    if (const auto engine = EngineWhilePlaying()) engine->AddZoom(fov);
}

void Player::EndZoom() {
    if (const auto engine = EngineWhilePlaying()) engine->EndZoom();
}

void Player::SetTimeFreeze(const double* times, const double* durations, int32_t count) {
    if (const auto engine = Engine()) engine->SetTimeFreeze(times, durations, count);
}

int32_t Player::GetTimeFreeze(double* times, double* durations, int32_t capacity) {
    const auto engine = Engine();
    return engine ? engine->GetTimeFreeze(times, durations, capacity) : 0;
}

double Player::TimeFreeze(double time, double duration) {
    const auto engine = Engine();
    return engine ? engine->TimeFreeze(time, duration) : time;
}

}  // namespace vexel
