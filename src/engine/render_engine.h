// RenderEngine: the video half of the player. It receives decoded pictures from the codec host's
// delivery thread through its video sink, queues them (at most 30 waiting), renders each frame's
// view on a render thread (at most 2 rendered frames waiting) and, on a present thread, publishes
// the panorama and the view as samples when its millisecond clock reaches the frame's time.
//
// Threads:
// - the Player's threads (host threads and the seek command thread): construction, the setters,
//   Start, StartSeek, Pause, Stop, destruction; one at a time;
// - the codec host's delivery threads, through the sinks: OnVideoSample (may block while 30 frames
//   wait), OnAudioSample, the end-of-stream calls;
// - the render thread and the present thread, started by the first Start after construction or a
//   Stop, joined by Stop;
// - host threads through the exports: TakeCurrentPreSample, TakeCurrentViewSample,
//   GetCurrentPlayTime, ViewWidth/ViewHeight.
// Flags shared between them are atomic; the three locks are never held together or while sleeping.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
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
#include "platform/thread.h"
#include "vexel/codec_host.h"

namespace vexel {

class RenderEngine final : public SampleTarget {
public:
    static constexpr size_t kDecodedBound = 30;
    static constexpr size_t kRenderedBound = 2;

    RenderEngine();
    ~RenderEngine();  // stops first if the threads still run
    RenderEngine(const RenderEngine&) = delete;
    RenderEngine& operator=(const RenderEngine&) = delete;

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
    // Size of the views rendered from now on; sizes whose byte count overflows 32 bits are ignored.
    void SetViewDim(uint32_t width, uint32_t height);
    void SetVolume(int32_t volume);

    // Playback control (Player's thread). Start(t >= 0) plays from t; Start(-1) resumes.
    int32_t Start(int64_t time);
    int32_t StartSeek(int64_t time);  // presents the first frame that arrives at once
    int32_t Pause();
    // Refuses samples from now on and releases every delivery thread waiting in the engine, so a
    // reader told to stop can end its delivery; Stop then joins the threads and flushes.
    void BeginStop();
    int32_t Stop();

    // View control. SetView works in any state and stores a keyframe at the current position;
    // non-finite values are refused. The gesture calls queue values that the render thread
    // applies one per frame and record what is shown; ending a gesture commits keyframes.
    void SetView(double pan, double tilt, double fov);
    void StartPan();
    void SetPanStep(double x, double y);
    void AddPan(double pan, double tilt);
    void EndPan();
    void StartZoom();
    void AddZoom(double fov);
    void EndZoom();

    // Time freeze (milliseconds). Player time to media position: unchanged with no segments.
    void SetTimeFreeze(const double* times, const double* durations, int32_t count) {
        freezes_.Set(times, durations, count);
    }
    int32_t GetTimeFreeze(double* times, double* durations, int32_t capacity) const {
        return freezes_.Get(times, durations, capacity);
    }
    double TimeFreeze(double time, double duration) { return freezes_.Insert(time, duration); }
    int64_t MapPlayTime(int64_t time) const { return freezes_.MapPlayTime(time); }

    int64_t GetCurrentPlayTime() const { return currentPlayTime_.load(); }
    InlayBuffer* TakeCurrentPreSample();   // the caller owns the result
    InlayBuffer* TakeCurrentViewSample();  // the caller owns the result
    uint32_t ViewWidth() const { return static_cast<uint32_t>(viewDim_.load()); }
    uint32_t ViewHeight() const { return static_cast<uint32_t>(viewDim_.load() >> 32); }

    // SampleTarget, on the delivery threads.
    int32_t OnVideoSample(const uint8_t* data, uint32_t size, int64_t startTime, int64_t stopTime) override;
    int32_t OnAudioSample(const uint8_t* data, uint32_t size, int64_t startTime, int64_t stopTime) override;
    void OnVideoEndOfStream() override { endOfStream_.store(true); }
    void OnAudioEndOfStream() override;

