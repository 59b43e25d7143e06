#include "view_options.h"

#include <cstdio>
#include <sstream>
#include <string_view>

#include "panorama_layout.h"

namespace view {

namespace {

void Usage(std::FILE* out) {
    std::fprintf(
        out,
        "usage: vexel-view [options] [FILE]\n"
        "Plays a panorama video in a window through libVexelPlayer.so; look around with the "
        "mouse.\n"
        "  FILE                 a video file or URL (default: the bundled sample)\n"
        "  -l, --layout L       lens layout: equirect, fisheye, dual-fisheye (default: from the\n"
        "                       file's spherical metadata, else equirect)\n"
        "  -r, --range A:B      play from A to B seconds (either may be left out)\n"
        "  -v, --view P,T,F     starting view: pan, tilt, field of view in degrees (default "
        "0,0,90)\n"
        "  -s, --size WxH       window size (default 1280x720)\n"
        "      --path FILE      load a view path (JSON, as S saves it) and follow it\n"
        "      --freeze LIST    time freezes SEC+DUR;SEC+DUR;... (media time and length, seconds)\n"
        "      --fullscreen     start in full screen\n"
        "      --paused         show the first picture and wait for Space\n"
        "      --no-overlay     start with the information overlay hidden\n"
        "      --quit-after S   end after S seconds (Escape and Q end at once)\n"
        "      --screenshot F   write the window as a PNG picture to F when ending, and print the\n"
        "                       time and view of the picture shown\n"
        "\n"
        "Stereo files (top-bottom or side-by-side, from the metadata): the player decodes the "
        "whole\n"
        "picture, both eyes, as one panorama; vexel-view cuts the left eye's half out of each\n"
        "panorama picture and renders the view of that half itself, so you see the left eye only.\n"
        "\n"
        "Mouse: drag with the left button to look around (the picture follows the pointer; one\n"
        "window width of drag turns by the field of view); the wheel zooms (field of view 30 to\n"
        "150); a click on the time bar seeks. Drags and zooms are recorded into the view path.\n"
        "Keys: Space play/pause   , .  one frame back/forward (paused)   Left/Right  seek 5 s\n"
        "      Home  back to the start   Up/Down  tilt   Shift+Left/Right  pan   M  mute\n"
        "      + -  volume   F  full screen   I  overlay   S  save the view path to "
        "FILE.view.json\n"
        "      L  load it   Q, Escape  quit\n");
}

bool ParseFreezes(std::string_view text, std::vector<Freeze>* freezes) {
    std::istringstream stream{std::string(text)};
    std::string item;
    while (std::getline(stream, item, ';')) {
        if (item.empty()) continue;
        const size_t plus = item.find('+');
        Freeze freeze;
        if (plus == std::string::npos ||
            !play::ParseNumber(std::string_view(item).substr(0, plus), &freeze.seconds) ||
            !play::ParseNumber(std::string_view(item).substr(plus + 1), &freeze.duration) ||
            freeze.seconds < 0 || freeze.duration <= 0) {
            return false;
        }
        freezes->push_back(freeze);
    }
    return !freezes->empty();
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options* o, int* exitCode) {
    play::OptionWalk walk;
    walk.program = "vexel-view";
    walk.usage = Usage;
    walk.isFlag = [](std::string_view arg) {
        return arg == "--fullscreen" || arg == "--paused" || arg == "--no-overlay";
    };
    walk.apply = [o](std::string_view arg, std::string_view value) {
        if (arg == "--fullscreen") return o->fullscreen = true;
        if (arg == "--paused") return o->paused = true;
        if (arg == "--no-overlay") return !(o->overlay = false);
        if (arg == "-l" || arg == "--layout")
            return o->layoutGiven = mediakit::ParseLayoutName(value, &o->fisheyeMode);
        if (arg == "-r" || arg == "--range")
            return play::ParseRange(value, &o->rangeStart, &o->rangeEnd);
        if (arg == "-v" || arg == "--view") return play::ParseView(value, &o->view);
        if (arg == "-s" || arg == "--size") return play::ParseSize(value, &o->width, &o->height);
        if (arg == "--path") return !(o->pathFile = value).empty();
        if (arg == "--freeze") return ParseFreezes(value, &o->freezes);
        if (arg == "--quit-after")
            return play::ParseNumber(value, &o->quitAfter) && o->quitAfter > 0;
        if (arg == "--screenshot") return !(o->screenshot = value).empty();
        return false;
    };
    return play::WalkOptions(argc, argv, walk, &o->file, exitCode);
}

}  // namespace view
