// WavCapture: writes the PCM an audio device plays to a WAV file, as diagnostics and for tests. The
// file is made (or emptied) when the capture opens and its sizes are filled in when it closes.
//
// Threads: Write comes from the device's thread; opening and closing from the thread that starts
// and closes the device, never while a Write runs.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "vexel/media_graph.h"

namespace vexel {

class WavCapture {
public:
    // The capture named by VEXEL_AUDIO_CAPTURE, or null when it is not set or cannot be written.
    static std::unique_ptr<WavCapture> FromEnvironment(const WAVEFORMATEX& format);
    // Null when the file cannot be made.
    static std::unique_ptr<WavCapture> Open(const std::string& path, const WAVEFORMATEX& format);

    ~WavCapture();  // completes the header and closes the file
    WavCapture(const WavCapture&) = delete;
    WavCapture& operator=(const WavCapture&) = delete;

    void Write(const uint8_t* data, size_t size);

private:
    WavCapture(std::FILE* file, const WAVEFORMATEX& format) : file_(file), format_(format) {}
    void WriteHeader(uint32_t dataBytes);

    std::FILE* file_;
    WAVEFORMATEX format_;
    uint64_t dataBytes_ = 0;
    bool failed_ = false;
};

}  // namespace vexel
