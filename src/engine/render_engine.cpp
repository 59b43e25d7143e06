#include "engine/render_engine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

#include "common/log.h"
#include "vexel/status.h"
#include "platform/perf_counter.h"
#include "platform/sleep.h"
#include "projection/view_projector.h"

namespace vexel {

namespace {

constexpr std::chrono::milliseconds kIdleStep{10};
constexpr double kTicksPerSecond = 10'000'000.0;
constexpr size_t kMaxQueuedViews = 1 << 16;  // gesture inputs beyond this are dropped
constexpr uint64_t PackViewDim(uint32_t width, uint32_t height) {
    return uint64_t{width} | (uint64_t{height} << 32);
}

// Runs a thread body; a failure there (out of memory) ends the thread with a line, not the process.
template <class Body>
void RunGuarded(const char* name, Body body) {
    try {
        body();
    } catch (const std::exception& e) {
        LogPrintf("vexel: %s thread stopped: %s\n", name, e.what());
    } catch (...) {
        LogPrintf("vexel: %s thread stopped\n", name);
    }
}

}  // namespace

RenderEngine::RenderEngine()
    : videoSink_(VideoRenderSink::Create(this)), audioSink_(AudioRenderSink::Create(this)) {}

RenderEngine::~RenderEngine() {
    if (renderThread_.IsStarted() || presentThread_.IsStarted()) Stop();
    FlushQueues();
    {
        std::lock_guard<std::mutex> guard(sampleLock_);
        ReleaseInlayBuffer(std::exchange(currentPreSample_, nullptr));
        ReleaseInlayBuffer(std::exchange(currentViewSample_, nullptr));
    }
    // A host that still holds a sink gets refusals from now on instead of a dangling engine.
    audioSink_->Disconnect();
    videoSink_->Disconnect();
    audioSink_.reset();
    videoSink_.reset();
    ReleasePooledPixels();  // a host may unload the library next
}

void RenderEngine::SetVideoFormat(const MediaFormatPayload& payload) {
    sourceWidth_ = payload.video.width;
    sourceHeight_ = payload.video.height;
    sourceFormat_ = payload.video.pixelFormat;
    viewDim_.store(PackViewDim(320, 180));  // every file starts with a small preview
}

void RenderEngine::SetVideoStreamInfo(const StreamInfo& info) { videoStreamInfo_ = info; }

void RenderEngine::SetAudioStreamInfo(const uint8_t (&info)[kAudioStreamInfoBytes]) {
    std::copy(std::begin(info), std::end(info), audioStreamInfo_);
}

void RenderEngine::SetTimeRange(uint64_t start, uint64_t end) {
    rangeStart_ = start;
    rangeEnd_ = end;
    rangeLength_ = end - start;
}

void RenderEngine::SetFisheyeMode(uint32_t mode) { fisheyeMode_ = mode; }

void RenderEngine::SetViewDim(uint32_t width, uint32_t height) {
    if (uint64_t{width} * height * 4 > std::numeric_limits<uint32_t>::max()) return;
    viewDim_.store(PackViewDim(width, height));
}

int32_t RenderEngine::Start(int64_t time) {
    clockRestart_.store(true);
    // A resume keeps an end of stream that arrived before the pause: the frames still queued are
    // the last ones, and the end marker must follow them.
    if (time >= 0) endOfStream_.store(false);
    running_.store(true);
    seekFrameShown_.store(false);
    audioStartPending_.store(true);
    if (time >= 0) {
        startPosition_.store(static_cast<double>(time));
        std::lock_guard<std::mutex> guard(sampleLock_);
        currentPlayTime_.store(time);
    } else {  // resume from the last presented frame
        startPosition_.store(static_cast<double>(currentPlayTime_.load()));
        if (audioOutput_ && !seekMode_.load()) audioOutput_->Run(time);  // the sound runs on at once
        audioStartPending_.store(false);
        OpenAudioGate();
    }
    if (!renderThread_.IsStarted() && !presentThread_.IsStarted()) {
        stopRequested_.store(false);
        if (!renderThread_.Start([this] { RunGuarded("render", [this] { RenderThreadProc(); }); }, "vexel-render") ||
            !presentThread_.Start([this] { RunGuarded("present", [this] { PresentThreadProc(); }); }, "vexel-present")) {
            LogPrintf("vexel: could not start the render threads\n");
        }
    }
    const int64_t frequency = PerfCounterFrequency();
    msPerTick_.store(frequency > 0 ? 1000.0f / static_cast<float>(frequency) : 0.0f);
    return kOk;
}

int32_t RenderEngine::StartSeek(int64_t time) {
    seekMode_.store(true);
    return Start(time);
}

int32_t RenderEngine::Pause() {
    running_.store(false);
    if (audioOutput_) audioOutput_->Pause();
    return kOk;
}

void RenderEngine::BeginStop() {
    if (audioOutput_) audioOutput_->Stop();  // also releases a delivery blocked in the graph
    running_.store(false);
    seekMode_.store(false);
    stopRequested_.store(true);
    OpenAudioGate();
    decodedQueue_.WakeAll();
    renderedQueue_.WakeAll();
}

int32_t RenderEngine::Stop() {
    BeginStop();
    renderThread_.Join();
    presentThread_.Join();
    // A first clock reading that raced with this stop may have run the graph again.
    if (audioOutput_) audioOutput_->Stop();
    FlushQueues();
    return kOk;
}

InlayBuffer* RenderEngine::TakeCurrentPreSample() {
    std::lock_guard<std::mutex> guard(sampleLock_);
    return std::exchange(currentPreSample_, nullptr);
}

InlayBuffer* RenderEngine::TakeCurrentViewSample() {
    std::lock_guard<std::mutex> guard(sampleLock_);
    return std::exchange(currentViewSample_, nullptr);
}

bool RenderEngine::PushDecodedFrame(std::unique_ptr<FrameRecord> frame) {
    // Each push waits for room, the freeze copies too (so a long freeze cannot fill memory with
    // copies), and a frame is refused once stopping: queued after Stop flushed the queues, it would
    // be shown by the next Start.
    auto push = [this](std::unique_ptr<FrameRecord> record) {
        decodedQueue_.WaitForRoom(stopRequested_);
        if (stopRequested_.load()) return false;
        decodedQueue_.Push(std::move(record));
        return true;
    };

    // Shown later by all the frozen time before it.
    const FreezeShift found = freezes_.ShiftAt(static_cast<float>(static_cast<double>(frame->time) / 10000.0));
    frame->streamTime = frame->time;
    frame->time = static_cast<int64_t>(static_cast<double>(frame->time) + static_cast<double>(found.shift) * 10000.0);

    // The first frame less than one frame interval after a freeze starts is repeated, one copy per
    // frame interval, from the presentation time at which the freeze begins.
    const double frameRate = videoStreamInfo_.frameRate;
    if (!seekMode_.load() && found.lastDuration > 0.0 && frameRate > 0.0 && std::isfinite(frameRate)) {
        const double frameMs = 1000.0 / frameRate;
        const double nowMs = static_cast<double>(frame->time) / 10000.0;
        const double freezeEnd = static_cast<double>(found.shift) + found.lastTime;
        if (frameMs - (nowMs - freezeEnd) > 0.1) {
            const auto copies = static_cast<int64_t>(found.lastDuration / 1000.0 * frameRate);
            const double freezeStart = freezeEnd - found.lastDuration;
            for (int64_t i = 0; i < copies; ++i) {
                auto copy = frame->Clone();
                copy->time = static_cast<int64_t>((static_cast<double>(i) * 1000.0 / frameRate + freezeStart) * 10000.0);
                if (!push(std::move(copy))) return false;
            }
        }
    }
    return push(std::move(frame));
}

void RenderEngine::SetView(double pan, double tilt, double fov) {
    if (!std::isfinite(pan) || !std::isfinite(tilt) || !std::isfinite(fov)) return;
    viewPan_.store(pan);
    viewTilt_.store(tilt);
    viewFov_.store(fov);
    const double seconds =
        static_cast<double>(currentPlayTime_.load() - static_cast<int64_t>(rangeStart_)) / kTicksPerSecond;
    PanoramaLens::SetAngle(seconds, pan, tilt, fov);
}

void RenderEngine::StartPan() {
    panning_.store(true);
    panStepX_.store(0.0);
    panStepY_.store(0.0);
}

void RenderEngine::SetPanStep(double x, double y) {
    panStepX_.store(x);
    panStepY_.store(y);
}

void RenderEngine::AddPan(double pan, double tilt) {
    std::lock_guard<std::mutex> guard(viewLock_);
    if (panQueue_.size() >= kMaxQueuedViews) return;
    panQueue_.push_back(pan);
    tiltQueue_.push_back(tilt);
}

void RenderEngine::EndPan() {
    lens_.Commit(PanoramaLens::Gesture::Pan);
    panning_.store(false);
    std::lock_guard<std::mutex> guard(viewLock_);
    panQueue_.clear();
    tiltQueue_.clear();
}

void RenderEngine::StartZoom() {
    zooming_.store(true);
    zoomFactor_.store(1.0);
}

void RenderEngine::AddZoom(double fov) {
    std::lock_guard<std::mutex> guard(viewLock_);
    if (zoomQueue_.size() >= kMaxQueuedViews) return;
    zoomQueue_.push_back(fov);
}

void RenderEngine::EndZoom() {
    lens_.Commit(PanoramaLens::Gesture::Zoom);
    zooming_.store(false);
    std::lock_guard<std::mutex> guard(viewLock_);
    zoomQueue_.clear();
}

void RenderEngine::StepView(double seconds) {
    const double lensTime = seconds < 0.0 ? 0.0 : std::min(seconds, static_cast<double>(rangeLength_) / kTicksPerSecond);
    const bool panning = panning_.load(), zooming = zooming_.load();
    double pan = viewPan_.load(), tilt = viewTilt_.load(), fov = viewFov_.load();
    // Takes the front of a queue into value; false when it is empty. Needs viewLock_.
    auto takeFront = [](std::deque<double>& queue, double& value) {
        if (queue.empty()) return false;
        value = queue.front();
        queue.pop_front();
        return true;
    };

    if (!panning && !zooming) {  // the view follows the path
        PanoramaLens::GetAngle(lensTime, &pan, &tilt, &fov);
    } else if (!panning) {
        bool took;
        {
            std::lock_guard<std::mutex> guard(viewLock_);
            took = takeFront(zoomQueue_, fov);
        }
        PanoramaLens::GetPan(lensTime, &pan, &tilt);
        if (took) lens_.RecordZoom(lensTime, pan, tilt, fov);
    } else {
        bool tookZoom = false;
        {
            std::lock_guard<std::mutex> guard(viewLock_);
            takeFront(panQueue_, pan);
            takeFront(tiltQueue_, tilt);
            if (zooming) tookZoom = takeFront(zoomQueue_, fov);
        }
        if (!zooming) PanoramaLens::GetZoom(lensTime, &fov);
        if (tookZoom) {
            lens_.RecordPanZoom(lensTime, pan, tilt, fov);
        } else {
            lens_.RecordPan(lensTime, pan, tilt);
        }
    }
    viewPan_.store(pan);
    viewTilt_.store(tilt);
    viewFov_.store(fov);
}

void RenderEngine::RenderThreadProc() {
    if (stopRequested_.load()) return;
    for (;;) {
        if (!running_.load()) {
            Sleep(10);
        } else {
            // Read before the pop: the end is signalled after the last frame was queued.
            const bool ended = endOfStream_.load();
            if (auto frame = decodedQueue_.Pop()) {
                StepView(static_cast<double>(frame->time - static_cast<int64_t>(rangeStart_)) / kTicksPerSecond);
                RenderFrameView(*frame);
                renderedQueue_.WaitForRoom(stopRequested_);
                renderedQueue_.Push(std::move(frame));
            } else if (ended) {
                auto marker = std::make_unique<FrameRecord>();
                marker->seek = seekMode_.load();
                renderedQueue_.WaitForRoom(stopRequested_);
                renderedQueue_.Push(std::move(marker));
                return;
            } else {
                decodedQueue_.WaitForFrame(kIdleStep);
            }
        }
        if (stopRequested_.load()) return;
    }
}

void RenderEngine::RenderFrameView(FrameRecord& frame) {
    const uint64_t dim = viewDim_.load();
    const uint32_t viewWidth = static_cast<uint32_t>(dim), viewHeight = static_cast<uint32_t>(dim >> 32);
    const double pan = viewPan_.load(), tilt = viewTilt_.load(), fov = viewFov_.load();

    if (!frame.viewPixels) {
        frame.viewSize = viewWidth * viewHeight * 4;
        frame.viewPixels.reset(AllocatePixels(frame.viewSize));
        if (!frame.viewPixels) throw std::bad_alloc();
    }
    const uint32_t* pixels = reinterpret_cast<const uint32_t*>(frame.pixels.get());
    rowTable_.resize(frame.height);
    for (uint32_t i = 0; i < frame.height; ++i) rowTable_[i] = pixels + size_t{i} * frame.width;

    ViewProjector projector(static_cast<int32_t>(frame.width), static_cast<int32_t>(frame.height));
    projector.SetViewBuffer(reinterpret_cast<uint32_t*>(frame.viewPixels.get()),
                            static_cast<int32_t>(viewWidth), static_cast<int32_t>(viewHeight));
    RenderDirection(projector, rowTable_.data(), pan, tilt, fov);

    // The samples carry the view as it was asked for, not as the projector adjusted it.
    frame.viewWidth = viewWidth;
    frame.viewHeight = viewHeight;
    frame.pan = pan;
    frame.tilt = tilt;
    frame.fov = fov;
}

void RenderEngine::PresentThreadProc() {
    if (stopRequested_.load()) return;
    for (;;) {
        std::unique_ptr<FrameRecord> frame;
        if (running_.load()) frame = renderedQueue_.Pop();
        if (!frame) {
            if (running_.load()) {
                renderedQueue_.WaitForFrame(kIdleStep);
            } else {
                Sleep(10);
            }
        } else if (frame->IsEndMarker()) {
            WaitSamplesTaken();
            PublishSamples(std::move(frame));
            return;
        } else {
            if (!WaitForPresentationTime(*frame)) return;
            PublishSamples(std::move(frame));
            if (seekMode_.load()) seekFrameShown_.store(true);
        }
        if (stopRequested_.load()) return;
    }
}

bool RenderEngine::WaitForPresentationTime(const FrameRecord& frame) {
    using std::chrono::microseconds;
    const float target = static_cast<float>(static_cast<double>(frame.time) / 10000.0);
    for (;;) {
        const float elapsed = ClockElapsedMs();
        const float now = static_cast<float>(static_cast<float>(startPosition_.load()) / 10000.0f + elapsed);
        if (now >= target || seekMode_.load()) return true;
        if (stopRequested_.load()) return false;
        // Sleep while the time is far, poll the clock only for the last stretch.
        const float remaining = target - now;
        if (remaining > 2.0f) {
            std::this_thread::sleep_for(microseconds(static_cast<int64_t>(std::min(remaining - 1.5f, 10.0f) * 1000.0f)));
        } else if (remaining > 0.6f) {
            std::this_thread::sleep_for(microseconds(200));
        } else {
            std::this_thread::yield();
        }
    }
}

float RenderEngine::ClockElapsedMs() {
    if (!clockRestart_.exchange(false)) {
        return static_cast<float>(ReadPerfCounter() - clockOrigin_) * msPerTick_.load();
    }
    clockOrigin_ = ReadPerfCounter();
    // The sound starts at the clock's origin, from the position the clock starts at.
    if (audioStartPending_.load() && audioOutput_ && !seekMode_.load()) {
        audioOutput_->Run(static_cast<int64_t>(startPosition_.load()));
        audioStartPending_.store(false);
        OpenAudioGate();
    }
    return 0.0f;
}

void RenderEngine::PublishSamples(std::unique_ptr<FrameRecord> frame) {
    InlayBuffer* pre = MakeSample(std::move(frame->pixels), frame->width, frame->height, frame->size, *frame);
    InlayBuffer* view = MakeSample(std::move(frame->viewPixels), frame->viewWidth, frame->viewHeight,
                                   frame->viewSize, *frame);
    {
        std::lock_guard<std::mutex> guard(sampleLock_);
        if (!frame->IsEndMarker()) currentPlayTime_.store(frame->time);
        std::swap(pre, currentPreSample_);
        std::swap(view, currentViewSample_);
    }
    // Samples the client did not take are freed outside the lock.
    ReleaseInlayBuffer(pre);
    ReleaseInlayBuffer(view);
}

void RenderEngine::WaitSamplesTaken() {
    for (int i = 0; i < 100 && !stopRequested_.load(); ++i) {
        {
            std::lock_guard<std::mutex> guard(sampleLock_);
            if (currentPreSample_ == nullptr && currentViewSample_ == nullptr) return;
        }
        Sleep(10);
    }
}

void RenderEngine::FlushQueues() {
    decodedQueue_.Clear();
    renderedQueue_.Clear();
}

}  // namespace vexel
