// The projector's parameters through RenderPanoramaView: source and view sizes (bounded so that one
// input renders in milliseconds) and any pan, tilt and field of view, non-finite ones included.
#include <bit>
#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

#include "projection/view_projector.h"

namespace {

// Any double, often a plain angle, sometimes an extreme or NaN bit pattern.
double Angle(FuzzedDataProvider& in) {
    if (in.ConsumeBool()) return std::bit_cast<double>(in.ConsumeIntegral<uint64_t>());
    return in.ConsumeFloatingPointInRange(-1000.0, 1000.0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    // Sizes reach past the valid range on both sides: zero and negative sizes must be refused.
    const int32_t width = in.ConsumeIntegralInRange<int32_t>(-2, 512);
    const int32_t height = in.ConsumeIntegralInRange<int32_t>(-2, 256);
    const int32_t viewWidth = in.ConsumeIntegralInRange<int32_t>(-2, 128);
    const int32_t viewHeight = in.ConsumeIntegralInRange<int32_t>(-2, 128);
    const double pan = Angle(in), tilt = Angle(in), fov = Angle(in);

    std::vector<uint32_t> source(width > 0 && height > 0 ? static_cast<size_t>(width) * height : 1);
    for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint32_t>(i * 2654435761u);
    std::vector<uint32_t> view(
        viewWidth > 0 && viewHeight > 0 ? static_cast<size_t>(viewWidth) * viewHeight : 1);
    vexel::RenderPanoramaView(source.data(), width, height, view.data(), viewWidth, viewHeight, pan,
                              tilt, fov);
    return 0;
}
