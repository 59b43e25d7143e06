// Player: one opened panorama video behind a PlayerHandle. It turns Play, Pause, Stop, Seek and
// Close into calls on the codec host's two reader controls and on its RenderEngine, and keeps the
// five-valued state that decides which calls have an effect.
//
// Threads: the host's threads call the public operations, one at a time for the control calls;
// the Player's command thread serves seek requests. `lock_` guards the seek request list and the
// hand-over of the current samples; `controlLock_` keeps a served seek and the host's control calls
// (Open, Play, Pause, Stop, Close) from running at once. Lock order: lock_, then controlLock_.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

#include "vexel/counted_ref.h"
#include "engine/render_engine.h"
#include "platform/thread.h"
#include "samples/inlay_buffer.h"
#include "vexel/codec_host.h"

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
    int32_t Play(int64_t time);
    int32_t Pause();  // ERR_WRONG_STATE unless Playing
    int32_t Stop();   // ERR_WRONG_STATE when Closed
    int32_t ClearSeekRequests();
    int32_t Close();           // ERR_WRONG_STATE when Closed already
    int32_t Seek(int64_t time);  // queued; only the newest pending request is served

    void GetRange(uint64_t* start, uint64_t* end) const;
    double GetFrameRate() const { return frameRate_; }
    uint32_t GetWidth() const { return videoInfo_.width >> 1; }
    uint32_t GetHeight() const { return videoInfo_.height >> 1; }
    int64_t GetCurrentPlayTime() const;
    InlayBuffer* GetCurrentPreSample();
    InlayBuffer* GetCurrentViewSample();
    void SetViewDim(uint32_t width, uint32_t height);
    int32_t SetVolume(int32_t volume);
    int32_t Mute(bool mute);
    // Renders a sample at the engine's view size; nothing while Playing or before the first Open.
    void GetView(const InlayBuffer* sample, uint8_t* destination);

    PlayerState state() const { return state_.load(); }
    // The engine of the last opened file (view control and time freeze work in any state), and the
    // same only while Playing (the pan and zoom gestures).
    RenderEngine* engine() const { return engine_.get(); }
    RenderEngine* EngineWhilePlaying() const {
        return state_.load() == PlayerState::Playing ? engine_.get() : nullptr;
    }

private:
    int32_t OpenVideoStream(const char* path, CountedRef<MediaReader>& readerOut);
    CountedRef<MediaReader> OpenAudioStream(const char* path);
    int32_t PlayLocked(int64_t time);
    int32_t StopLocked();
    int32_t CloseLocked();
    int32_t SeekNow(int64_t time);
    // Polls the video reader every 10 ms until it can be repositioned; false if the player is
    // being destroyed meanwhile. A control without a status interface counts as ready.
    bool WaitForVideoReader();
    void DropCurrentSamples();
    void CommandThreadProc();

    StreamInfo videoInfo_{};
    uint8_t audioInfo_[kAudioStreamInfoBytes] = {};
    std::atomic<PlayerState> state_{PlayerState::Closed};
    CountedRef<PlaybackControl> videoControl_;
    CountedRef<PlaybackControl> audioControl_;
    int32_t volume_ = 0;
    uint32_t muted_ = 0;
    uint64_t rangeStart_ = 0;
    uint64_t rangeEnd_ = 0;
    uint64_t duration_ = 0;
    double frameRate_ = 0.0;
    std::unique_ptr<RenderEngine> engine_;
    const uint32_t decodeMode_ = 1;

    std::mutex lock_;
    std::list<int64_t> seekRequests_;
    std::atomic<size_t> seekRequestCount_{0};  // read by the command thread without lock_
    std::mutex controlLock_;
    std::atomic<bool> stopThread_{false};
    std::mutex wakeLock_;
    std::condition_variable wake_;  // ends the command thread's 5 ms pause early on destruction
    Thread commandThread_;
};

}  // namespace vexel
