// RenderEngine: the video half of the player. It receives decoded pictures from the codec host's
// delivery thread through its video sink, queues them (at most 30 waiting), renders each frame's
// view on a render thread (at most 2 rendered frames waiting) and, on a present thread, publishes
// the panorama and the view as samples when its millisecond clock reaches the frame's time.
//
// A frame's view is decided when it is about to be shown, so that a view change shows on the next
// presented frame: the render thread draws ahead with the view the frame would get if nothing
// changed (ViewControl::Predict), and the present thread, early by the time a drawing takes, steps
// the view for the frame (one queued gesture value, the view path, or the last SetView) and draws
// it again only when it differs from the one drawn ahead. Path playback and a still view thus cost
// one drawing per frame, off the present thread; only frames whose view changed pay a drawing at
// presentation.
//
// State (state_), changed under stateLock_ by the Player's thread and the present thread:
//
//                                       BeginStop / Stop, from every state
//                                      +-------------------------------------> kStopped
//                                      |
//     kIdle, kStopped ---Start(t)---> kPlaying ---Pause---> kPaused
//           |                            ^  ^                  |
//           |                            |  +--Start(t | -1)---+
//           |                            |
//           +-------StartSeek(t)----> kSeeking ---first frame presented---> kSeekFrameShown
//                                        ^                                         |
//                                        +-----------Start, StartSeek--------------+
//
//     kPlaying, kPaused, kSeeking, kSeekFrameShown ---end marker presented---> kEnded
//
// Start from kPlaying restarts the clock; Start keeps a seek state (only a stop ends seeking);
// Pause acts in kPlaying only. In kEnded both threads have ended: Stop must come before the next
// Start plays. The threads take frames in kPlaying, kSeeking and kSeekFrameShown; video samples
// are refused in kSeekFrameShown, kEnded and kStopped, audio blocks in kStopped only.
//
// Threads:
// - the Player's threads (host threads and the seek command thread): construction, the setters,
//   Start, StartSeek, Pause, Stop, destruction; one at a time;
// - the codec host's delivery threads, through the sinks: OnVideoSample and OnVideoPicture (may
//   block while 30 frames wait), OnAudioSample (blocks until the clock starts the sound), the end-of-stream calls;
// - the render thread and the present thread, started by the first Start after construction or a
//   Stop, joined by Stop;
// - host threads through the Player: the view and time-freeze calls, TakeCurrentPreSample,
//   TakeCurrentViewSample, GetCurrentPlayTime, ViewWidth/ViewHeight.
// Locks: stateLock_ (state and the clock and sound start requests), the two queues' own locks,
// sampleLock_ (current samples), the view queues' lock (ViewControl), the lens's recording lock:
// never two at once, except that viewDecisionLock_ is held while the view queues and the lens are
// used (never the other way round). Every blocking wait waits on a condition variable whose
// condition includes stopping.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <vector>

#include "audio/audio_output.h"
#include "codec/render_sinks.h"
#include "codec/sample_target.h"
#include "engine/conversion_modules.h"
#include "engine/frame_queue.h"
#include "engine/frame_record.h"
#include "engine/panorama_lens.h"
#include "engine/time_freeze.h"
#include "engine/view_control.h"
#include "platform/thread.h"
#include "platform/tick_clock.h"
#include "vexel/codec_host.h"
#include "vexel/tick_math.h"
#include "vexel/ticks.h"

namespace vexel {

class RenderEngine final : public SampleTarget {
public:
    enum class State { kIdle, kPlaying, kPaused, kSeeking, kSeekFrameShown, kEnded, kStopped };

    static constexpr size_t kDecodedBound = 30;
    static constexpr size_t kRenderedBound = 2;

    RenderEngine();
    ~RenderEngine();  // stops first if the threads still run
    RenderEngine(const RenderEngine&) = delete;
    RenderEngine& operator=(const RenderEngine&) = delete;

    // The clock frames are presented by; before the first Start. The clock must outlive the engine.
    void SetTickClockForTesting(TickClock* clock) { clock_ = clock; }

