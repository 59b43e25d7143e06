// The render engine's own cost per frame (row reversal, queueing, rendering a 1x1 view, publishing)
// against one memcpy of the frame, and the CPU and memory it takes to present a 30 fps stream.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "engine/flip_rows.h"
#include "engine/render_engine.h"

namespace vexel {
namespace {

constexpr uint32_t kWidth = 3840, kHeight = 1920;
constexpr size_t kFrameBytes = size_t{kWidth} * kHeight * 4;

void Configure(RenderEngine& engine, uint32_t viewWidth, uint32_t viewHeight) {
    MediaFormatPayload format{};
    format.video.width = kWidth;
    format.video.height = kHeight;
    format.video.pixelFormat = 11;
    format.video.frameRate = 30.0;
    engine.SetVideoFormat(format);
    engine.SetViewDim(viewWidth, viewHeight);
}

// Waits until the frame with time `last` has been presented; samples nobody takes are freed by
// the engine when the next frame is published, as in a host that only looks at some frames.
void WaitPresented(const RenderEngine& engine, int64_t last) {
    while (engine.GetCurrentPlayTime().count() < last) std::this_thread::yield();
}

// Frames all due at once flow through as fast as the engine moves them.
void BM_EngineFrameCost(benchmark::State& state) {
    std::vector<uint8_t> frame(kFrameBytes, 0x5A);
    RenderEngine engine;
    Configure(engine, 1, 1);
    engine.Start(Ticks(0));
    int64_t frames = 0;
    for (auto _ : state) {
        // Times one tick apart: every frame is due at once.
        for (int i = 0; i < 8; ++i, ++frames)
            engine.OnVideoSample(frame.data(), kFrameBytes, frames + 1, frames + 2);
        WaitPresented(engine, frames);
    }
    engine.Stop();
    state.SetItemsProcessed(frames);
    state.SetBytesProcessed(frames * static_cast<int64_t>(kFrameBytes));
}
BENCHMARK(BM_EngineFrameCost)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

void BM_FrameMemcpy(benchmark::State& state) {
    std::vector<uint8_t> source(kFrameBytes, 0x5A), destination(kFrameBytes);
    for (auto _ : state) {
        std::memcpy(destination.data(), source.data(), kFrameBytes);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kFrameBytes));
}
BENCHMARK(BM_FrameMemcpy)->Unit(benchmark::kMillisecond);

// The row reversal alone, into a buffer from the pixel pool.
void BM_FlipRows32(benchmark::State& state) {
    std::vector<uint8_t> source(kFrameBytes, 0x5A);
    for (auto _ : state) {
        PixelBuffer destination(AllocatePixels(static_cast<uint32_t>(kFrameBytes)));
        FlipRows32(source.data(), destination.get(), kWidth, kHeight);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kFrameBytes));
}
BENCHMARK(BM_FlipRows32)->Unit(benchmark::kMillisecond);

// Real-time presentation of a 30 fps stream for range(0) seconds with the default 320x180 view;
// cpu_percent is process CPU over wall time, peak_rss_mb the process's peak resident memory.
void BM_PresentThirtyFps(benchmark::State& state) {
    const int64_t seconds = state.range(0);
    std::vector<uint8_t> frame(kFrameBytes, 0x5A);
    for (auto _ : state) {
        RenderEngine engine;
        Configure(engine, 320, 180);
        rusage before{};
        getrusage(RUSAGE_SELF, &before);
        const auto start = std::chrono::steady_clock::now();
        engine.Start(Ticks(0));
        const int64_t count = seconds * 30;
        int64_t time = 0;
        for (int64_t i = 0; i < count; ++i) {
            time = i * kTicksPerSecond / 30;
            engine.OnVideoSample(frame.data(), kFrameBytes, time, time + 333'333);
        }
        WaitPresented(engine, time);
        const double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        engine.Stop();
        rusage after{};
        getrusage(RUSAGE_SELF, &after);
        auto cpu = [](const rusage& r) {
            return r.ru_utime.tv_sec + r.ru_stime.tv_sec +
                   (r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
        };
        state.counters["cpu_percent"] = 100.0 * (cpu(after) - cpu(before)) / wall;
        state.counters["peak_rss_mb"] = after.ru_maxrss / 1024.0;
        state.counters["frame_mb"] = kFrameBytes / 1048576.0;
    }
}
BENCHMARK(BM_PresentThirtyFps)->Arg(10)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace vexel
