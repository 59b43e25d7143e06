#include "engine/render_engine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "common/log.h"
#include "engine/freeze_copy_plan.h"
#include "projection/view_projector.h"
#include "vexel/status.h"
#include "vexel/tick_math.h"

namespace vexel {

namespace {

using std::chrono::duration;
using State = RenderEngine::State;

// The engine's clock counts milliseconds in 32-bit floats from the clock's native ticks.
constexpr float kMsPerClockTick = 1000.0f / static_cast<float>(TickClock::Duration::period::den /
                                                               TickClock::Duration::period::num);
// How long the present thread keeps the last picture of a stream for the client before the
// empty end samples replace it.
constexpr std::chrono::milliseconds kLastPictureHold{1000};
// Before the clock starts playing, the decoder gets a head start: the clock waits until this many
// frames wait behind the first one (or the stream's end is queued), for at most kPrerollLimit.
constexpr size_t kPrerollFrames = 5;
constexpr std::chrono::milliseconds kPrerollLimit{500};

constexpr uint64_t PackViewDim(uint32_t width, uint32_t height) {
    return uint64_t{width} | (uint64_t{height} << 32);
}

// Ticks (held as a float) in milliseconds, computed in 32-bit floats.
float TicksToMsF32(float ticks) {
    return duration<float, std::milli>(duration<float, Ticks::period>(ticks)).count();
}

// The lens module's view path, as the view control reads it.
class LensPath final : public ViewPath {
public:
    void GetAngle(double time, double* pan, double* tilt, double* fov) override {
        PanoramaLens::GetAngle(time, pan, tilt, fov);
    }
    void GetPan(double time, double* pan, double* tilt) override {
        PanoramaLens::GetPan(time, pan, tilt);
    }
    void GetZoom(double time, double* fov) override { PanoramaLens::GetZoom(time, fov); }
};

std::atomic<bool> loggedRenderFailure{false};
std::atomic<bool> loggedPictureFailure{false};

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
    rangeLength_ = end > start ? end - start : 0;
}

void RenderEngine::SetFisheyeMode(uint32_t mode) { fisheyeMode_ = mode; }

void RenderEngine::SetViewDim(uint32_t width, uint32_t height) {
    if (width == 0 || height == 0 || width > kMaxViewSide || height > kMaxViewSide ||
        uint64_t{width} * height * 4 > kMaxViewBytes) {
        return;
    }
    viewDim_.store(PackViewDim(width, height));
}

// ---------------------------------------------------------------------------------------------
// State

bool RenderEngine::Transition(std::initializer_list<State> from, State to) {
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        if (std::find(from.begin(), from.end(), state_.load()) == from.end()) return false;
        state_.store(to);
    }
    WakeWaits();
    return true;
}

void RenderEngine::WakeWaits() {
    { std::lock_guard<std::mutex> guard(stateLock_); }  // see FrameQueue::WakeAll
    stateChanged_.notify_all();
    decodedQueue_.WakeAll();
    renderedQueue_.WakeAll();
    { std::lock_guard<std::mutex> guard(sampleLock_); }
    samplesTaken_.notify_all();
}

int32_t RenderEngine::Start(Ticks time) { return StartAt(time, false); }

int32_t RenderEngine::StartSeek(Ticks time) { return StartAt(time, true); }

int32_t RenderEngine::StartAt(Ticks time, bool seek) {
    const bool resume = time < Ticks::zero();
    // A resume keeps an end of stream that arrived before the pause: the frames still queued are
    // the last ones, and the end marker must follow them.
    if (!resume) {
        decodedQueue_.MarkEnd(false);
        startPosition_.store(static_cast<double>(time.count()));
        {
            std::lock_guard<std::mutex> guard(viewDecisionLock_);
            SetNextViewTime(time.count());
        }
        std::lock_guard<std::mutex> guard(sampleLock_);
        currentPlayTime_.store(time.count());
    } else {  // resume from the last presented frame
        startPosition_.store(static_cast<double>(currentPlayTime_.load()));
    }
    State to;
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        const State from = state_.load();
        // Seeking lasts until a stop; an ended engine has no threads to play with.
        to = from == State::kEnded   ? State::kEnded
             : (seek || Seeks(from)) ? State::kSeeking
                                     : State::kPlaying;
        state_.store(to);
        // A resume continues the sound where it paused, unless it never ran since the last start.
        if (!resume) {
            soundStartPosition_ = time.count();
        } else if (!audioStartPending_) {
            soundStartPosition_ = -1;
        }
        clockRestartPending_ = true;
        audioStartPending_ = true;
    }
    WakeWaits();
    if (!renderThread_.IsStarted() && !presentThread_.IsStarted()) {
        if (!renderThread_.Start([this] { RunGuarded("render", [this] { RenderThreadProc(); }); },
                                 "vexel-render") ||
            !presentThread_.Start(
                [this] { RunGuarded("present", [this] { PresentThreadProc(); }); },
                "vexel-present")) {
            LogPrintf("vexel: could not start the render threads\n");
        }
    }
    return kOk;
}