    // The sinks the readers deliver into; the engine holds one reference on each.
    Vexel::IPushStream* VideoSink() const { return videoSink_.get(); }
    Vexel::IPushStream* AudioSink() const { return audioSink_.get(); }

    // Setup, before playback.
    void SetVideoFormat(const MediaFormatPayload& payload);
    void SetVideoStreamInfo(const StreamInfo& info);
    void SetAudioStreamInfo(const uint8_t (&info)[kAudioStreamInfoBytes]);
    void SetAudioFormat(const MediaFormatPayload& payload);
    void SetTimeRange(uint64_t start, uint64_t end);
    void SetFisheyeMode(uint32_t mode);
    // Size of the views rendered from now on; an empty view, a side over kMaxViewSide or a picture
    // over kMaxViewBytes is ignored (the size stays).
    static constexpr uint32_t kMaxViewSide = 16384;
    static constexpr uint64_t kMaxViewBytes = uint64_t{512} << 20;
    void SetViewDim(uint32_t width, uint32_t height);
    void SetVolume(int32_t volume);

    // Playback control (Player's thread). Start(t >= 0) plays from t; Start(-1) resumes. Either
    // way the clock and the sound start together, once the decoder is a few frames ahead (Preroll).
    int32_t Start(Ticks time);
    int32_t StartSeek(Ticks time);  // presents the first frame that arrives at once
    int32_t Pause();
    // Refuses samples from now on and releases every delivery thread waiting in the engine, so a
    // reader told to stop can end its delivery; Stop then joins the threads and flushes.
    void BeginStop();
    int32_t Stop();
    State GetStateForTesting() const { return state_.load(); }
    // Makes every view rendering fail as running out of memory would, until cleared.
    void FailRenderingForTesting(bool fail) { failRendering_.store(fail); }
    // Views drawn again at presentation because the view or size changed since drawn ahead.
    uint64_t RedrawsForTesting() const { return redraws_.load(); }

    // View control. SetView works in any state and stores a keyframe at the time of the next frame
    // to be shown, whose view is not decided yet; non-finite values are refused. The gesture calls
    // queue values that the present thread applies one per presented frame, recording what is
    // shown at the frame's time; ending a gesture commits keyframes.
    void SetView(double pan, double tilt, double fov);
    void StartPan() { view_.StartPan(); }
    void SetPanStep(double x, double y) { view_.SetPanStep(x, y); }
    void AddPan(double pan, double tilt) { view_.AddPan(pan, tilt); }
    void EndPan();
    void StartZoom() { view_.StartZoom(); }
    void AddZoom(double fov) { view_.AddZoom(fov); }
    void EndZoom();

    // Time freeze (milliseconds). Player time to media position: unchanged with no segments.
    void SetTimeFreeze(const double* times, const double* durations, int32_t count) {
        freezes_.Set(times, durations, count);
    }
    int32_t GetTimeFreeze(double* times, double* durations, int32_t capacity) const {
        return freezes_.Get(times, durations, capacity);
    }
    double TimeFreeze(double time, double duration) { return freezes_.Insert(time, duration); }
    Ticks MapPlayTime(Ticks time) const { return Ticks(freezes_.MapPlayTime(time.count())); }
    // The time the freezes add to the timeline; bounded (see TimeFreezeList).
    Ticks FreezeTotal() const {
        return Ticks(TruncateTicks(MsToTicksF(freezes_.TotalMs()).count()));
    }

    Ticks GetCurrentPlayTime() const { return Ticks(currentPlayTime_.load()); }
    // The current samples, once each per presented frame; the caller owns the result.
    InlayBuffer* TakeCurrentPreSample() { return TakeSample(currentPreSample_); }
    InlayBuffer* TakeCurrentViewSample() { return TakeSample(currentViewSample_); }
    uint32_t ViewWidth() const { return static_cast<uint32_t>(viewDim_.load()); }
    uint32_t ViewHeight() const { return static_cast<uint32_t>(viewDim_.load() >> 32); }

