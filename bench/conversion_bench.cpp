// Frame conversion at 3840x1920: YUY2 to BGRA through libPixelConvert.so (libyuv) against a plain
// scalar loop, and dual-fisheye unwrapping through libSphereUnwrap.so (one core; the mapping is
// built before timing starts) with its SSE4.1 and plain kernels and the one-time mapping cost.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "unwrap_kernel.h"
#include "unwrap_map.h"
#include "vexel/conversion.h"

namespace vexel {
namespace {

constexpr uint32_t kWidth = 3840, kHeight = 1920;

template <class Fn>
Fn ModuleFunction(const char* fileName, const char* symbol) {
    void* module =
        dlopen((std::string(VEXEL_MODULE_DIR) + "/" + fileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    return module != nullptr ? reinterpret_cast<Fn>(dlsym(module, symbol)) : nullptr;
}

std::vector<uint8_t> Yuy2Picture() {
    std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 2);
    for (size_t i = 0; i < picture.size(); ++i)
        picture[i] = static_cast<uint8_t>(16 + (i * 7 + i / 4096) % 224);
    return picture;
}

// What one would write without a library: BT.709 limited range in 16.16 fixed point, per pixel.
void Yuy2ToBgraScalar(const uint8_t* in, uint8_t* out, uint32_t width, uint32_t height) {
    const auto clamp = [](int32_t v) { return static_cast<uint8_t>(std::clamp(v >> 16, 0, 255)); };
    for (size_t pair = 0; pair < size_t{width} * height / 2; ++pair, in += 4, out += 8) {
        const int32_t u = in[1] - 128, v = in[3] - 128;
        const int32_t b = 138438 * u, g = -13975 * u - 34925 * v, r = 117489 * v;
        for (int i = 0; i < 2; ++i) {
            const int32_t y = 76309 * (in[i * 2] - 16) + 32768;
            out[i * 4 + 0] = clamp(y + b);
            out[i * 4 + 1] = clamp(y + g);
            out[i * 4 + 2] = clamp(y + r);
            out[i * 4 + 3] = 255;
        }
    }
}

void BM_Yuy2ToBgra_Libyuv(benchmark::State& state) {
    const auto convert =
        ModuleFunction<ConvertBuffersFn>(kPixelConvertModule, kConvertBuffersSymbol);
    if (convert == nullptr) return state.SkipWithError("libPixelConvert.so not found");
    auto in = Yuy2Picture();
    std::vector<uint8_t> out(size_t{kWidth} * kHeight * 4);
    PixelBufferDesc source{}, destination{};
    source = {kPixelFormatYuy2, 0, kWidth, kHeight, 0, {}, kWidth * 2, 1, {}, in.data(), {}};
    destination = {kPixelFormatBgra32, 0, kWidth, kHeight,    0, {},
                   kWidth * 4,         1, {},     out.data(), {}};
    for (auto _ : state) {
        convert(&source, &destination);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations());  // frames
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}
BENCHMARK(BM_Yuy2ToBgra_Libyuv)->Unit(benchmark::kMillisecond);

void BM_Yuy2ToBgra_ScalarLoop(benchmark::State& state) {
    auto in = Yuy2Picture();
    std::vector<uint8_t> out(size_t{kWidth} * kHeight * 4);
    for (auto _ : state) {
        Yuy2ToBgraScalar(in.data(), out.data(), kWidth, kHeight);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}
BENCHMARK(BM_Yuy2ToBgra_ScalarLoop)->Unit(benchmark::kMillisecond);

// The player's dual-fisheye records for a 3840x1920 picture with the default lens geometry.
struct DualFrame {
    std::vector<uint32_t> in = std::vector<uint32_t>(size_t{kWidth} * kHeight);
    std::vector<uint32_t> out = std::vector<uint32_t>(size_t{kWidth} * kHeight);
    UnwrapSource source{};
    UnwrapTarget target{};

    DualFrame() {
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = 0xFF000000u | static_cast<uint32_t>(i * 2654435761u >> 8);
        source.height = kHeight;
        source.width = kWidth;
        source.radius = kHeight / 2;
        source.size = kWidth * kHeight * 4;
        source.pixels = reinterpret_cast<const uint8_t*>(in.data());
        source.lensAngle = 190.0f;
        source.leftRow = source.rightRow = kHeight / 2;
        source.leftColumn = kWidth / 4;
        source.rightColumn = kWidth * 3 / 4;
        target = {kHeight, kWidth, {}, kWidth * kHeight, reinterpret_cast<uint8_t*>(out.data())};
    }

    unwrap::Geometry Geometry() const {
        return {kWidth,
                kHeight,
                kWidth,
                kHeight,
                source.radius,
                source.lensAngle,
                2,
                {{source.leftRow, source.leftColumn}, {source.rightRow, source.rightColumn}}};
    }
};

void BM_DualUnwrap_Module(benchmark::State& state) {
    const auto unwrap = ModuleFunction<UnwrapFn>(kSphereUnwrapModule, kDualFisheyeSymbol);
    if (unwrap == nullptr) return state.SkipWithError("libSphereUnwrap.so not found");
    DualFrame frame;
    unwrap(&frame.source, &frame.target);  // builds the mapping
    for (auto _ : state) {
        unwrap(&frame.source, &frame.target);
        benchmark::DoNotOptimize(frame.out.data());
    }
    state.SetItemsProcessed(state.iterations());  // frames: items_per_second is frames per second
}
BENCHMARK(BM_DualUnwrap_Module)->Unit(benchmark::kMillisecond);

template <bool kPlain>
void BM_DualUnwrap_Kernel(benchmark::State& state) {
    DualFrame frame;
    const auto map = unwrap::BuildMap(frame.Geometry());
    const unwrap::SourcePicture source{frame.in.data(), kWidth};
    for (auto _ : state) {
        (kPlain ? unwrap::UnwrapPlain : unwrap::UnwrapSse41)(source, map->taps.data(),
                                                             map->taps.size(), map->blends.data(),
                                                             map->blends.size(), frame.out.data());
        benchmark::DoNotOptimize(frame.out.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["blended"] = static_cast<double>(map->blends.size()) / map->taps.size();
}
BENCHMARK(BM_DualUnwrap_Kernel<true>)
    ->Name("BM_DualUnwrap_PlainKernel")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DualUnwrap_Kernel<false>)
    ->Name("BM_DualUnwrap_Sse41Kernel")
    ->Unit(benchmark::kMillisecond);

void BM_DualUnwrap_MapBuild(benchmark::State& state) {
    const DualFrame frame;
    for (auto _ : state) benchmark::DoNotOptimize(unwrap::BuildMap(frame.Geometry()));
}
BENCHMARK(BM_DualUnwrap_MapBuild)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
}  // namespace vexel
