// Command line of vexel-play.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace play {

struct View {
    double pan = 0.0;
    double tilt = 0.0;
    double fov = 90.0;
};

// A view the camera reaches at a media time; between two keys it moves evenly.
struct TimedView {
    double seconds = 0.0;
    View view;
};

struct Options {
    std::string file;             // empty: the bundled sample
    uint32_t fisheyeMode = 0;     // the player's lens layout code
    bool layoutGiven = false;     // --layout given; otherwise the file's metadata decides
    double rangeStart = 0.0;      // seconds
    double rangeEnd = 0.0;        // seconds; 0: to the end
    uint32_t viewWidth = 1280;
    uint32_t viewHeight = 720;
    View view;                    // the starting view
    std::vector<TimedView> path;  // timed views, sorted by time; empty: the view stays put
    std::string outputFolder = "out";
    bool quiet = false;
};

// Parses argv; false after printing the problem (or the help, with *exitCode 0).
bool ParseOptions(int argc, char** argv, Options* options, int* exitCode);

// Option values shared with vexel-view; false for malformed text.
bool ParseNumber(std::string_view text, double* value);
bool ParseView(std::string_view text, View* view);              // P,T,F with 0 < F < 180
bool ParseRange(std::string_view text, double* start, double* end);  // A:B seconds, either may be left out
bool ParseSize(std::string_view text, uint32_t* width, uint32_t* height);  // WxH, made even

// The view at `seconds` of media time: the path's view there, or the starting view.
View ViewAt(const Options& options, double seconds);

}  // namespace play
