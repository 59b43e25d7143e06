// vexel-play: a host of libVexelPlayer.so that uses only its public C interface. It plays a
// panorama video in real time, records the presented views to view.mp4, writes a contact sheet
// and prints how punctually the frames came and how fast the library decoded them.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>

#include "contact_sheet.h"
#include "options.h"
#include "panorama_layout.h"
#include "playback.h"
#include "recorder.h"
#include "timing_stats.h"
#include "vexel/ticks.h"
#include "vexelplayer.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

std::atomic<bool> interrupted{false};

void OnInterrupt(int) { interrupted.store(true); }

double CpuSeconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + now.tv_nsec * 1e-9;
}

}  // namespace

int main(int argc, char** argv) {
    play::Options options;
    int exitCode = 0;
    if (!play::ParseOptions(argc, argv, &options, &exitCode)) return exitCode;
    if (options.file.empty() && !play::FindBundledSample("vexel-play", &options.file)) return 2;
    av_log_set_level(AV_LOG_ERROR);
    std::signal(SIGINT, OnInterrupt);

    const std::filesystem::path folder(options.outputFolder);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::string videoPath = (folder / "view.mp4").string();
    const std::string sheetPath = (folder / "contact-sheet.png").string();

    // Without --layout the file's spherical metadata decides.
    std::string layoutLine = std::string(mediakit::LayoutName(options.fisheyeMode)) + " (given)";
    if (!options.layoutGiven) {
        mediakit::SphericalMetadata metadata;
        std::string probeError;
        if (mediakit::ProbeSphericalMetadata(options.file, &metadata, &probeError)) {
            const mediakit::LayoutChoice choice = mediakit::ChooseLayout(metadata);
            options.fisheyeMode = choice.fisheyeMode;
            layoutLine =
                std::string(mediakit::LayoutName(choice.fisheyeMode)) + " (" + choice.description +
                (choice.leftEye != mediakit::EyeRegion::Whole ? "; the views show both eyes)"
                                                              : ")");
        } else {
            layoutLine = "equirect (metadata not read: " + probeError + ")";
        }
    }

    PlayerHandle player = Create();
    const auto start = static_cast<uint64_t>(vexel::SecondsToTicksF(options.rangeStart).count());
    const auto end = static_cast<uint64_t>(vexel::SecondsToTicksF(options.rangeEnd).count());
    if (Open(player, options.file.c_str(), start, end, options.fisheyeMode) != 0) {
        std::fprintf(stderr,
                     "vexel-play: cannot play %s (missing, not a video, or no decoder module)\n",
                     options.file.c_str());
        Destroy(player);
        return 1;
    }
    uint64_t rangeStart = 0, rangeEnd = 0;
    GetRange(player, &rangeStart, &rangeEnd);
    const double fps = GetFrameRate(player) > 0.0 ? GetFrameRate(player) : 30.0;
    SetViewDim(player, options.viewWidth, options.viewHeight);
    const play::View first =
        play::ViewAt(options, vexel::ToSeconds(vexel::TicksF(static_cast<double>(rangeStart))));
    SetView(player, first.pan, first.tilt, first.fov);

    play::Recorder recorder;
    if (!recorder.Open(videoPath, static_cast<int>(options.viewWidth),
                       static_cast<int>(options.viewHeight), fps)) {
        std::fprintf(stderr, "vexel-play: cannot record %s: %s\n", videoPath.c_str(),
                     recorder.error().c_str());
        Destroy(player);
        return 1;
    }

    play::TimingStats stats(1000.0 / fps);
    const double processCpu0 = CpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    const double mainCpu0 = CpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    play::PlaybackResult result =
        play::RunPlayback(player, options, rangeStart, rangeEnd, recorder, stats, interrupted);
    Stop(player);
    const bool recorded = recorder.Finish();
    // The library's share: everything but this program's own two threads (polling, encoding).
    const double libraryCpu = CpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - processCpu0 -
                              (CpuSeconds(CLOCK_THREAD_CPUTIME_ID) - mainCpu0) -
                              recorder.threadCpuSeconds();

    std::string sheetError;
    const std::string caption =
        std::filesystem::path(options.file).filename().string() + "  T " +
        std::to_string(vexel::ToSeconds(vexel::TicksF(InlayBuffer_GetTime(result.panorama))))
            .substr(0, 5) +
        " S";
    const bool sheet = result.panorama != nullptr &&
                       play::WriteContactSheet(sheetPath, result.panorama, caption, &sheetError);
    InlayBuffer_Release(result.panorama);
    const uint32_t sourceWidth = GetWidth(player) * 2, sourceHeight = GetHeight(player) * 2;
    Destroy(player);

    std::printf("played            %s (%ux%u, %.3g fps), view %ux%u\n", options.file.c_str(),
                sourceWidth, sourceHeight, fps, options.viewWidth, options.viewHeight);
    std::printf("layout            %s\n", layoutLine.c_str());
    std::printf("ending            %s after %.2f s\n",
                result.ended         ? "end of range"
                : result.interrupted ? "interrupted"
                                     : "stalled (no frame for 10 s)",
                result.wallSeconds);
    std::printf(
        "frames presented  %zu (%.2f s of video), %zu skipped, the first %.0f ms after Play\n",
        stats.presented(), result.contentSeconds, stats.skipped(), result.firstFrameMs);
    std::printf("late frames       %zu (more than half a frame, %.1f ms, late)\n", stats.late(),
                stats.frameMs() / 2);
    std::printf("lateness          mean %.1f ms, 99th percentile %.1f ms, max %.1f ms\n",
                stats.meanMs(), stats.percentileMs(99.0), stats.maxMs());
    if (libraryCpu > 0.0 && result.contentSeconds > 0.0) {
        std::printf(
            "decode speed      %.1fx real time (library CPU %.2f s for %.2f s of video, %.0f "
            "frames per CPU second)\n",
            result.contentSeconds / libraryCpu, libraryCpu, result.contentSeconds,
            static_cast<double>(stats.presented()) / libraryCpu);
    }
    if (recorded) {
        std::printf("view video        %s (%zu frames", videoPath.c_str(),
                    recorder.framesWritten());
        if (recorder.framesLeftOut() > 0)
            std::printf(", %zu left out: the encoder fell behind", recorder.framesLeftOut());
        std::printf(")\n");
    } else {
        std::printf("view video        not written: %s\n", recorder.error().c_str());
    }
    std::printf("contact sheet     %s\n",
                sheet ? sheetPath.c_str() : ("not written: " + sheetError).c_str());
    return result.ended && recorded && sheet ? 0 : 1;
}
