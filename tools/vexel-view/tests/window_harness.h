// What the window tests drive vexel-view with: a virtual X server of their own (Xvfb), the viewer
// as a child process whose output lines are read, real input events through xdotool, and the
// expected pictures, rendered through the player's C interface from the same clip.
//
// Threads: used from the test's main thread only.
#pragma once

#include <chrono>
#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

#include "canvas.h"
#include "vexelplayer.h"

namespace viewtest {

using Seconds = std::chrono::duration<double>;

// A child process, stdout read line by line; ended with `stopSignal` and reaped when destroyed.
class Child {
public:
    explicit Child(const std::vector<std::string>& args, int stopSignal = SIGKILL);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The next output line that starts with `prefix` (earlier lines are kept in output()); false
    // when the process ends or `limit` passes first.
    bool WaitForLine(const std::string& prefix, Seconds limit, std::string* line);
    // The exit code, or -1 when `limit` passes (the process is then killed).
    int Wait(Seconds limit);
    const std::string& output() const { return output_; }

private:
    pid_t pid_ = -1;
    int out_ = -1;
    const int stopSignal_;
    bool ended_ = false;  // the pipe closed: the process is ending
    std::string buffer_;
    std::string output_;
};

// Xvfb on a free display, made the DISPLAY of this process and its children.
class VirtualDisplay {
public:
    VirtualDisplay();
    bool ready() const { return !name_.empty(); }

private:
    Child server_;
    std::string name_;
};

// Runs xdotool with `args`; true when it succeeded.
bool Xdotool(const std::vector<std::string>& args, std::string* output = nullptr);

// What the viewer printed with its screenshot.
struct Shot {
    int width = 0, height = 0;
    double seconds = 0.0;
    double pan = 0.0, tilt = 0.0, fov = 0.0;
};
bool ParseShot(const std::string& line, Shot* shot);

// The panorama picture of a clip at a presentation time, through the player (Seek while stopped).
class Panorama {
public:
    // `leftEyeOnTop`: keep only the top half, the left eye of a top-bottom stereo clip.
    Panorama(const std::string& clip, double seconds, bool leftEyeOnTop = false);
    ~Panorama();
    Panorama(const Panorama&) = delete;
    Panorama& operator=(const Panorama&) = delete;

    bool ok() const { return sample_ != nullptr; }
    // The view the player renders of this picture.
    mediakit::Canvas View(double pan, double tilt, double fov, int width, int height) const;

private:
    InlayBuffer* sample_ = nullptr;
};

// Mean absolute difference of the R, G and B bytes of two pictures of the same size, over their
// top `rows` rows (all when 0), 0 to 255 (255 for pictures of different sizes).
double MeanDifference(const mediakit::Canvas& a, const mediakit::Canvas& b, int rows = 0);

}  // namespace viewtest
