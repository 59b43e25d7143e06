// The viewer's camera arithmetic: what a drag, a wheel notch or a key does to the view, and where
// a click on the time bar seeks. Pure functions, unit tested on their own.
#pragma once

namespace view {

struct Angles {
    double pan = 0.0;   // degrees, growing to the right
    double tilt = 0.0;  // degrees, growing upwards, within [-90, 90]
    double fov = 90.0;  // horizontal field of view, degrees, within [kMinFov, kMaxFov]
};

inline constexpr double kMinFov = 30.0;
inline constexpr double kMaxFov = 150.0;
inline constexpr double kFovPerNotch = 5.0;
inline constexpr double kNudgeDegrees = 5.0;

// The view after dragging the picture by (dx, dy) pixels in a window `width` pixels wide, from
// `start`: the picture follows the pointer, so a drag to the right turns the view to the left;
// one window width turns by the field of view, and the same degrees per pixel apply vertically.
// The pan is not wrapped, so a long drag stays continuous.
Angles Dragged(const Angles& start, double dx, double dy, int width);

// The view after `notches` wheel notches (positive: away from the user, zooming in).
Angles Zoomed(const Angles& view, int notches);

// Pan wrapped into [-180, 180).
double WrappedPan(double pan);

// Whether two views are the same to a hundredth of a degree.
bool SameView(const Angles& a, const Angles& b);

}  // namespace view
