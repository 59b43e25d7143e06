// Reads back the WAV files the audio renderer writes with VEXEL_AUDIO_CAPTURE (44-byte header,
// PCM).
//
// Threads: test thread only.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

struct WavCaptureFile {
    bool ok = false;
    uint16_t channels = 0;
    uint32_t rate = 0;
    uint16_t bits = 0;
    std::vector<int16_t> samples;  // 16-bit files only, interleaved

    size_t Frames() const { return channels == 0 ? 0 : samples.size() / channels; }
    double Seconds() const { return rate == 0 ? 0.0 : static_cast<double>(Frames()) / rate; }
};

inline WavCaptureFile ReadWavCapture(const std::string& path) {
    WavCaptureFile wav;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return wav;
    uint8_t header[44];
    if (std::fread(header, 1, 44, file) == 44 && std::memcmp(header, "RIFF", 4) == 0 &&
        std::memcmp(header + 8, "WAVEfmt ", 8) == 0 && std::memcmp(header + 36, "data", 4) == 0) {
        std::memcpy(&wav.channels, header + 22, 2);
        std::memcpy(&wav.rate, header + 24, 4);
        std::memcpy(&wav.bits, header + 34, 2);
        uint32_t bytes = 0;
        std::memcpy(&bytes, header + 40, 4);
        if (wav.bits == 16) {
            wav.samples.resize(bytes / 2);
            wav.ok =
                std::fread(wav.samples.data(), 2, wav.samples.size(), file) == wav.samples.size();
        }
    }
    std::fclose(file);
    return wav;
}

// A capture file of this test's own, and the audio device forced to the silent real-time device
// (whatever sound hardware the machine has), set before any device starts.
inline std::string UseCaptureFile(const std::string& name) {
    const char* dir = std::getenv("TMPDIR");
    std::string path = std::string(dir != nullptr && dir[0] != '\0' ? dir : "/tmp") +
                       "/vexel-capture-" + name + "-" + std::to_string(::getpid()) + ".wav";
    ::setenv("VEXEL_AUDIO_CAPTURE", path.c_str(), 1);
    ::setenv("SDL_AUDIODRIVER", "vexel-no-such-driver", 1);
    return path;
}