int32_t RenderEngine::Pause() {
    Transition({State::kPlaying}, State::kPaused);
    if (audioOutput_) audioOutput_->Pause();
    return kOk;
}

void RenderEngine::BeginStop() {
    if (audioOutput_) audioOutput_->Stop();  // also releases a delivery blocked in the graph
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        state_.store(State::kStopped);
    }
    WakeWaits();
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

// ---------------------------------------------------------------------------------------------
// Frames on their way

bool RenderEngine::PushDecodedFrame(std::unique_ptr<FrameRecord> frame) {
    // Each push waits for room, the freeze copies too (so a long freeze cannot fill memory with
    // copies), and a frame is refused once stopping: queued after Stop flushed the queues, it would
    // be shown by the next Start.
    auto push = [this](std::unique_ptr<FrameRecord> record) {
        if (!decodedQueue_.WaitForRoom([this] { return Stopping(); })) return false;
        decodedQueue_.Push(std::move(record));
        return true;
    };
    const FreezeCopyPlan plan(Ticks(frame->time), freezes_, videoStreamInfo_.frameRate,
                              Seeks(state_.load()));
    frame->streamTime = frame->time;
    frame->time = plan.Time().count();
    for (int64_t i = 0; i < plan.CopyCount(); ++i) {
        auto copy = frame->Clone();
        copy->time = plan.CopyTime(i).count();
        if (!push(std::move(copy))) return false;
    }
    return push(std::move(frame));
}

void RenderEngine::SetView(double pan, double tilt, double fov) {
    if (!std::isfinite(pan) || !std::isfinite(tilt) || !std::isfinite(fov)) return;
    std::lock_guard<std::mutex> guard(viewDecisionLock_);
    view_.Set({pan, tilt, fov});
    const double seconds =
        ToSeconds(Ticks(SubTicks(nextViewTime_, static_cast<int64_t>(rangeStart_))));
    PanoramaLens::SetAngle(seconds, pan, tilt, fov);
}

// A gesture's recording is committed while its flag is still set, then the flag and queue go;
// no frame's view is decided in between, so no sample is left over for the next gesture.
void RenderEngine::EndPan() {
    std::lock_guard<std::mutex> guard(viewDecisionLock_);
    lens_.Commit(PanoramaLens::Gesture::Pan);
    view_.EndPan();
}

void RenderEngine::EndZoom() {
    std::lock_guard<std::mutex> guard(viewDecisionLock_);
    lens_.Commit(PanoramaLens::Gesture::Zoom);
    view_.EndZoom();
}

ViewAngles RenderEngine::StepView(double seconds) {
    LensPath path;
    const ViewStep step =
        view_.Step(seconds, ToSeconds(TicksF(static_cast<double>(rangeLength_))), path);
    const ViewAngles& v = step.view;
    switch (step.record) {
        case ViewStep::Record::None:
            break;
        case ViewStep::Record::Pan:
            lens_.RecordPan(step.lensTime, v.pan, v.tilt);
            break;
        case ViewStep::Record::Zoom:
            lens_.RecordZoom(step.lensTime, v.pan, v.tilt, v.fov);
            break;
        case ViewStep::Record::PanZoom:
            lens_.RecordPanZoom(step.lensTime, v.pan, v.tilt, v.fov);
            break;
    }
    return v;
}

bool RenderEngine::WaitUntilTaking() {
    std::unique_lock<std::mutex> guard(stateLock_);
    stateChanged_.wait(guard, [this] { return Takes(state_.load()) || Stopping(); });
    return !Stopping();
}

