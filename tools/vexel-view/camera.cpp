#include "camera.h"

#include <algorithm>
#include <cmath>

namespace view {

Angles Dragged(const Angles& start, double dx, double dy, int width) {
    const double degreesPerPixel = start.fov / std::max(width, 1);
    Angles v = start;
    v.pan = start.pan - dx * degreesPerPixel;
    v.tilt = std::clamp(start.tilt + dy * degreesPerPixel, -90.0, 90.0);
    return v;
}

Angles Zoomed(const Angles& view, int notches) {
    Angles v = view;
    v.fov = std::clamp(view.fov - notches * kFovPerNotch, kMinFov, kMaxFov);
    return v;
}

double WrappedPan(double pan) {
    const double wrapped = std::fmod(pan + 180.0, 360.0);
    return (wrapped < 0 ? wrapped + 360.0 : wrapped) - 180.0;
}

bool SameView(const Angles& a, const Angles& b) {
    constexpr double kTolerance = 0.01;
    return std::abs(WrappedPan(a.pan - b.pan)) < kTolerance &&
           std::abs(a.tilt - b.tilt) < kTolerance && std::abs(a.fov - b.fov) < kTolerance;
}

}  // namespace view
