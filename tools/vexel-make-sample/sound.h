// The sample's stereo sound track: a 1 kHz beep during the first tenth of every second (with the
// picture's flash), panned towards the side where the marker is, silence in between.
#pragma once

#include <cstdint>
#include <vector>

#include "scene.h"

namespace sample {

// Interleaved stereo 16-bit samples [first, first + count) of the track at `rate` per second.
std::vector<int16_t> SoundSamples(const Scene& scene, int64_t first, int count, int rate);

}  // namespace sample
