#include "projection/blend_row.h"

#include <algorithm>

#include "projection/bilinear_blend.h"

namespace vexel {

void BlendRowPlain(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                   uint32_t* out, int32_t step) {
    const int32_t width = source.width, height = source.height;
    const int32_t halfWidth = width >> 1, halfHeight = height >> 1;
    for (int32_t i = 0; i < count; ++i, out += step) {
        const int32_t xi = (u[i] >> 8) + halfWidth;
        const int32_t yi = (v[i] >> 8) + halfHeight;
        const uint32_t* rowA = source.rows[std::clamp(yi, 0, height - 1)];
        const uint32_t* rowB = source.rows[std::clamp(yi + 1, 0, height - 1)];
        const int32_t c0 = xi < 0 ? width - 1 : (xi > width - 1 ? 0 : xi);
        const int32_t c1 = xi + 1 < 0 ? width - 1 : (xi + 1 > width - 1 ? 0 : xi + 1);
        *out = BlendBilinear(rowA[c0], rowA[c1], rowB[c0], rowB[c1], static_cast<uint32_t>(u[i]) & 255,
                             static_cast<uint32_t>(v[i]) & 255);
    }
}

BlendRowFunction BestBlendRow() {
    static const BlendRowFunction best = __builtin_cpu_supports("sse4.1") ? BlendRowSse41 : BlendRowPlain;
    return best;
}

}  // namespace vexel
