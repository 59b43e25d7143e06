#include "audio/pcm_gain.h"

#include <cmath>

namespace vexel {

double VolumeToGain(int32_t volume) {
    if (volume <= kVolumeSilent) return 0.0;
    if (volume >= kVolumeFull) return 1.0;
    return std::pow(10.0, volume / 2000.0);
}

void ApplyVolume(uint8_t* data, size_t bytes, uint16_t bitsPerSample, int32_t volume) {
    if (volume >= kVolumeFull || data == nullptr) return;
    const double gain = VolumeToGain(volume);
    if (bitsPerSample == 8) {
        for (size_t i = 0; i < bytes; ++i) {
            data[i] = static_cast<uint8_t>(std::lround((data[i] - 128) * gain) + 128);
        }
    } else if (bitsPerSample == 16) {
        for (size_t i = 0; i + 1 < bytes; i += 2) {
            const auto sample = static_cast<int16_t>(data[i] | (data[i + 1] << 8));
            const auto scaled =
                static_cast<uint16_t>(static_cast<int16_t>(std::lround(sample * gain)));
            data[i] = static_cast<uint8_t>(scaled);
            data[i + 1] = static_cast<uint8_t>(scaled >> 8);
        }
    }
}

}  // namespace vexel
