#include "audio/wav_capture.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace vexel {

namespace {

constexpr uint32_t kHeaderBytes = 44;
// What the 32-bit sizes of a WAV file can describe; later data is not written.
constexpr uint64_t kMaxDataBytes = std::numeric_limits<uint32_t>::max() - kHeaderBytes;

void Put16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void Put32(uint8_t* p, uint32_t v) {
    Put16(p, static_cast<uint16_t>(v));
    Put16(p + 2, static_cast<uint16_t>(v >> 16));
}

}  // namespace

std::unique_ptr<WavCapture> WavCapture::FromEnvironment(const WAVEFORMATEX& format) {
    const char* path = std::getenv("VEXEL_AUDIO_CAPTURE");
    if (path == nullptr || path[0] == '\0') return nullptr;
    return Open(path, format);
}

std::unique_ptr<WavCapture> WavCapture::Open(const std::string& path, const WAVEFORMATEX& format) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return nullptr;
    std::unique_ptr<WavCapture> capture(new WavCapture(file, format));
    capture->WriteHeader(0);
    return capture;
}

WavCapture::~WavCapture() {
    if (!failed_ && std::fseek(file_, 0, SEEK_SET) == 0)
        WriteHeader(static_cast<uint32_t>(dataBytes_));
    std::fclose(file_);
}

void WavCapture::WriteHeader(uint32_t dataBytes) {
    uint8_t header[kHeaderBytes];
    std::memcpy(header, "RIFF", 4);
    Put32(header + 4, dataBytes + kHeaderBytes - 8);
    std::memcpy(header + 8, "WAVEfmt ", 8);
    Put32(header + 16, 16);
    Put16(header + 20, format_.wFormatTag);
    Put16(header + 22, format_.nChannels);
    Put32(header + 24, format_.nSamplesPerSec);
    Put32(header + 28, format_.nAvgBytesPerSec);
    Put16(header + 32, format_.nBlockAlign);
    Put16(header + 34, format_.wBitsPerSample);
    std::memcpy(header + 36, "data", 4);
    Put32(header + 40, dataBytes);
    if (std::fwrite(header, 1, sizeof(header), file_) != sizeof(header)) failed_ = true;
}

void WavCapture::Write(const uint8_t* data, size_t size) {
    if (failed_ || size == 0 || dataBytes_ + size > kMaxDataBytes) return;
    if (std::fwrite(data, 1, size, file_) != size) {
        failed_ = true;
        return;
    }
    dataBytes_ += size;
}

}  // namespace vexel
