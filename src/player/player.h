// Player: one opened panorama video behind a PlayerHandle. It turns Play, Pause, Stop, Seek and
// Close into calls on the codec host's two reader controls and on its RenderEngine, keeps the
// five-valued state that decides which calls have an effect, and forwards the view, time-freeze
// and sample calls of the exports to the engine.
//
// Threads: the host's threads call every public operation but the destructor from any thread, at
// any time; the control calls (Open, Play, Pause, Stop, Close) are serialised by controlLock_. The
// command thread serves seek requests. Locks, taken in this order and no other:
// - lock_ guards the seek request slot only, held for a moment: Seek never waits for a seek;
// - controlLock_ keeps a served seek and the host's control calls from running at once;
// - engineLock_ guards engine_: Open replaces it holding controlLock_ and engineLock_, the control
//   calls read it under controlLock_, every forwarded call copies it under engineLock_ alone and
//   calls the engine outside that lock. An engine replaced meanwhile lives until the last call
//   on it returns, and no forwarded call waits for a control call (a Play waiting for a busy
//   reader).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "engine/render_engine.h"
#include "platform/thread.h"
#include "samples/inlay_buffer.h"
#include "vexel/codec_host.h"
#include "vexel/counted_ref.h"
#include "vexel/ticks.h"

namespace vexel {

enum class PlayerState : uint32_t {
    Playing = 0,
    Paused = 1,
    Seeking = 2,
    Stopped = 3,
    Closed = 4,
};

class Player {
public:
    Player();   // Closed, with the command thread running
    ~Player();  // ends the command thread, closes, frees the engine
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // 0, or -1 when the file has no usable video stream or the codec host is missing. A player
    // that is not Closed is closed first.
    int32_t Open(const char* path, uint64_t start, uint64_t end, uint32_t fisheyeMode);
    // Status of the video reader's Run; ERR_WRONG_STATE when no file is open.
    int32_t Play(Ticks time);
    int32_t Pause();  // ERR_WRONG_STATE unless Playing
    int32_t Stop();   // ERR_WRONG_STATE when Closed
    int32_t ClearSeekRequests();
    int32_t Close();           // ERR_WRONG_STATE when Closed already
    int32_t Seek(Ticks time);  // queued; only the newest pending request is served

    void GetRange(uint64_t* start, uint64_t* end) const;
    double GetFrameRate() const { return frameRate_.load(); }
    uint32_t GetWidth() const { return width_.load() >> 1; }
    uint32_t GetHeight() const { return height_.load() >> 1; }
    Ticks GetCurrentPlayTime() const;
    InlayBuffer* GetCurrentPreSample();
    InlayBuffer* GetCurrentViewSample();
    void SetViewDim(uint32_t width, uint32_t height);
    int32_t SetVolume(int32_t volume);
    int32_t Mute(bool mute);
    // Renders a sample at the engine's view size; nothing while Playing or before the first Open.
    void GetView(const InlayBuffer* sample, uint8_t* destination);

    // View control and time freeze reach the engine of the last opened file in every state; the
    // pan and zoom gestures only while Playing. Without an engine they do nothing, GetTimeFreeze
    // gives 0 and TimeFreeze its time unchanged.
    void SetView(double pan, double tilt, double fov);
    void StartPan();
    void SetPanStep(double x, double y);
    void AddPan(double pan, double tilt);
    void EndPan();
    void StartZoom();
    void AddZoom(double fov);
    void EndZoom();
    void SetTimeFreeze(const double* times, const double* durations, int32_t count);
    int32_t GetTimeFreeze(double* times, double* durations, int32_t capacity);
    double TimeFreeze(double time, double duration);

private:
    std::shared_ptr<RenderEngine> Engine() const;  // copied under engineLock_
    std::shared_ptr<RenderEngine> EngineWhilePlaying() const;
    // Makes the new engine at the point the old one goes, so one engine (and one sound output)
    // exists at a time; the new engine is published by Open once set up.
    void DropEngineLocked();
    int32_t OpenLocked(const char* path, uint64_t start, uint64_t end, uint32_t fisheyeMode,
                       std::shared_ptr<RenderEngine>& engine);
    int32_t OpenVideoStream(const char* path, CountedRef<MediaReader>& readerOut,
                            std::shared_ptr<RenderEngine>& engine);
    CountedRef<MediaReader> OpenAudioStream(const char* path, RenderEngine& engine);
    int32_t PlayLocked(Ticks time);
    int32_t StopLocked();
    int32_t CloseLocked();
    // Serves a request unless a Play, Close or Open dropped it since it was taken (generation).
    int32_t SeekNow(Ticks time, uint64_t generation);
    // Play and seek targets brought into [0, duration + time freezes] before any arithmetic.
    Ticks ClampToTimeline(Ticks time) const;
    // Polls the video reader every 10 ms until it can be repositioned (the host offers no
    // notification); false if the player is being destroyed meanwhile. A control without a status
    // interface counts as ready.
    bool WaitForVideoReader();
    bool VideoReaderReady() const;  // idle or ended: it takes new positions
    void DropCurrentSamples();
    // Lets the command thread look at the state again after a control call changed it.
    void WakeCommandThread();
    void CommandThreadProc();

    StreamInfo videoInfo_{};
    uint8_t audioInfo_[kAudioStreamInfoBytes] = {};
    std::atomic<PlayerState> state_{PlayerState::Closed};
    CountedRef<PlaybackControl> videoControl_;
    CountedRef<PlaybackControl> audioControl_;
    // Written by Open under controlLock_, read by the queries from any thread.
    std::atomic<uint32_t> width_{0};
    std::atomic<uint32_t> height_{0};
    std::atomic<uint64_t> rangeStart_{0};
    std::atomic<uint64_t> rangeEnd_{0};
    std::atomic<uint64_t> duration_{0};  // below 2^63
    std::atomic<double> frameRate_{0.0};
    std::atomic<int32_t> volume_{0};
    const uint32_t decodeMode_ = 1;

    std::mutex lock_;
    std::condition_variable commandWake_;      // with lock_: a request, a state change, or the end
    std::optional<Ticks> seekRequest_;         // the newest pending request; older ones are dropped
    std::atomic<uint64_t> seekGeneration_{0};  // counts drops of the seek requests
    std::mutex controlLock_;
    mutable std::mutex engineLock_;
    std::shared_ptr<RenderEngine> engine_;
    std::atomic<bool> stopThread_{false};
    Thread commandThread_;
};

}  // namespace vexel
