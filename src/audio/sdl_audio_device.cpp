// The SDL output of AudioDevice. SDL's audio subsystem is started once per process, on the first
// device asked for, and kept; its calls are serialised by one lock.
#include <glob.h>

#include <SDL2/SDL.h>
#include <cstdlib>
#include <mutex>
#include <string>
#include <sys/stat.h>

#include "audio/audio_device.h"

namespace vexel {

namespace {

std::mutex& SdlLock() {
    static std::mutex lock;
    return lock;
}

bool Exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

// Whether any sound output could be reached: a sound card, a sound server's socket, an ALSA
// configuration of the user's (which may point anywhere) or an SDL driver chosen by name. Where
// none is, SDL is not asked at all: its ALSA driver would have libasound print its failures to the
// terminal ("ALSA lib ... cannot find card '0'").
bool SoundOutputMayExist() {
    if (std::getenv("SDL_AUDIODRIVER") != nullptr || std::getenv("PULSE_SERVER") != nullptr)
        return true;
    glob_t cards{};
    const bool card = glob("/dev/snd/pcmC*", GLOB_NOSORT, nullptr, &cards) == 0;
    globfree(&cards);
    if (card || Exists("/etc/asound.conf") || Exists("/run/pulse/native")) return true;
    if (const char* home = std::getenv("HOME");
        home != nullptr && Exists(std::string(home) + "/.asoundrc"))
        return true;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime != nullptr && (Exists(std::string(runtime) + "/pulse/native") ||
                                  Exists(std::string(runtime) + "/pipewire-0"));
}

// Under SdlLock. False when SDL has no audio output here (no driver, or none that starts).
bool SdlAudioReady() {
    static int state = 0;  // 0 untried, 1 ready, -1 unavailable
    if (state == 0) {
        // A library leaves the host's signals alone.
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
        state = SoundOutputMayExist() && SDL_InitSubSystem(SDL_INIT_AUDIO) == 0 ? 1 : -1;
    }
    return state == 1;
}

class SdlAudioDevice final : public AudioDevice {
public:
    SdlAudioDevice(const WAVEFORMATEX& format, PullFn pull)
        : AudioDevice(format, std::move(pull)) {}

    ~SdlAudioDevice() override {
        if (id_ == 0) return;
        std::lock_guard<std::mutex> guard(SdlLock());
        SDL_CloseAudioDevice(id_);  // returns once the callback has finished
    }

    bool OpenDevice() {
        SDL_AudioSpec want{};
        want.freq = static_cast<int>(format_.nSamplesPerSec);
        want.format = format_.wBitsPerSample == 8 ? AUDIO_U8 : AUDIO_S16LSB;
        want.channels = static_cast<Uint8>(format_.nChannels);
        want.samples = 512;
        want.callback = &SdlAudioDevice::Callback;
        want.userdata = this;
        std::lock_guard<std::mutex> guard(SdlLock());
        if (!SdlAudioReady()) return false;
        SDL_AudioSpec have{};
        // No changes allowed: SDL converts to whatever the hardware takes.
        id_ = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
        return id_ != 0;
    }

private:
    static void Callback(void* self, Uint8* stream, int length) {
        auto* device = static_cast<SdlAudioDevice*>(self);
        const uint32_t frames = static_cast<uint32_t>(length) / device->format_.nBlockAlign;
        device->Produce(stream, frames, PerfClock::now());
    }

    void StartPulling(PerfClock::time_point) override {
        std::lock_guard<std::mutex> guard(SdlLock());
        SDL_PauseAudioDevice(id_, 0);
    }

    SDL_AudioDeviceID id_ = 0;
};

}  // namespace

std::unique_ptr<AudioDevice> OpenSdlAudioDevice(const WAVEFORMATEX& format,
                                                AudioDevice::PullFn pull) {
    if (format.nChannels > 8 || (format.wBitsPerSample != 8 && format.wBitsPerSample != 16))
        return nullptr;
    auto device = std::make_unique<SdlAudioDevice>(format, std::move(pull));
    if (!device->OpenDevice()) return nullptr;
    return device;
}

}  // namespace vexel
