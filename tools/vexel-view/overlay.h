// The information overlay: a translucent band along the bottom of the window with the time and
// duration, the view, presented frames per second, late frames, the sound and the path state, and
// a time bar with the time-freeze stretches marked. Drawn into a canvas of 32-bit pixels with
// alpha (0xAARRGGBB), which the viewer lays over the picture.
//
// Threads: free functions; a canvas is drawn by one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "camera.h"
#include "canvas.h"

namespace view {

struct Stretch {
    double start = 0.0;  // seconds from the start of the range, on the presentation timeline
    double length = 0.0;
};

struct OverlayInfo {
    double time = 0.0;      // seconds from the start of the range
    double duration = 0.0;  // seconds, freezes included
    std::vector<Stretch> freezes;
    Angles view;
    double fps = 0.0;
    size_t lateFrames = 0;
    bool paused = false;
    bool muted = false;
    int volume = 0;  // hundredths of a decibel
    bool followingPath = false;
    std::string message;  // the last thing done (saved, loaded, ...)
};

struct Rect {
    int x = 0, y = 0, w = 0, h = 0;
};

// Height of the overlay band in pixels.
int OverlayHeight();
// The time bar, in the coordinates of a window of the given size.
Rect TimeBarRect(int windowWidth, int windowHeight);
// Seconds from the start of the range at column x of the time bar, clamped to [0, duration].
double TimeAtColumn(const Rect& bar, int x, double duration);

// Draws the overlay into `canvas`, resized to width x OverlayHeight().
void DrawOverlay(const OverlayInfo& info, int width, mediakit::Canvas* canvas);

}  // namespace view
