// vexel-make-sample: draws the sample panorama clip (see scene.h) and encodes it with H.264 and a
// stereo AAC track. Also makes the small clips the tests play.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "frame_code.h"
#include "layout.h"
#include "media_writer.h"
#include "scene.h"
#include "sound.h"
#include "vexel/ticks.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

constexpr int kSoundRate = 48000;

struct Options {
    std::string output;
    int width = 1920;
    int height = 960;
    int fps = 30;
    double seconds = 10.0;
    int keyframes = 0;  // 0: one a second
    int quality = 20;
    sample::Layout layout = sample::Layout::Equirectangular;
    mediakit::SphericalTag tag;
    bool video = true;
    bool audio = true;
    double keep = 1.0;   // fraction of the file kept
    double start = 0.0;  // seconds before the first time stamp
    bool vp9 = false;    // VP9 and Opus instead of H.264 and AAC
};

void Usage(std::FILE* out) {
    std::fprintf(out,
                 "usage: vexel-make-sample [options] OUTPUT\n"
                 "Draws the sample panorama clip and writes it as H.264 with a stereo AAC track.\n"
                 "  --size WxH        equirectangular picture size (default 1920x960)\n"
                 "  --fps N           frames per second (default 30)\n"
                 "  --seconds S       length in seconds (default 10)\n"
                 "  --keyframes N     keyframe interval in frames (default: one second)\n"
                 "  --quality Q       constant rate factor, lower is better (default 20)\n"
                 "  --layout L        equirect (default), partial (the 360x90 degree band) or\n"
                 "                    dual-fisheye (two 180-degree lenses side by side)\n"
                 "  --spherical       tag the picture track as an equirectangular 360 video\n"
                 "  --stereo S        top-bottom or side-by-side: two eyes in each picture, the\n"
                 "                    left eye first (the scene) and the right eye in inverted\n"
                 "                    colours; tagged as stereo and spherical\n"
                 "  --no-audio        pictures only\n"
                 "  --audio-only      sound only\n"
                 "  --truncate F      keep only the first fraction F of the file, as if cut off\n"
                 "  --start S         time stamps begin at S seconds instead of 0\n"
                 "  --vp9             VP9 pictures and Opus sound (for .mkv and .webm)\n");
}

