// SSE4.1 version of BlendRowPlain, one pixel at a time. The blend is done separably, which is
// exact in integers: (255-fy)[(255-fx)tl + fx tr] + fy[(255-fx)bl + fx br] is the four-weight sum
// term by term. The horizontal sums are at most 65025 and fit 16-bit lanes; the vertical ones use
// 32-bit lanes.
#include <smmintrin.h>

#include <algorithm>

#include "projection/row_kernel.h"

namespace vexel {

__attribute__((target("sse4.1"))) void BlendRowSse41(const PanoramaRows& source, const int32_t* u,
                                                     const int32_t* v, int32_t count, uint32_t* out,
                                                     int32_t step) {
    const int32_t width = source.width, height = source.height;
    const int32_t halfWidth = width >> 1, halfHeight = height >> 1;
    const __m128i alpha = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
    int32_t cachedRow = INT32_MIN;
    const uint32_t* rowA = nullptr;
    const uint32_t* rowB = nullptr;
    for (int32_t i = 0; i < count; ++i, out += step) {
        const int32_t xi = (u[i] >> 8) + halfWidth;
        const int32_t yi = (v[i] >> 8) + halfHeight;
        if (yi != cachedRow) {
            cachedRow = yi;
            rowA = source.rows[std::clamp(yi, 0, height - 1)];
            rowB = source.rows[std::clamp(yi + 1, 0, height - 1)];
        }
        __m128i top, bottom;  // left and right pixel in the low 8 bytes
        if (static_cast<uint32_t>(xi) < static_cast<uint32_t>(width - 1)) {
            top = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rowA + xi));
            bottom = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rowB + xi));
        } else {  // at the seam the two columns are not neighbours in memory
            const int32_t c0 = xi < 0 ? width - 1 : (xi > width - 1 ? 0 : xi);
            const int32_t c1 = xi + 1 < 0 ? width - 1 : (xi + 1 > width - 1 ? 0 : xi + 1);
            top = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int32_t>(rowA[c0])),
                                     _mm_cvtsi32_si128(static_cast<int32_t>(rowA[c1])));
            bottom = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int32_t>(rowB[c0])),
                                        _mm_cvtsi32_si128(static_cast<int32_t>(rowB[c1])));
        }
        const int32_t fx = u[i] & 255, fy = v[i] & 255;
        // [255-fx x4, fx x4] as 16-bit lanes.
        __m128i wx = _mm_cvtsi32_si128((fx << 16) | (255 - fx));
        wx = _mm_unpacklo_epi16(wx, wx);
        wx = _mm_unpacklo_epi32(wx, wx);
        const __m128i topProducts = _mm_mullo_epi16(_mm_cvtepu8_epi16(top), wx);
        const __m128i bottomProducts = _mm_mullo_epi16(_mm_cvtepu8_epi16(bottom), wx);
        const __m128i topSum = _mm_add_epi16(topProducts, _mm_srli_si128(topProducts, 8));
        const __m128i bottomSum = _mm_add_epi16(bottomProducts, _mm_srli_si128(bottomProducts, 8));
        const __m128i sum =
            _mm_add_epi32(_mm_mullo_epi32(_mm_cvtepu16_epi32(topSum), _mm_set1_epi32(255 - fy)),
                          _mm_mullo_epi32(_mm_cvtepu16_epi32(bottomSum), _mm_set1_epi32(fy)));
        __m128i pixel = _mm_srli_epi32(sum, 16);
        pixel = _mm_packus_epi32(pixel, pixel);
        pixel = _mm_packus_epi16(pixel, pixel);
        *out = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_or_si128(pixel, alpha)));
    }
}

}  // namespace vexel
