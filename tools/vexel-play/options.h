// Command line of vexel-play.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
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
    std::string file;          // empty: the bundled sample
    uint32_t fisheyeMode = 0;  // the player's lens layout code
    bool layoutGiven = false;  // --layout given; otherwise the file's metadata decides
    double rangeStart = 0.0;   // seconds
    double rangeEnd = 0.0;     // seconds; 0: to the end
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
bool ParseView(std::string_view text, View* view);  // P,T,F with 0 < F < 180
bool ParseRange(std::string_view text, double* start,
                double* end);  // A:B seconds, either may be left out
bool ParseSize(std::string_view text, uint32_t* width, uint32_t* height);  // WxH, made even

// The command-line walk both players share: -h/--help prints the usage and ends with exit code 0;
// a word without a dash is the file (one at most); a flag (isFlag) is applied with an empty value;
// every other option takes the next argument, and apply returns false for a bad one. False after
// printing the problem, with *exitCode 2.
struct OptionWalk {
    const char* program = "";
    void (*usage)(std::FILE* out) = nullptr;
    std::function<bool(std::string_view option)> isFlag;
    std::function<bool(std::string_view option, std::string_view value)> apply;
};
bool WalkOptions(int argc, char** argv, const OptionWalk& walk, std::string* file, int* exitCode);

// The sample `make run` makes, build/sample/vexel-sample.mp4 beside the program's folder, into
// *file; false after printing that there is none.
bool FindBundledSample(const char* program, std::string* file);

// The view at `seconds` of media time: the path's view there, or the starting view.
View ViewAt(const Options& options, double seconds);

}  // namespace play
