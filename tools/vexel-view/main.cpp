// vexel-view: an interactive panorama video viewer over the public C interface of
// libVexelPlayer.so, with SDL2 for the window and the input.
#include <cstdio>
#include <string>

#include "panorama_layout.h"
#include "view_options.h"
#include "viewer.h"

extern "C" {
#include <libavutil/log.h>
}

int main(int argc, char** argv) {
    view::Options options;
    int exitCode = 0;
    if (!view::ParseOptions(argc, argv, &options, &exitCode)) return exitCode;
    if (options.file.empty() && !play::FindBundledSample("vexel-view", &options.file)) return 2;
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
            if (layout.leftEye != mediakit::EyeRegion::Whole)
                layout.description += "; showing the left eye";
        } else {
            layout.description = "metadata not read: " + error;
        }
    }
    std::printf("vexel-view: %s: layout %s (%s)\n", options.file.c_str(),
                mediakit::LayoutName(layout.fisheyeMode), layout.description.c_str());
    std::fflush(stdout);

    view::Viewer viewer(options, layout);
    return viewer.Run();
}
