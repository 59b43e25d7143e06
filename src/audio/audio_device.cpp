#include "audio/audio_device.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "common/log.h"
#include "platform/thread.h"

namespace vexel {

std::unique_ptr<AudioDevice> AudioDevice::Open(const WAVEFORMATEX& format, PullFn pull) {
    if (std::unique_ptr<AudioDevice> device = OpenSdlAudioDevice(format, pull)) return device;
    static std::atomic<bool> reported{false};
    if (!reported.exchange(true))
        LogAt(LogLevel::Info, "vexel: no audio output device; sound plays on a silent device\n");
    return OpenSilentAudioDevice(format, std::move(pull));
}

void AudioDevice::Start(PerfClock::time_point origin) {
    if (started_) return;
    started_ = true;
    capture_ = WavCapture::FromEnvironment(format_);  // before the device thread can write
    StartPulling(origin);
}

void AudioDevice::Produce(uint8_t* out, uint32_t frames, PerfClock::time_point firstFrameAt) {
    pull_(out, frames, firstFrameAt);
    if (capture_) capture_->Write(out, size_t{frames} * format_.nBlockAlign);
}

namespace {

// Takes the frames due since Start every few milliseconds, as a sound card would play them.
class SilentAudioDevice final : public AudioDevice {
public:
    SilentAudioDevice(const WAVEFORMATEX& format, PullFn pull)
        : AudioDevice(format, std::move(pull)) {}

    ~SilentAudioDevice() override {
        {
            std::lock_guard<std::mutex> guard(lock_);
            stop_ = true;
        }
        wake_.notify_all();
        thread_.Join();
    }

private:
    static constexpr auto kPeriod = std::chrono::milliseconds(5);
    static constexpr uint32_t kMaxChunk = 4096;  // frames per pull

    void StartPulling(PerfClock::time_point origin) override {
        origin_ = origin;
        thread_.Start([this] { Loop(); }, "vexel-audio");
    }

    void Loop() {
        std::vector<uint8_t> buffer;
        try {
            buffer.resize(size_t{kMaxChunk} * format_.nBlockAlign);
        } catch (...) {
            return;  // without memory the device stays mute and takes nothing
        }
        const auto rate = static_cast<int64_t>(format_.nSamplesPerSec);
        int64_t produced = 0;
        bool stopping = false;
        while (!stopping) {
            {
                std::unique_lock<std::mutex> lock(lock_);
                stopping = wake_.wait_for(lock, kPeriod, [this] { return stop_; });
            }
            // Everything due up to now, also on the way out, so the capture covers the device's
            // life.
            const auto elapsed =
                std::chrono::duration_cast<std::chrono::nanoseconds>(PerfClock::now() - origin_);
            const int64_t due =
                static_cast<int64_t>(static_cast<__int128>(elapsed.count()) * rate / 1'000'000'000);
            while (produced < due) {
                const auto frames =
                    static_cast<uint32_t>(std::min<int64_t>(due - produced, kMaxChunk));
                const auto at =
                    origin_ + std::chrono::duration_cast<PerfClock::duration>(
                                  std::chrono::nanoseconds(static_cast<int64_t>(
                                      static_cast<__int128>(produced) * 1'000'000'000 / rate)));
                Produce(buffer.data(), frames, at);
                produced += frames;
            }
        }
    }

    PerfClock::time_point origin_;
    std::mutex lock_;
    std::condition_variable wake_;
    bool stop_ = false;
    Thread thread_;
};

}  // namespace

std::unique_ptr<AudioDevice> OpenSilentAudioDevice(const WAVEFORMATEX& format,
                                                   AudioDevice::PullFn pull) {
    return std::make_unique<SilentAudioDevice>(format, std::move(pull));
}

}  // namespace vexel