void RenderEngine::RenderThreadProc() {
    while (WaitUntilTaking()) {
        FrameQueue::Taken taken = decodedQueue_.Take([this] { return !Takes(state_.load()); });
        if (!taken.frame && !taken.ended) continue;
        // A picture that converts itself becomes pixels, in a pooled buffer, as soon as it is
        // taken, while the two rendered frames wait: a slow conversion (a fresh buffer) eats into
        // their lead, not into a frame's time.
        if (taken.frame && !taken.frame->WritePicture()) {
            LogOnce(loggedPictureFailure,
                    "vexel: a decoded picture could not be converted; its frame is dropped\n");
            continue;
        }
        // The view is drawn once the rendered queue has room, as late as it can be, so that no
        // drawn picture waits here beside the two queued ones; only this thread pushes there, so
        // the room stays.
        if (!renderedQueue_.WaitForRoom([this] { return Stopping(); })) return;
        if (taken.frame) {
            LensPath path;
            const ViewAngles view = view_.Predict(
                ToSeconds(Ticks(SubTicks(taken.frame->time, static_cast<int64_t>(rangeStart_)))),
                ToSeconds(TicksF(static_cast<double>(rangeLength_))), path);
            DrawView(*taken.frame, view, rowTable_);
            renderedQueue_.Push(std::move(taken.frame));
        } else {
            auto marker = std::make_unique<FrameRecord>();
            marker->seek = Seeks(state_.load());
            renderedQueue_.Push(std::move(marker));
            return;
        }
    }
}

void RenderEngine::DrawView(FrameRecord& frame, const ViewAngles& view,
                            std::vector<const uint32_t*>& rowTable) {
    try {
        RenderFrameView(frame, view, rowTable);
    } catch (const std::exception& e) {
        // A view that cannot be drawn (out of memory) costs that frame's view sample only.
        LogOnce(loggedRenderFailure,
                "vexel: a view could not be rendered (%s); its frame goes on without it\n",
                e.what());
        frame.viewPixels.reset();
    }
}

void RenderEngine::RenderFrameView(FrameRecord& frame, const ViewAngles& view,
                                   std::vector<const uint32_t*>& rowTable) {
    if (failRendering_.load()) throw std::bad_alloc();
    // Timed on the steady clock whatever clock presents: a drawing takes the machine's time.
    const auto began = std::chrono::steady_clock::now();
    const uint64_t dim = viewDim_.load();
    const uint32_t viewWidth = static_cast<uint32_t>(dim),
                   viewHeight = static_cast<uint32_t>(dim >> 32);

    if (!frame.viewPixels || frame.viewSize != viewWidth * viewHeight * 4) {
        frame.viewPixels.reset();
        frame.viewSize = viewWidth * viewHeight * 4;
        frame.viewPixels.reset(AllocatePixels(frame.viewSize));
        if (!frame.viewPixels) throw std::bad_alloc();
    }
    const uint32_t* pixels = reinterpret_cast<const uint32_t*>(frame.pixels.get());
    rowTable.resize(frame.height);
    for (uint32_t i = 0; i < frame.height; ++i) rowTable[i] = pixels + size_t{i} * frame.width;

    ViewProjector projector(static_cast<int32_t>(frame.width), static_cast<int32_t>(frame.height));
    projector.SetViewBuffer(reinterpret_cast<uint32_t*>(frame.viewPixels.get()),
                            static_cast<int32_t>(viewWidth), static_cast<int32_t>(viewHeight));
    RenderDirection(projector, rowTable.data(), view.pan, view.tilt, view.fov);
    NoteDrawTime(std::chrono::steady_clock::now() - began);

    // The samples carry the view as it was asked for, not as the projector adjusted it.
    frame.viewWidth = viewWidth;
    frame.viewHeight = viewHeight;
    frame.pan = view.pan;
    frame.tilt = view.tilt;
    frame.fov = view.fov;
}

void RenderEngine::PresentThreadProc() {
    while (WaitUntilTaking()) {
        std::unique_ptr<FrameRecord> frame =
            renderedQueue_.Take([this] { return !Takes(state_.load()); }).frame;
        if (!frame) continue;
        if (frame->IsEndMarker()) {
            ClockElapsedMs();  // a resume with no picture left still runs the rest of the sound
            WaitSamplesTaken();
            PublishSamples(std::move(frame));
            Transition({State::kPlaying, State::kPaused, State::kSeeking, State::kSeekFrameShown},
                       State::kEnded);
            return;
        }
        {
            std::lock_guard<std::mutex> guard(viewDecisionLock_);
            SetNextViewTime(frame->time);
        }
        // The view is decided early by the time a drawing takes, so a drawing again ends in time.
        if (!Preroll() || !WaitForPresentationTime(*frame, DrawLeadMs())) return;
        PresentView(*frame);
        if (!WaitForPresentationTime(*frame, 0.0f)) return;
        PublishSamples(std::move(frame));
        Transition({State::kSeeking}, State::kSeekFrameShown);
    }
}

