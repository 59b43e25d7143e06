#include "playback.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "vexel/ticks.h"

namespace play {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kPoll{1};
constexpr std::chrono::milliseconds kSteerEvery{10};
constexpr std::chrono::milliseconds kProgressEvery{100};
constexpr double kStallSeconds = 10.0;

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

void ShowProgress(double played, double total, const TimingStats& stats) {
    constexpr int kBar = 30;
    const double fraction = total > 0.0 ? std::clamp(played / total, 0.0, 1.0) : 0.0;
    const int filled = static_cast<int>(fraction * kBar);
    char bar[kBar + 1];
    for (int i = 0; i < kBar; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kBar] = '\0';
    std::fprintf(stderr, "\r[%s] %6.2f / %.2f s  %zu frames, %zu late ", bar, played, total,
                 stats.presented(), stats.late());
    std::fflush(stderr);
}

}  // namespace

PlaybackResult RunPlayback(PlayerHandle player, const Options& options, uint64_t rangeStart,
                           uint64_t rangeEnd, Recorder& recorder, TimingStats& stats,
                           const std::atomic<bool>& interrupted) {
    PlaybackResult result;
    const bool progress = !options.quiet && isatty(STDERR_FILENO);
    const double startSeconds = vexel::ToSeconds(vexel::TicksF(static_cast<double>(rangeStart)));
    const double totalSeconds =
        rangeEnd > rangeStart
            ? vexel::ToSeconds(vexel::TicksF(static_cast<double>(rangeEnd - rangeStart)))
            : 0.0;
    const double middle =
        static_cast<double>(rangeStart) + vexel::SecondsToTicksF(totalSeconds).count() / 2;
    double keptDistance = 0.0;
    int64_t lastTicks = -1, firstTicks = 0;

    const Clock::time_point start = Clock::now();
    Clock::time_point lastFrame = start, lastSteer = start, lastProgress = start;
    Play(player, static_cast<int64_t>(rangeStart));

    for (;;) {
        const Clock::time_point now = Clock::now();
        const double elapsed = Seconds(now - start);
        if (interrupted.load()) {
            result.interrupted = true;
            break;
        }
        if (!options.path.empty() && now - lastSteer >= kSteerEvery) {
            // Steer by the media time on screen, so that a late picture still gets its own view.
            const double shown =
                lastTicks < 0 ? startSeconds : vexel::ToSeconds(vexel::Ticks(lastTicks));
            const View view = ViewAt(options, shown + stats.frameMs() / 1000.0);
            SetView(player, view.pan, view.tilt, view.fov);
            lastSteer = now;
        }

        bool ended = false;
        if (InlayBuffer* view = GetCurrentViewSample(player)) {
            if (InlayBuffer_GetWidth(view) == 0) {
                ended = true;
            } else if (const auto ticks = static_cast<int64_t>(InlayBuffer_GetTime(view));
                       ticks != lastTicks) {
                // The first frame sets the schedule: each later one is due its media time after it.
                if (lastTicks < 0) {
                    result.firstFrameMs = elapsed * 1000.0;
                    firstTicks = ticks;
                }
                const double due =
                    result.firstFrameMs + vexel::ToMs(vexel::Ticks(ticks - firstTicks));
                stats.Add(elapsed * 1000.0 - due, ticks);
                recorder.Add(InlayBuffer_GetBuffer(view), ticks - static_cast<int64_t>(rangeStart));
                lastTicks = ticks;
                lastFrame = now;
            }
            InlayBuffer_Release(view);
        }
        if (InlayBuffer* pre = GetCurrentPreSample(player)) {
            const double distance = std::abs(InlayBuffer_GetTime(pre) - middle);
            if (InlayBuffer_GetWidth(pre) == 0) {
                ended = true;
                InlayBuffer_Release(pre);
            } else if (result.panorama == nullptr || distance < keptDistance) {
                InlayBuffer_Release(result.panorama);
                result.panorama = pre;
                keptDistance = distance;
            } else {
                InlayBuffer_Release(pre);
            }
        }
        if (ended) {
            result.ended = true;
            break;
        }
        if (Seconds(now - lastFrame) > kStallSeconds) {
            result.stalled = true;
            break;
        }
        if (progress && now - lastProgress >= kProgressEvery) {
            ShowProgress(
                lastTicks < 0
                    ? 0.0
                    : vexel::ToSeconds(vexel::Ticks(lastTicks - static_cast<int64_t>(rangeStart))),
                totalSeconds, stats);
            lastProgress = now;
        }
        std::this_thread::sleep_for(kPoll);
    }

    result.wallSeconds = Seconds(Clock::now() - start);
    if (lastTicks >= 0) {
        result.contentSeconds =
            vexel::ToSeconds(vexel::Ticks(lastTicks - static_cast<int64_t>(rangeStart))) +
            stats.frameMs() / 1000.0;
    }
    if (progress) {
        ShowProgress(result.contentSeconds, totalSeconds, stats);
        std::fprintf(stderr, "\n");
    }
    return result;
}

}  // namespace play
