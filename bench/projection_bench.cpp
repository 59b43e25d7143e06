// View projection throughput: one projector reused across frames (tables shared), a temporary
// projector per call as the sample functions use it, and a plain copy of the same output size as
// the floor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "projection/view_projector.h"

namespace {

constexpr int32_t kSourceWidth = 3840;
constexpr int32_t kSourceHeight = 1920;

struct Panorama {
    std::vector<uint32_t> pixels;
    std::vector<const uint32_t*> rows;

    Panorama() : pixels(static_cast<size_t>(kSourceWidth) * kSourceHeight), rows(kSourceHeight) {
        std::mt19937 random(1);
        for (uint32_t& pixel : pixels) pixel = static_cast<uint32_t>(random());
        for (int32_t i = 0; i < kSourceHeight; ++i) rows[i] = pixels.data() + static_cast<size_t>(i) * kSourceWidth;
    }
};

const Panorama& TestPanorama() {
    static const Panorama panorama;
    return panorama;
}

void SetCounters(benchmark::State& state, int64_t pixels) {
    state.SetItemsProcessed(state.iterations() * pixels);
    state.SetBytesProcessed(state.iterations() * pixels * 4);
}

// args: view width, view height, tilt, fov, pan step per frame (tenths of a degree)
void BM_ReusedProjector(benchmark::State& state) {
    const auto width = static_cast<int32_t>(state.range(0));
    const auto height = static_cast<int32_t>(state.range(1));
    const auto tilt = static_cast<double>(state.range(2));
    const auto fov = static_cast<double>(state.range(3));
    const double panStep = state.range(4) / 10.0;
    const Panorama& panorama = TestPanorama();
    std::vector<uint32_t> view(static_cast<size_t>(width) * height);
    vexel::ViewProjector projector(kSourceWidth, kSourceHeight);
    projector.SetViewBuffer(view.data(), width, height);
    double pan = 0;
    projector.SetView(pan, tilt, fov);
    for (auto _ : state) {
        if (panStep != 0) {
            pan += panStep;
            projector.SetView(pan, tilt, fov);
        }
        projector.Render(panorama.rows.data(), false);
        benchmark::DoNotOptimize(view.data());
        benchmark::ClobberMemory();
    }
    SetCounters(state, static_cast<int64_t>(width) * height);
}
BENCHMARK(BM_ReusedProjector)
    ->ArgNames({"w", "h", "tilt", "fov", "panStep"})
    ->Args({1920, 1080, 0, 100, 0})
    ->Args({640, 360, 0, 100, 0})
    ->Args({1920, 1080, 0, 100, 17})
    ->Args({640, 360, 0, 100, 17})
    ->Args({1920, 1080, 80, 100, 0})
    ->Args({640, 360, 80, 100, 0})
    ->Unit(benchmark::kMillisecond);

void BM_RenderPanoramaView(benchmark::State& state) {
    const auto width = static_cast<int32_t>(state.range(0));
    const auto height = static_cast<int32_t>(state.range(1));
    const Panorama& panorama = TestPanorama();
    std::vector<uint32_t> view(static_cast<size_t>(width) * height);
    for (auto _ : state) {
        vexel::RenderPanoramaView(panorama.pixels.data(), kSourceWidth, kSourceHeight, view.data(), width, height, 0,
                                  0, 100);
        benchmark::DoNotOptimize(view.data());
        benchmark::ClobberMemory();
    }
    SetCounters(state, static_cast<int64_t>(width) * height);
}
BENCHMARK(BM_RenderPanoramaView)->ArgNames({"w", "h"})->Args({1920, 1080})->Unit(benchmark::kMillisecond);

// The floor: copying as many bytes as the view holds.
void BM_CopyViewSizedBlock(benchmark::State& state) {
    const auto width = static_cast<int32_t>(state.range(0));
    const auto height = static_cast<int32_t>(state.range(1));
    const Panorama& panorama = TestPanorama();
    std::vector<uint32_t> view(static_cast<size_t>(width) * height);
    for (auto _ : state) {
        std::memcpy(view.data(), panorama.pixels.data(), view.size() * sizeof(uint32_t));
        benchmark::DoNotOptimize(view.data());
        benchmark::ClobberMemory();
    }
    SetCounters(state, static_cast<int64_t>(width) * height);
}
BENCHMARK(BM_CopyViewSizedBlock)
    ->ArgNames({"w", "h"})
    ->Args({1920, 1080})
    ->Args({640, 360})
    ->Unit(benchmark::kMillisecond);

}  // namespace