    // SampleTarget, on the delivery threads.
    int32_t OnVideoSample(const uint8_t* data, uint32_t size, int64_t startTime,
                          int64_t stopTime) override;
    int32_t OnAudioSample(const uint8_t* data, uint32_t size, int64_t startTime,
                          int64_t stopTime) override;
    // 32-bit panoramas that need no unwrapping are taken as picture sources, converted by the
    // render thread when it takes the frame.
    bool TakesPictureSources() const override {
        return sourceFormat_ == kPixelFormatBgra32 && !Unwraps();
    }
    int32_t OnVideoPicture(CountedRef<IPictureSource> picture, int64_t startTime,
                           int64_t stopTime) override;
    void OnVideoEndOfStream() override { decodedQueue_.MarkEnd(true); }
    void OnAudioEndOfStream() override;

private:
    static bool Takes(State state) {
        return state == State::kPlaying || state == State::kSeeking ||
               state == State::kSeekFrameShown;
    }
    static bool Seeks(State state) {
        return state == State::kSeeking || state == State::kSeekFrameShown;
    }
    bool Stopping() const { return state_.load() == State::kStopped; }

    int32_t StartAt(Ticks time, bool seek);
    // Moves to `to` when the state is one of `from`; then wakes every wait. True when it moved.
    bool Transition(std::initializer_list<State> from, State to);
    // Wakes every wait of the engine after a change of state, so each looks at its condition again.
    void WakeWaits();

    bool Unwraps() const { return fisheyeMode_ == 2 || fisheyeMode_ == 3; }
    // Before a video frame is made: false when the engine takes no more; else waits while 30
    // frames wait.
    bool WaitToTakeVideo();
    // Whether the stream's pictures have a size the engine takes and, unless rowBytes is 0, the
    // delivered data holds `rowBytes` for each row; logs once when not.
    bool SourcePictureFits(uint64_t rowBytes, const uint8_t* data = nullptr,
                           uint32_t size = 0) const;
    // Makes the 32-bit top-row-first picture of a delivered sample (rows reversed, or converted
    // from YUY2), and unwraps a fisheye picture into a panorama. False: the frame is dropped.
    bool ConvertToRgb32(const uint8_t* data, uint32_t size, FrameRecord& frame);
    bool Unwrap(FrameRecord& frame);
    // Gives the frame the current view and the sample's times and queues it; the status for the
    // sink.
    int32_t QueueVideoFrame(std::unique_ptr<FrameRecord> frame, int64_t startTime,
                            int64_t stopTime);
    // Queues a decoded frame at its presentation time, preceded by copies that fill a freeze
    // starting just before it; waits while 30 frames wait. False (frame dropped) once stopping.
    bool PushDecodedFrame(std::unique_ptr<FrameRecord> frame);
    // The view of the frame about to be shown, `seconds` after the start of the range, with the
    // gesture sample it shows recorded; present thread, under viewDecisionLock_.
    ViewAngles StepView(double seconds);
    // Decides the view of the frame about to be shown and draws it again when it differs from the
    // one drawn ahead; then the next frame's view is the undecided one.
    void PresentView(FrameRecord& frame);
    // Sets the time SetView keys its keyframe at; under viewDecisionLock_.
    void SetNextViewTime(int64_t time) { nextViewTime_ = time; }
    // How early the present thread decides a frame's view: the time a drawing of the view takes.
    float DrawLeadMs() const;
    void NoteDrawTime(std::chrono::steady_clock::duration took);  // render and present threads
    void RenderThreadProc();
    void PresentThreadProc();
    // Waits while the threads take no frames; false when stopping.
    bool WaitUntilTaking();
    // Draws the frame's view at the current view size, timing the drawing for DrawLeadMs.
    void RenderFrameView(FrameRecord& frame, const ViewAngles& view,
                         std::vector<const uint32_t*>& rowTable);
    // RenderFrameView, or on failure (out of memory) the frame loses its view sample and logs once.
    void DrawView(FrameRecord& frame, const ViewAngles& view,
                  std::vector<const uint32_t*>& rowTable);
    // Before the first clock reading after a Start in kPlaying, waits until the decoded queue holds
    // kPrerollFrames, the stream's end is queued, or kPrerollLimit passed on the clock; ends early
    // when the engine leaves kPlaying. False when stopping.
    bool Preroll();
    // Waits (after the preroll) until the clock reaches `leadMs` before the frame's time (at once
    // in seek mode); false when stopping. Only the wait for the frame's time itself (no lead) polls
    // its last stretch.
    bool WaitForPresentationTime(const FrameRecord& frame, float leadMs);
    float ClockElapsedMs();
    void PublishSamples(std::unique_ptr<FrameRecord> frame);
    InlayBuffer* TakeSample(InlayBuffer*& current);  // current: one of the two slots below
    // Waits up to about a second for the client to take the current samples, or until stopping.
    void WaitSamplesTaken();
    void FlushQueues();
    // Audio blocks wait here while the clock has not started the sound, until it has or the
    // engine stops.
    void WaitForAudioStart();
    StreamInfo AudioStreamInfo() const;  // the kept leading bytes of the audio StreamInfo

