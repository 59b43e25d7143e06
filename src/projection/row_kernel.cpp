#include "projection/row_kernel.h"

#include <cstdlib>
#include <limits>

namespace vexel {

int32_t RowStride(const uint32_t* const* rows, int32_t width, int32_t height) {
    if (height < 2) return width;
    const ptrdiff_t stride = rows[1] - rows[0];
    for (int32_t i = 2; i < height; ++i) {
        if (rows[i] - rows[i - 1] != stride) return 0;
    }
    // Offsets of every pixel from rows[0] must fit a signed 32-bit gather index.
    const int64_t reach = std::abs(static_cast<int64_t>(stride)) * (height - 1) + width;
    if (stride == 0 || reach > std::numeric_limits<int32_t>::max()) return 0;
    return static_cast<int32_t>(stride);
}

void StepRowPlain(const int32_t* gridU, const int32_t* gridV, int32_t step, int32_t count,
                  int32_t fullTurn, int32_t* outU, int32_t* outV) {
    for (int32_t k = 0, x = 0; x < count; ++k, x += step) {
        const CellSlope slope = SlopeOfCell(gridU, gridV, k, step, fullTurn);
        StepCell(gridU[k], gridV[k], slope.du, slope.dv, std::min(step, count - x), fullTurn,
                 outU + x, outV + x);
    }
}

void BlendRowPlain(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                   uint32_t* out, int32_t step) {
    for (int32_t i = 0; i < count; ++i, out += step) *out = SamplePixel(source, u[i], v[i]);
}

std::span<const RowKernel> SupportedRowKernels() {
    static const RowKernel kernels[] = {
        {CpuKernel::kPlain, StepRowPlain, BlendRowPlain},
        {CpuKernel::kSse41, StepRowPlain, BlendRowSse41},
        {CpuKernel::kAvx2, StepRowAvx2, BlendRowAvx2},
        {CpuKernel::kAvx512, StepRowAvx512, BlendRowAvx512},
    };
    return {kernels, static_cast<size_t>(SupportedCpuKernel()) + 1};
}

const RowKernel& ChosenRowKernel() {
    static const RowKernel& chosen = SupportedRowKernels()[static_cast<size_t>(ChosenCpuKernel())];
    return chosen;
}

}  // namespace vexel
