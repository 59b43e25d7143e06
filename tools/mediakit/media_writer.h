// MediaWriter: writes a video file (container chosen by the file name, e.g. .mp4) with an H.264
// (or VP9) picture track made from 32-bit B,G,R,A pictures and, optionally, an AAC (or Opus) sound
// track made from interleaved signed 16-bit PCM, through libavformat and libavcodec (libx264,
// libvpx and libopus where present).
//
// Threads: used by one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "panorama_layout.h"

namespace mediakit {

struct VideoSettings {
    int width = 0;
    int height = 0;
    int fps = 30;
    int keyframeInterval = 30;  // frames
    int quality = 20;           // constant rate factor: lower is better, 18-28 is usual
    const char* preset = "veryfast";
    int threads = 0;         // 0: the encoder chooses
    SphericalTag tag;        // spherical-video metadata of the track (MP4 and Matroska)
    bool vp9 = false;        // VP9 instead of H.264 (for Matroska and WebM)
    int64_t startTicks = 0;  // time stamp of the first picture, 100 ns
};

struct AudioSettings {
    int channels = 0;  // 0: no sound track
    int rate = 48000;
    bool opus = false;       // Opus instead of AAC
    int64_t startTicks = 0;  // time stamp of the first sample, 100 ns
};

class MediaWriter {
public:
    MediaWriter();
    ~MediaWriter();  // a writer not finished leaves an unusable file
    MediaWriter(const MediaWriter&) = delete;
    MediaWriter& operator=(const MediaWriter&) = delete;

    // Creates the file. `video` may have width 0 for a sound-only file. `indexFirst` puts the
    // index at the front of an .mp4 (what a cut-off file needs to stay playable).
    bool Open(const std::string& path, const VideoSettings& video, const AudioSettings& audio,
              bool indexFirst = false);
    // One picture of width x height pixels, rows top-down, `stride` bytes apart, shown at `ticks`
    // (100-ns units; must grow from call to call).
    bool WriteVideo(const uint8_t* bgra, int stride, int64_t ticks);
    // `count` sample frames of interleaved 16-bit PCM, following the previous ones.
    bool WriteAudio(const int16_t* samples, int count);
    // Flushes the encoders and closes the file.
    bool Finish();

    const std::string& error() const;
    // The H.264 encoder in use (e.g. "libx264"), once open.
    std::string videoEncoder() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace mediakit