bool ParseInt(std::string_view text, int* value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool ParseSize(std::string_view text, int* width, int* height) {
    const size_t x = text.find('x');
    return x != std::string_view::npos && ParseInt(text.substr(0, x), width) &&
           ParseInt(text.substr(x + 1), height);
}

bool ParseDouble(const char* text, double* value) {
    char* end = nullptr;
    *value = std::strtod(text, &end);
    return end != text && *end == '\0';
}

// Parses the command line; false after printing what is wrong.
bool Parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        bool ok = true, usedValue = true;
        if (arg == "--size") {
            ok = value && ParseSize(value, &o.width, &o.height) && o.width >= 64 &&
                 o.height >= 16 && o.width % 2 == 0 && o.height % 4 == 0;
        } else if (arg == "--fps") {
            ok = value && ParseInt(value, &o.fps) && o.fps > 0 && o.fps <= 240;
        } else if (arg == "--seconds") {
            ok = value && ParseDouble(value, &o.seconds) && o.seconds > 0 && o.seconds <= 3600;
        } else if (arg == "--keyframes") {
            ok = value && ParseInt(value, &o.keyframes) && o.keyframes > 0;
        } else if (arg == "--quality") {
            ok = value && ParseInt(value, &o.quality) && o.quality >= 0 && o.quality <= 51;
        } else if (arg == "--layout") {
            ok = value && sample::ParseLayout(value, &o.layout);
        } else if (arg == "--stereo") {
            const std::string_view name = value ? value : "";
            o.tag.stereo = name == "top-bottom"     ? mediakit::Stereo::TopBottom
                           : name == "side-by-side" ? mediakit::Stereo::SideBySide
                                                    : mediakit::Stereo::Other;
            o.tag.spherical = true;
            ok = o.tag.stereo != mediakit::Stereo::Other;
        } else if (arg == "--truncate") {
            ok = value && ParseDouble(value, &o.keep) && o.keep > 0 && o.keep < 1;
        } else if (arg == "--start") {
            ok = value && ParseDouble(value, &o.start) && o.start >= 0 && o.start <= 3600;
        } else {
            usedValue = false;
            if (arg == "--spherical") {
                o.tag.spherical = true;
            } else if (arg == "--no-audio") {
                o.audio = false;
            } else if (arg == "--vp9") {
                o.vp9 = true;
            } else if (arg == "--audio-only") {
                o.video = false;
            } else if (arg == "-h" || arg == "--help") {
                Usage(stdout);
                std::exit(0);
            } else if (!arg.empty() && arg[0] != '-' && o.output.empty()) {
                o.output = arg;
            } else {
                ok = false;
            }
        }
        if (!ok) {
            std::fprintf(stderr, "vexel-make-sample: bad argument %s%s%s\n", argv[i],
                         value && usedValue ? " " : "", value && usedValue ? value : "");
            return false;
        }
        if (usedValue) ++i;
    }
    if (o.output.empty()) {
        Usage(stderr);
        return false;
    }
    if (!o.video && !o.audio) {
        std::fprintf(stderr,
                     "vexel-make-sample: --no-audio and --audio-only leave nothing to write\n");
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!Parse(argc, argv, o)) return 2;
    av_log_set_level(AV_LOG_ERROR);  // the encoders' statistics are not wanted

    const int frames = std::max(1, static_cast<int>(o.seconds * o.fps + 0.5));
    const sample::Scene scene(o.width, o.height, o.fps, frames);
    const sample::LayoutMapper layout(o.layout, o.width, o.height, o.tag.stereo);

    mediakit::VideoSettings video;
    if (o.video) {
        video.width = layout.width();
        video.height = layout.height();
        video.fps = o.fps;
        video.keyframeInterval = o.keyframes > 0 ? o.keyframes : o.fps;
        video.quality = o.quality;
        video.threads = video.width * video.height <= 320 * 240 ? 1 : 0;
        video.tag = o.tag;
        video.vp9 = o.vp9;
        video.startTicks = static_cast<int64_t>(o.start * vexel::kTicksPerSecond);
    }
    mediakit::AudioSettings audio;
    if (o.audio) {
        audio.channels = 2;
        audio.rate = kSoundRate;
        audio.opus = o.vp9;
        audio.startTicks = static_cast<int64_t>(o.start * vexel::kTicksPerSecond);
    }

    const std::filesystem::path output(o.output);
    if (output.has_parent_path()) {
        std::error_code ignored;
        std::filesystem::create_directories(output.parent_path(), ignored);
    }
    mediakit::MediaWriter writer;
    if (!writer.Open(o.output, video, audio, o.keep < 1.0)) {
        std::fprintf(stderr, "vexel-make-sample: %s\n", writer.error().c_str());
        return 1;
    }

    mediakit::Canvas picture, laidOut;
    int64_t soundWritten = 0;
    for (int n = 0; n < frames; ++n) {
        const int64_t ticks = static_cast<int64_t>(n) * vexel::kTicksPerSecond / o.fps;
        if (o.video) {
            scene.Draw(n, picture);
            layout.Apply(picture, laidOut);
            framecode::Write(laidOut.pixels.data(), laidOut.width, static_cast<uint32_t>(n));
            if (!writer.WriteVideo(laidOut.bytes(), laidOut.width * 4, ticks)) break;
        }
        if (o.audio) {
            const int64_t soundEnd = static_cast<int64_t>(n + 1) * kSoundRate / o.fps;
            const int count = static_cast<int>(soundEnd - soundWritten);
            const std::vector<int16_t> sound =
                sample::SoundSamples(scene, soundWritten, count, kSoundRate);
            if (!writer.WriteAudio(sound.data(), count)) break;
            soundWritten = soundEnd;
        }
    }
    if (!writer.error().empty() || !writer.Finish()) {
        std::fprintf(stderr, "vexel-make-sample: %s\n", writer.error().c_str());
        return 1;
    }

    std::error_code error;
    if (o.keep < 1.0) {
        const auto size = std::filesystem::file_size(output, error);
        if (!error)
            std::filesystem::resize_file(output, static_cast<uintmax_t>(size * o.keep), error);
        if (error) {
            std::fprintf(stderr, "vexel-make-sample: cannot cut %s: %s\n", o.output.c_str(),
                         error.message().c_str());
            return 1;
        }
    }

    std::printf("vexel-make-sample: wrote %s (", o.output.c_str());
    if (o.video) {
        std::printf("%dx%d, %d frames at %d fps, %s", layout.width(), layout.height(), frames,
                    o.fps, writer.videoEncoder().c_str());
    }
    if (o.audio)
        std::printf("%sstereo %d Hz %s", o.video ? ", " : "", kSoundRate, o.vp9 ? "Opus" : "AAC");
    std::printf(o.keep < 1.0 ? ", cut to %.0f%%)\n" : ")\n", o.keep * 100);
    return 0;
}
