// View projection throughput on one core, from a 3840x1920 panorama: every row kernel this
// processor runs (one projector reused across frames, as the render thread does), a temporary
// projector per call as the sample functions use it, and in the same run the two peers: a memcpy
// of the output (the floor; every case reports its time as a multiple of it, x_memcpy) and
// libavfilter's v360 filter (equirectangular to flat, bilinear, same view, one thread) on a BGRA
// and on a yuv420p picture.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "projection/row_kernel.h"
#include "projection/view_projector.h"
#include "v360_graph.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace {

constexpr int32_t kSourceWidth = 3840;
constexpr int32_t kSourceHeight = 1920;
constexpr double kFov = 100;

struct Panorama {
    std::vector<uint32_t> pixels;
    std::vector<const uint32_t*> rows;

    Panorama() : pixels(static_cast<size_t>(kSourceWidth) * kSourceHeight), rows(kSourceHeight) {
        std::mt19937 random(1);
        for (uint32_t& pixel : pixels) pixel = static_cast<uint32_t>(random());
        for (int32_t i = 0; i < kSourceHeight; ++i)
            rows[i] = pixels.data() + static_cast<size_t>(i) * kSourceWidth;
    }
};

const Panorama& TestPanorama() {
    static const Panorama panorama;
    return panorama;
}

using Clock = std::chrono::steady_clock;

// Seconds for one memcpy of a width x height view, the best of many (measured once per size).
double MemcpySeconds(int32_t width, int32_t height) {
    const size_t bytes = static_cast<size_t>(width) * height * 4;
    std::vector<uint8_t> to(bytes);
    const auto* from = reinterpret_cast<const uint8_t*>(TestPanorama().pixels.data());
    double best = 1e9;
    for (int i = 0; i < 50; ++i) {
        const Clock::time_point start = Clock::now();
        std::memcpy(to.data(), from, bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return best;
}

double ThreadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + now.tv_nsec * 1e-9;
}

// Runs frame() for every iteration and reports Mpixel/s and the CPU time per frame over a memcpy
// (CPU time, as other processes share the machine).
template <class Frame>
void RunFrames(benchmark::State& state, int32_t width, int32_t height, Frame frame) {
    const double copy = MemcpySeconds(width, height);
    const double start = ThreadCpuSeconds();
    for (auto _ : state) frame();
    const double perFrame = (ThreadCpuSeconds() - start) / state.iterations();
    state.counters["Mpix/s"] =
        benchmark::Counter(static_cast<double>(width) * height * state.iterations() / 1e6,
                           benchmark::Counter::kIsRate);
    state.counters["x_memcpy"] = perFrame / copy;
}

struct Case {
    const char* name;
    int32_t width, height;
    double tilt;
    double panStep;  // degrees per frame
};

const Case kCases[] = {
    {"1920x1080_centre", 1920, 1080, 0, 0},   {"1920x1080_moving", 1920, 1080, 0, 1.7},
    {"1920x1080_tilt80", 1920, 1080, 80, 0},  {"640x360_centre", 640, 360, 0, 0},
    {"1080x1920_portrait", 1080, 1920, 0, 0},
};

void ReusedProjector(benchmark::State& state, const vexel::RowKernel* kernel, Case c) {
    const Panorama& panorama = TestPanorama();
    std::vector<uint32_t> view(static_cast<size_t>(c.width) * c.height);
    vexel::ViewProjector projector(kSourceWidth, kSourceHeight);
    projector.UseKernel(*kernel);
    projector.SetViewBuffer(view.data(), c.width, c.height);
    double pan = 0;
    projector.SetView(pan, c.tilt, kFov);
    RunFrames(state, c.width, c.height, [&] {
        if (c.panStep != 0) {
            pan += c.panStep;
            projector.SetView(pan, c.tilt, kFov);
        }
        projector.Render(panorama.rows.data(), false);
        benchmark::DoNotOptimize(view.data());
        benchmark::ClobberMemory();
    });
}

void TemporaryProjector(benchmark::State& state) {
    const Panorama& panorama = TestPanorama();
    std::vector<uint32_t> view(1920 * 1080);
    RunFrames(state, 1920, 1080, [&] {
        vexel::RenderPanoramaView(panorama.pixels.data(), kSourceWidth, kSourceHeight, view.data(),
                                  1920, 1080, 0, 0, kFov);
        benchmark::DoNotOptimize(view.data());
        benchmark::ClobberMemory();
    });
}

// v360 on one thread, fed the same picture for every frame.
void V360(benchmark::State& state, AVPixelFormat format, Case c) {
    AVFrame* input = av_frame_alloc();
    input->width = kSourceWidth;
    input->height = kSourceHeight;
    input->format = format;
    if (av_frame_get_buffer(input, 0) < 0) {
        state.SkipWithError("cannot allocate the input frame");
        return;
    }
    std::mt19937 random(2);
    for (int plane = 0; plane < 4 && input->data[plane] != nullptr; ++plane) {
        const int rows =
            plane == 0 || format == AV_PIX_FMT_BGRA ? kSourceHeight : kSourceHeight / 2;
        for (int64_t i = 0; i < static_cast<int64_t>(input->linesize[plane]) * rows; ++i) {
            input->data[plane][i] = static_cast<uint8_t>(random());
        }
    }
    V360Graph g = MakeV360Graph(kSourceWidth, kSourceHeight, format, AVRational{1, 25}, c.width,
                                c.height, kFov, c.tilt, 1);
    AVFilterContext *in = g.in, *out = g.out;
    if (in == nullptr) {
        state.SkipWithError("cannot set up the v360 filter");
    } else {
        AVFrame* projected = av_frame_alloc();
        int64_t pts = 0;
        const auto push = [&] {
            input->pts = pts++;
            if (av_buffersrc_add_frame_flags(in, input, AV_BUFFERSRC_FLAG_KEEP_REF) < 0)
                std::abort();
            while (av_buffersink_get_frame(out, projected) >= 0) av_frame_unref(projected);
        };
        push();  // the filter builds its maps with the first frame
        RunFrames(state, c.width, c.height, push);
        av_frame_free(&projected);
    }
    avfilter_graph_free(&g.graph);
    av_frame_free(&input);
}

// Registered at start-up: one benchmark per kernel and case, then the peers.
const bool kRegistered = [] {
    for (const vexel::RowKernel& kernel : vexel::SupportedRowKernels()) {
        for (const Case& c : kCases) {
            const std::string name =
                std::string("Projection/") + vexel::CpuKernelName(kernel.level) + "/" + c.name;
            benchmark::RegisterBenchmark(name.c_str(), ReusedProjector, &kernel, c)
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RegisterBenchmark("Projection/temporary_projector/1920x1080_centre",
                                 TemporaryProjector)
        ->Unit(benchmark::kMillisecond);
    for (const Case& c : {kCases[0], kCases[2]}) {
        for (const AVPixelFormat format : {AV_PIX_FMT_BGRA, AV_PIX_FMT_YUV420P}) {
            const std::string name =
                std::string("v360/") + av_get_pix_fmt_name(format) + "/" + c.name;
            benchmark::RegisterBenchmark(name.c_str(), V360, format, c)
                ->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}();

}  // namespace