bool RenderEngine::WaitForPresentationTime(const FrameRecord& frame, float leadMs) {
    const float target = static_cast<float>(ToMs(Ticks(frame.time))) - leadMs;
    const bool poll = leadMs == 0.0f;  // deciding a view early needs no poll's precision
    for (;;) {
        const float elapsed = ClockElapsedMs();
        const float now =
            static_cast<float>(TicksToMsF32(static_cast<float>(startPosition_.load())) + elapsed);
        if (now >= target || Seeks(state_.load())) return true;
        if (Stopping()) return false;
        // Wait while the time is far; poll the clock only for the last stretch.
        const float remaining = target - now;
        if (remaining > 2.0f || !poll) {
            // At most an hour at a time, so a far-off time stays inside the clock's 64-bit count.
            const float wait = std::min(poll ? remaining - 1.5f : remaining, 3.6e6f);
            const auto wake =
                clock_->Now() + std::max(std::chrono::duration_cast<TickClock::Duration>(
                                             duration<float, std::milli>(wait)),
                                         TickClock::Duration(1));
            std::unique_lock<std::mutex> guard(stateLock_);
            if (!Stopping() && !clockRestartPending_) clock_->WaitUntil(guard, stateChanged_, wake);
        } else if (remaining > 0.6f) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        } else {
            std::this_thread::yield();
        }
    }
}

bool RenderEngine::Preroll() {
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        if (!clockRestartPending_ || state_.load() != State::kPlaying) return true;
    }
    // The present thread holds the first frame; the render thread takes frames from the decoded
    // queue as the rendered queue has room, so what waits there is the decoder's lead.
    decodedQueue_.WaitForFrames(kPrerollFrames, *clock_, clock_->Now() + kPrerollLimit,
                                [this] { return state_.load() != State::kPlaying; });
    return !Stopping();
}

float RenderEngine::ClockElapsedMs() {
    bool startSound = false;
    int64_t soundPosition = -1;
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        if (!std::exchange(clockRestartPending_, false)) {
            return static_cast<float>((clock_->Now() - clockOrigin_).count()) * kMsPerClockTick;
        }
        // Paused before the clock started, the sound waits for the resume.
        startSound = audioStartPending_ && audioOutput_ && state_.load() == State::kPlaying;
        soundPosition = soundStartPosition_;
    }
    clockOrigin_ = clock_->Now();
    // The sound starts at the clock's origin, from the position the clock starts at.
    if (startSound) {
        audioOutput_->Run(soundPosition);
        {
            std::lock_guard<std::mutex> guard(stateLock_);
            audioStartPending_ = false;
        }
        stateChanged_.notify_all();
    }
    return 0.0f;
}

void RenderEngine::PublishSamples(std::unique_ptr<FrameRecord> frame) {
    InlayBuffer* pre =
        MakeSample(std::move(frame->pixels), frame->width, frame->height, frame->size, *frame);
    // A frame whose view failed has no view sample (an empty one would read as the end).
    InlayBuffer* view = frame->viewPixels || frame->IsEndMarker()
                            ? MakeSample(std::move(frame->viewPixels), frame->viewWidth,
                                         frame->viewHeight, frame->viewSize, *frame)
                            : nullptr;
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

InlayBuffer* RenderEngine::TakeSample(InlayBuffer*& current) {
    InlayBuffer* sample;
    {
        std::lock_guard<std::mutex> guard(sampleLock_);
        sample = std::exchange(current, nullptr);
    }
    samplesTaken_.notify_all();  // the present thread may wait for it before the end marker
    return sample;
}

void RenderEngine::WaitSamplesTaken() {
    const TickClock::TimePoint deadline = clock_->Now() + kLastPictureHold;
    std::unique_lock<std::mutex> guard(sampleLock_);
    while ((currentPreSample_ != nullptr || currentViewSample_ != nullptr) && !Stopping() &&
           clock_->Now() < deadline) {
        clock_->WaitUntil(guard, samplesTaken_, deadline);
    }
}

void RenderEngine::FlushQueues() {
    decodedQueue_.Clear();
    renderedQueue_.Clear();
}

}  // namespace vexel
