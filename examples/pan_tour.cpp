// pan_tour: plays a panorama video for a few seconds, turning the view once round the horizon, and
// prints what was presented each half second.
// Usage: pan_tour video.mp4 [seconds]
#include <vexelplayer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

namespace {

struct PlayerDeleter {
    void operator()(VexelPlayer* player) const { Destroy(player); }
};
struct SampleDeleter {
    void operator()(InlayBuffer* sample) const { InlayBuffer_Release(sample); }
};
using Player = std::unique_ptr<VexelPlayer, PlayerDeleter>;
using Sample = std::unique_ptr<InlayBuffer, SampleDeleter>;

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s video [seconds]\n", argv[0]);
        return 2;
    }
    const double seconds = argc > 2 ? std::atof(argv[2]) : 4.0;
    Player player(Create());
    if (Open(player.get(), argv[1], 0, 0, 0) != 0) {
        std::fprintf(stderr, "%s: cannot open %s\n", argv[0], argv[1]);
        return 1;
    }
    std::printf("%ux%u (half the stream's size), %.2f frames/s, library %d.%d.%d\n",
                GetWidth(player.get()), GetHeight(player.get()), GetFrameRate(player.get()),
                VEXEL_VERSION_MAJOR, VEXEL_VERSION_MINOR, VEXEL_VERSION_PATCH);

    Play(player.get(), 0);
    const auto start = std::chrono::steady_clock::now();
    for (int step = 1; step * 0.5 <= seconds; ++step) {
        std::this_thread::sleep_until(start + std::chrono::milliseconds(500 * step));
        SetView(player.get(), 360.0 * step * 0.5 / seconds, 0.0, 90.0);
        Sample view(GetCurrentViewSample(player.get()));
        if (!view) continue;                               // no new frame since the last look
        if (InlayBuffer_GetWidth(view.get()) == 0) break;  // the end marker: the video is over
        std::printf("%6.2f s: view %ux%u pan %6.1f tilt %5.1f fov %5.1f\n",
                    InlayBuffer_GetTime(view.get()) / 1e7, InlayBuffer_GetWidth(view.get()),
                    InlayBuffer_GetHeight(view.get()), InlayBuffer_GetPan(view.get()),
                    InlayBuffer_GetTilt(view.get()), InlayBuffer_GetFov(view.get()));
    }
    Stop(player.get());
    return 0;
}
