// The real-time playback loop of vexel-play: starts the player, steers the view along the timed
// views, picks up every presented frame as soon as it appears, measures its lateness, hands the
// view to the recorder and keeps one panorama picture from the middle of the range.
//
// Threads: runs on the calling thread; `interrupted` may be set from a signal handler.
#pragma once

#include <atomic>
#include <cstdint>

#include "options.h"
#include "recorder.h"
#include "timing_stats.h"
#include "vexelplayer.h"

namespace play {

struct PlaybackResult {
    bool ended = false;        // the end of the range was presented
    bool stalled = false;      // no frame came for a long time
    bool interrupted = false;  // stopped by the user
    double contentSeconds = 0.0;
    double wallSeconds = 0.0;
    double firstFrameMs = 0.0;        // from Play to the first presented frame
    InlayBuffer* panorama = nullptr;  // for the contact sheet; the caller releases it
};

PlaybackResult RunPlayback(PlayerHandle player, const Options& options, uint64_t rangeStart,
                           uint64_t rangeEnd, Recorder& recorder, TimingStats& stats,
                           const std::atomic<bool>& interrupted);

}  // namespace play
