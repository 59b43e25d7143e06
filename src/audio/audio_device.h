// AudioDevice: a sound output that asks for PCM as it plays it. Open tries the system's audio
// output through SDL; where none can be opened it falls back to a silent device that takes the
// samples on the same real-time clock (steady_clock), so playback runs alike with or without sound
// hardware. With VEXEL_AUDIO_CAPTURE=/path/file.wav set, everything the device plays from Start on,
// silences included, is also written to that file.
//
// Threads: Open, Start and destruction on the owner's thread (one at a time); the pull function
// runs on the device's own thread, never after the destructor has returned.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "audio/wav_capture.h"
#include "platform/perf_counter.h"
#include "vexel/media_graph.h"

namespace vexel {

class AudioDevice {
public:
    // Fills `frames` sample frames at `out`; the first of them sounds at `firstFrameAt`.
    using PullFn =
        std::function<void(uint8_t* out, uint32_t frames, PerfClock::time_point firstFrameAt)>;

    // A device for `format` (a checked PCM format), not yet pulling. Never null.
    static std::unique_ptr<AudioDevice> Open(const WAVEFORMATEX& format, PullFn pull);

    virtual ~AudioDevice() = default;
    AudioDevice(const AudioDevice&) = delete;
    AudioDevice& operator=(const AudioDevice&) = delete;

    // Starts playing: the device pulls continuously from then on, its first frame sounding at
    // `origin` (the instant asked for; a hardware device starts as soon as it can). Later calls
    // do nothing.
    void Start(PerfClock::time_point origin);

protected:
    AudioDevice(const WAVEFORMATEX& format, PullFn pull)
        : format_(format), pull_(std::move(pull)) {}

    virtual void StartPulling(PerfClock::time_point origin) = 0;
    // Pulls the next frames and writes them to the capture; on the device's thread.
    void Produce(uint8_t* out, uint32_t frames, PerfClock::time_point firstFrameAt);

    const WAVEFORMATEX format_;

private:
    PullFn pull_;
    bool started_ = false;
    std::unique_ptr<WavCapture> capture_;
};

// The SDL output for `format`, or null when SDL has no device to offer.
std::unique_ptr<AudioDevice> OpenSdlAudioDevice(const WAVEFORMATEX& format,
                                                AudioDevice::PullFn pull);
// A device without sound that pulls on the real-time clock.
std::unique_ptr<AudioDevice> OpenSilentAudioDevice(const WAVEFORMATEX& format,
                                                   AudioDevice::PullFn pull);

}  // namespace vexel
