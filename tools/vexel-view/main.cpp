// vexel-view: an interactive panorama video viewer over the public C interface of
// libVexelPlayer.so, with SDL2 for the window and the input.
#include <cstdio>
#include <filesystem>
#include <string>

#include "panorama_layout.h"
#include "view_options.h"
#include "viewer.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

// The sample `make run` makes: build/sample/vexel-sample.mp4, beside this program's folder.
std::string BundledSample() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return {};
    return (self.parent_path().parent_path() / "sample" / "vexel-sample.mp4").string();
}

}  // namespace

int main(int argc, char** argv) {
    view::Options options;
    int exitCode = 0;
    if (!view::ParseOptions(argc, argv, &options, &exitCode)) return exitCode;
    if (options.file.empty()) {
        options.file = BundledSample();
        if (options.file.empty() || !std::filesystem::exists(options.file)) {
            std::fprintf(stderr, "vexel-view: no file given and no bundled sample at %s (make view makes it)\n",
                         options.file.c_str());
            return 2;
        }
    }
    av_log_set_level(AV_LOG_ERROR);

    mediakit::LayoutChoice layout;
    if (options.layoutGiven) {
        layout.fisheyeMode = options.fisheyeMode;
        layout.description = "given";
    } else {
        mediakit::SphericalMetadata metadata;
        std::string error;
        if (mediakit::ProbeSphericalMetadata(options.file, &metadata, &error)) {
            layout = mediakit::ChooseLayout(metadata);
            if (layout.leftEye != mediakit::EyeRegion::Whole) layout.description += "; showing the left eye";
        } else {
            layout.description = "metadata not read: " + error;
        }
    }
    std::printf("vexel-view: %s: layout %s (%s)\n", options.file.c_str(), mediakit::LayoutName(layout.fisheyeMode),
                layout.description.c_str());
    std::fflush(stdout);

    view::Viewer viewer(options, layout);
    return viewer.Run();
}