    // Queues a decoded frame at its presentation time, preceded by copies that fill a freeze
    // starting just before it; waits while 30 frames wait. False (frame dropped) once stopping.
    bool PushDecodedFrame(std::unique_ptr<FrameRecord> frame);

private:
    // Makes the 32-bit top-row-first picture of a delivered sample (rows reversed, or converted
    // from YUY2), and unwraps a fisheye picture into a panorama. False: the frame is dropped.
    bool ConvertToRgb32(const uint8_t* data, uint32_t size, FrameRecord& frame);
    bool Unwrap(FrameRecord& frame);
    // The per-frame view update of the render thread, `seconds` after the start of the range.
    void StepView(double seconds);
    void RenderThreadProc();
    void PresentThreadProc();
    void RenderFrameView(FrameRecord& frame);
    // Waits until the clock reaches the frame's time (at once in seek mode); false when stopping.
    bool WaitForPresentationTime(const FrameRecord& frame);
    float ClockElapsedMs();
    void PublishSamples(std::unique_ptr<FrameRecord> frame);
    void WaitSamplesTaken();
    void FlushQueues();
    // Audio blocks wait here while the clock has not started the sound, until it has or the engine
    // stops; OpenAudioGate wakes them after either flag changed.
    void WaitForAudioStart();
    void OpenAudioGate();
    StreamInfo AudioStreamInfo() const;  // the kept leading bytes of the audio StreamInfo

    CountedRef<RenderSink> videoSink_;
    CountedRef<RenderSink> audioSink_;
    // Made by SetAudioFormat before playback, null for a file without sound; read by the delivery
    // thread and the Player's and present threads afterwards.
    std::unique_ptr<AudioOutput> audioOutput_;

    uint64_t rangeStart_ = 0;
    uint64_t rangeEnd_ = 0;
    uint64_t rangeLength_ = 0;

    std::atomic<bool> running_{false};
    std::atomic<bool> seekMode_{false};
    std::atomic<bool> endOfStream_{false};
    std::atomic<bool> stopRequested_{false};
    std::atomic<bool> seekFrameShown_{false};
    std::atomic<bool> audioStartPending_{false};
    std::atomic<bool> clockRestart_{false};
    std::atomic<uint32_t> audioGate_{0};  // bumped when audioStartPending_ clears or stopping starts

    std::atomic<double> startPosition_{0.0};  // ticks at which the clock starts

    uint32_t sourceWidth_ = 0;
    uint32_t sourceHeight_ = 0;
    uint32_t sourceFormat_ = 0;
    uint32_t fisheyeMode_ = 0;
    // View width in the low and height in the high 32 bits, so both are read together.
    std::atomic<uint64_t> viewDim_{0};

    std::atomic<double> viewPan_{0.0};
    std::atomic<double> viewTilt_{0.0};
    std::atomic<double> viewFov_{120.0};
    std::atomic<double> panStepX_{0.0};  // stored only
    std::atomic<double> panStepY_{0.0};
    std::atomic<double> zoomFactor_{1.0};  // stored only
    std::atomic<bool> panning_{false};
    std::atomic<bool> zooming_{false};
    std::mutex viewLock_;  // the three queues below
    std::deque<double> panQueue_;
    std::deque<double> tiltQueue_;
    std::deque<double> zoomQueue_;
    PanoramaLens lens_;
    PixelConvertModule pixelConvert_;
    TimeFreezeList freezes_;

    Thread renderThread_;
    Thread presentThread_;
    FrameQueue decodedQueue_{kDecodedBound};
    FrameQueue renderedQueue_{kRenderedBound};

    std::mutex sampleLock_;  // current samples and the writing of currentPlayTime_
    InlayBuffer* currentPreSample_ = nullptr;
    InlayBuffer* currentViewSample_ = nullptr;
    std::atomic<int64_t> currentPlayTime_{0};

    std::atomic<float> msPerTick_{0.0f};
    int64_t clockOrigin_ = 0;                 // present thread only
    std::vector<const uint32_t*> rowTable_;  // render thread only

    StreamInfo videoStreamInfo_{};
    uint8_t audioStreamInfo_[kAudioStreamInfoBytes] = {};
};

}  // namespace vexel
