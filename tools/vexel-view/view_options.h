// Command line of vexel-view.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vexel-play/options.h"  // the layout, range and view options are vexel-play's

namespace view {

struct Freeze {
    double seconds = 0.0;   // media time
    double duration = 0.0;  // seconds
};

struct Options {
    std::string file;          // empty: the bundled sample
    uint32_t fisheyeMode = 0;  // the player's lens layout code
    bool layoutGiven = false;  // otherwise the file's spherical metadata decides
    double rangeStart = 0.0;   // seconds
    double rangeEnd = 0.0;     // seconds; 0: to the end
    play::View view;           // the starting view
    uint32_t width = 1280;     // window size
    uint32_t height = 720;
    std::string pathFile;         // a view path to load at the start
    std::vector<Freeze> freezes;  // time freezes to set
    bool fullscreen = false;
    bool paused = false;  // show the first frame and wait
    bool overlay = true;
    double quitAfter = 0.0;  // seconds; 0: run until closed
    std::string screenshot;  // PNG written when the program ends
};

// Parses argv; false after printing the problem (or the help, with *exitCode 0).
bool ParseOptions(int argc, char** argv, Options* options, int* exitCode);

}  // namespace view
