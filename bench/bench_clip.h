// The clips the playback benchmarks play, made once with vexel-make-sample and kept in the build
// folder. Header-only, so every benchmark program shares it.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

// `clip`, made with `makeSample options clip` unless it exists already; exits when that fails.
inline std::string MakeClipOnce(const char* makeSample, const std::string& clip,
                                const std::string& options) {
    if (std::filesystem::exists(clip)) return clip;
    std::printf("making %s (once)...\n", clip.c_str());
    std::fflush(stdout);
    const std::string command =
        std::string(makeSample) + " " + options + " " + clip + " > /dev/null";
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "could not make the clip\n");
        std::exit(1);
    }
    return clip;
}
