// Volume in hundredths of a decibel applied to PCM samples: gain 10^(volume / 2000), -10000 silent.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexel {

inline constexpr int32_t kVolumeFull = 0;
inline constexpr int32_t kVolumeSilent = -10000;

// The linear gain of `volume`: 1 at 0, 0 at -10000 and below.
double VolumeToGain(int32_t volume);

// Scales `bytes` bytes of 8-bit unsigned or 16-bit signed little-endian samples in place.
void ApplyVolume(uint8_t* data, size_t bytes, uint16_t bitsPerSample, int32_t volume);

}  // namespace vexel