    CountedRef<RenderSink> videoSink_;
    CountedRef<RenderSink> audioSink_;
    // Made by SetAudioFormat before playback, null for a file without sound; read by the delivery
    // thread and the Player's and present threads afterwards.
    std::unique_ptr<AudioOutput> audioOutput_;
    TickClock* clock_ = &SteadyTickClock::Instance();

    uint64_t rangeStart_ = 0;
    uint64_t rangeEnd_ = 0;
    uint64_t rangeLength_ = 0;

    std::mutex stateLock_;
    std::condition_variable stateChanged_;
    std::atomic<State> state_{State::kIdle};  // written under stateLock_, read anywhere
    bool clockRestartPending_ = false;        // the next clock reading sets a new origin
    bool audioStartPending_ = false;   // ... and starts the sound; audio blocks wait meanwhile
    int64_t soundStartPosition_ = -1;  // where the sound starts; -1 continues after a pause
    std::atomic<double> startPosition_{0.0};  // ticks at which the clock starts

    uint32_t sourceWidth_ = 0;
    uint32_t sourceHeight_ = 0;
    uint32_t sourceFormat_ = 0;
    uint32_t fisheyeMode_ = 0;
    // View width in the low and height in the high 32 bits, so both are read together.
    std::atomic<uint64_t> viewDim_{0};
    ViewControl view_;
    PanoramaLens lens_;
    PixelConvertModule pixelConvert_;
    TimeFreezeList freezes_;

    Thread renderThread_;
    Thread presentThread_;
    FrameQueue decodedQueue_{kDecodedBound};
    FrameQueue renderedQueue_{kRenderedBound};

    std::mutex sampleLock_;  // current samples and the writing of currentPlayTime_
    std::condition_variable samplesTaken_;
    InlayBuffer* currentPreSample_ = nullptr;
    InlayBuffer* currentViewSample_ = nullptr;
    std::atomic<int64_t> currentPlayTime_{0};

    std::atomic<bool> failRendering_{false};
    std::atomic<uint64_t> redraws_{0};
    TickClock::TimePoint clockOrigin_;              // present thread only
    std::vector<const uint32_t*> rowTable_;         // render thread only
    std::vector<const uint32_t*> presentRowTable_;  // present thread only

    // SetView against the present thread's view decision: a keyframe lands either before a frame's
    // view is decided, at that frame's time, or after it, at the next frame's.
    std::mutex viewDecisionLock_;
    int64_t nextViewTime_ = 0;  // ticks; the next frame to be shown (an estimate between frames)
    // Steady clock ticks a view drawing takes, averaged over the last drawings.
    std::atomic<int64_t> drawTicks_{0};

    StreamInfo videoStreamInfo_{};
    uint8_t audioStreamInfo_[kAudioStreamInfoBytes] = {};
};

}  // namespace vexel
