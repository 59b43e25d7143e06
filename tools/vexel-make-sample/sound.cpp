#include "sound.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sample {

std::vector<int16_t> SoundSamples(const Scene& scene, int64_t first, int count, int rate) {
    constexpr double pi = std::numbers::pi;
    constexpr double kBeepSeconds = 0.1, kFadeSeconds = 0.005, kPitch = 1000.0, kLevel = 0.5;
    std::vector<int16_t> out(static_cast<size_t>(count) * 2, 0);
    for (int i = 0; i < count; ++i) {
        const double t = static_cast<double>(first + i) / rate;
        const double inSecond = t - std::floor(t);
        if (inSecond >= kBeepSeconds) continue;
        // Short fades at both ends keep the beep free of clicks.
        const double envelope =
            std::min({1.0, inSecond / kFadeSeconds, (kBeepSeconds - inSecond) / kFadeSeconds});
        const double value = kLevel * envelope * std::sin(2 * pi * kPitch * t);
        // Constant-power pan: east (right) of north is the right channel.
        const double side = std::sin(scene.MarkerLongitude(t) * pi / 180.0);
        const double angle = (side + 1.0) * pi / 4.0;
        out[2 * static_cast<size_t>(i)] =
            static_cast<int16_t>(std::lround(32767 * value * std::cos(angle)));
        out[2 * static_cast<size_t>(i) + 1] =
            static_cast<int16_t>(std::lround(32767 * value * std::sin(angle)));
    }
    return out;
}

}  // namespace sample
