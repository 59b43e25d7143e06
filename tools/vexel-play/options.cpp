#include "options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>

#include "panorama_layout.h"

namespace play {

namespace {

void Usage(std::FILE* out) {
    std::fprintf(
        out,
        "usage: vexel-play [options] [FILE]\n"
        "Plays a panorama video in real time through libVexelPlayer.so, records the views it\n"
        "presents and prints how well it kept time.\n"
        "  FILE                 a video file or URL (default: the bundled sample)\n"
        "  -l, --layout L       lens layout: equirect, fisheye, dual-fisheye (default: from the\n"
        "                       file's spherical metadata, else equirect). Stereo files "
        "(top-bottom\n"
        "                       or side-by-side) are played as one picture: the views show both "
        "eyes\n"
        "  -r, --range A:B      play from A to B seconds (either may be left out)\n"
        "  -s, --size WxH       view size in pixels (default 1280x720)\n"
        "  -v, --view P,T,F     starting view: pan, tilt, field of view in degrees (default "
        "0,0,90)\n"
        "  -p, --path LIST      timed views SEC=P,T,F;SEC=P,T,F;... the camera moves evenly\n"
        "                       between them (e.g. \"0=0,0,90;10=360,0,90\" turns round once)\n"
        "  -o, --out DIR        output folder for view.mp4 and contact-sheet.png (default out)\n"
        "  -q, --quiet          no progress bar\n");
}

}  // namespace

bool ParseNumber(std::string_view text, double* value) {
    const std::string copy(text);
    char* end = nullptr;
    *value = std::strtod(copy.c_str(), &end);
    return !copy.empty() && end == copy.c_str() + copy.size();
}

bool ParseView(std::string_view text, View* view) {
    const size_t a = text.find(','), b = a == std::string_view::npos ? a : text.find(',', a + 1);
    return b != std::string_view::npos && ParseNumber(text.substr(0, a), &view->pan) &&
           ParseNumber(text.substr(a + 1, b - a - 1), &view->tilt) &&
           ParseNumber(text.substr(b + 1), &view->fov) && view->fov > 0.0 && view->fov < 180.0;
}

namespace {

bool ParsePath(std::string_view text, std::vector<TimedView>* path) {
    std::istringstream stream{std::string(text)};
    std::string item;
    while (std::getline(stream, item, ';')) {
        if (item.empty()) continue;
        const size_t equals = item.find('=');
        TimedView key;
        if (equals == std::string::npos ||
            !ParseNumber(std::string_view(item).substr(0, equals), &key.seconds) ||
            !ParseView(std::string_view(item).substr(equals + 1), &key.view)) {
            return false;
        }
        path->push_back(key);
    }
    std::stable_sort(path->begin(), path->end(),
                     [](const TimedView& a, const TimedView& b) { return a.seconds < b.seconds; });
    return !path->empty();
}

}  // namespace

bool ParseRange(std::string_view text, double* start, double* end) {
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    const std::string_view a = text.substr(0, colon), b = text.substr(colon + 1);
    if (!a.empty() && !ParseNumber(a, start)) return false;
    if (!b.empty() && !ParseNumber(b, end)) return false;
    return *start >= 0.0 && *end >= 0.0 && (*end == 0.0 || *end > *start);
}

bool ParseSize(std::string_view text, uint32_t* width, uint32_t* height) {
    double w = 0, h = 0;
    const size_t x = text.find('x');
    if (x == std::string_view::npos || !ParseNumber(text.substr(0, x), &w) ||
        !ParseNumber(text.substr(x + 1), &h)) {
        return false;
    }
    if (w < 16 || h < 16 || w > 7680 || h > 4320) return false;
    // Even sizes, as H.264 wants them.
    *width = static_cast<uint32_t>(w) & ~1u;
    *height = static_cast<uint32_t>(h) & ~1u;
    return true;
}

bool WalkOptions(int argc, char** argv, const OptionWalk& walk, std::string* file, int* exitCode) {
    *exitCode = 2;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            walk.usage(stdout);
            *exitCode = 0;
            return false;
        }
        if (walk.isFlag(arg)) {
            walk.apply(arg, {});
            continue;
        }
        if (arg.empty() || arg[0] != '-') {
            if (!file->empty()) {
                std::fprintf(stderr, "%s: one file at a time (%s and %s)\n", walk.program,
                             file->c_str(), argv[i]);
                return false;
            }
            *file = arg;
            continue;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "%s: %s needs a value (see --help)\n", walk.program, argv[i]);
            return false;
        }
        if (!walk.apply(arg, argv[++i])) {
            std::fprintf(stderr, "%s: bad argument %s %s (see --help)\n", walk.program, argv[i - 1],
                         argv[i]);
            return false;
        }
    }
    return true;
}

bool ParseOptions(int argc, char** argv, Options* o, int* exitCode) {
    OptionWalk walk;
    walk.program = "vexel-play";
    walk.usage = Usage;
    walk.isFlag = [](std::string_view arg) { return arg == "-q" || arg == "--quiet"; };
    walk.apply = [o](std::string_view arg, std::string_view value) {
        if (arg == "-q" || arg == "--quiet") return o->quiet = true;
        if (arg == "-l" || arg == "--layout")
            return o->layoutGiven = mediakit::ParseLayoutName(value, &o->fisheyeMode);
        if (arg == "-r" || arg == "--range") return ParseRange(value, &o->rangeStart, &o->rangeEnd);
        if (arg == "-s" || arg == "--size") return ParseSize(value, &o->viewWidth, &o->viewHeight);
        if (arg == "-v" || arg == "--view") return ParseView(value, &o->view);
        if (arg == "-p" || arg == "--path") return ParsePath(value, &o->path);
        if (arg == "-o" || arg == "--out") return !(o->outputFolder = value).empty();
        return false;
    };
    return WalkOptions(argc, argv, walk, &o->file, exitCode);
}

bool FindBundledSample(const char* program, std::string* file) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) *file = (self.parent_path().parent_path() / "sample" / "vexel-sample.mp4").string();
    if (!error && std::filesystem::exists(*file)) return true;
    std::fprintf(stderr, "%s: no file given and no bundled sample at %s (make run makes it)\n",
                 program, file->c_str());
    return false;
}

View ViewAt(const Options& options, double seconds) {
    const std::vector<TimedView>& path = options.path;
    if (path.empty()) return options.view;
    if (seconds <= path.front().seconds) return path.front().view;
    for (size_t i = 1; i < path.size(); ++i) {
        const TimedView& a = path[i - 1];
        const TimedView& b = path[i];
        if (seconds <= b.seconds) {
            const double t =
                b.seconds > a.seconds ? (seconds - a.seconds) / (b.seconds - a.seconds) : 1.0;
            return {a.view.pan + (b.view.pan - a.view.pan) * t,
                    a.view.tilt + (b.view.tilt - a.view.tilt) * t,
                    a.view.fov + (b.view.fov - a.view.fov) * t};
        }
    }
    return path.back().view;
}

}  // namespace play
