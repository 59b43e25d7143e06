// AVX2 versions of StepRowPlain and BlendRowPlain, eight pixels per step.
//
// Stepping: within a cell whose u drifts by at most half a turn, pixel j's u is the start value
// plus j*du, wrapped once; that equals the pixel-by-pixel wrapping of the plain kernel. Other
// cells (a start more than a turn out, or a huge du) are stepped one pixel at a time.
//
// Blend: the four-weight sum is done separably, exact in integers:
// (255-fy)[(255-fx)tl + fx tr] + fy[(255-fx)bl + fx br]. Both steps multiply pairs of 16-bit
// lanes (madd); the horizontal sums (at most 65025) are taken less 32768 so they fit signed
// 16-bit lanes for the vertical step, and 255 * 32768 is added back.
#include <immintrin.h>

#include <cstdlib>

#include "projection/row_kernel.h"

#define VEXEL_AVX2 __attribute__((target("avx2")))

namespace vexel {

namespace {

// The three colour channels of a row pair (left, right) as (left, right) 16-bit pairs.
struct ChannelPairs {
    __m256i c0, c1, c2;
};

VEXEL_AVX2 inline ChannelPairs SplitChannels(__m256i left, __m256i right) {
    const __m256i low = _mm256_set1_epi32(0x00FF00FF);
    return {
        _mm256_and_si256(_mm256_blend_epi16(left, _mm256_slli_epi32(right, 16), 0xAA), low),
        _mm256_and_si256(
            _mm256_blend_epi16(_mm256_srli_epi32(left, 8), _mm256_slli_epi32(right, 8), 0xAA), low),
        _mm256_and_si256(_mm256_blend_epi16(_mm256_srli_epi32(left, 16), right, 0xAA), low)};
}

// (255-fy) * top + fy * bottom, shifted right by 16, for horizontal sums top and bottom.
VEXEL_AVX2 inline __m256i Vertical(__m256i top, __m256i bottom, __m256i weightsY) {
    const __m256i pairs =
        _mm256_xor_si256(_mm256_blend_epi16(top, _mm256_slli_epi32(bottom, 16), 0xAA),
                         _mm256_set1_epi32(static_cast<int32_t>(0x80008000u)));
    const __m256i sum =
        _mm256_add_epi32(_mm256_madd_epi16(pairs, weightsY), _mm256_set1_epi32(255 * 32768));
    return _mm256_srli_epi32(sum, 16);
}

// The smallest and the largest of eight lanes.
VEXEL_AVX2 inline int32_t ReduceMin(__m256i x) {
    x = _mm256_min_epi32(x, _mm256_permute2x128_si256(x, x, 1));
    x = _mm256_min_epi32(x, _mm256_shuffle_epi32(x, 0x4E));
    return _mm256_cvtsi256_si32(_mm256_min_epi32(x, _mm256_shuffle_epi32(x, 0xB1)));
}
VEXEL_AVX2 inline int32_t ReduceMax(__m256i x) {
    x = _mm256_max_epi32(x, _mm256_permute2x128_si256(x, x, 1));
    x = _mm256_max_epi32(x, _mm256_shuffle_epi32(x, 0x4E));
    return _mm256_cvtsi256_si32(_mm256_max_epi32(x, _mm256_shuffle_epi32(x, 0xB1)));
}

// Pixels row[columns] for columns 0..15.
VEXEL_AVX2 inline __m256i Pick(const uint32_t* row, __m256i columns) {
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row));
    const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 8));
    return _mm256_blendv_epi8(_mm256_permutevar8x32_epi32(low, columns),
                              _mm256_permutevar8x32_epi32(high, columns),
                              _mm256_cmpgt_epi32(columns, _mm256_set1_epi32(7)));
}

// Column x of the panorama, wrapped once: the last one left of 0, the first one right of the last.
VEXEL_AVX2 inline __m256i WrapColumn(__m256i x, __m256i lastColumn) {
    const __m256i column = _mm256_andnot_si256(_mm256_cmpgt_epi32(x, lastColumn), x);
    return _mm256_blendv_epi8(column, lastColumn, _mm256_cmpgt_epi32(_mm256_setzero_si256(), x));
}

// Eight pixels at u[0..7], v[0..7].
VEXEL_AVX2 inline __m256i BlendEight(const PanoramaRows& source, const int* base, const int32_t* u,
                                     const int32_t* v) {
    const __m256i uu = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(u));
    const __m256i vv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v));
    const __m256i lastColumn = _mm256_set1_epi32(source.width - 1);
    const __m256i lastRow = _mm256_set1_epi32(source.height - 1);
    const __m256i zero = _mm256_setzero_si256();
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i xi =
        _mm256_add_epi32(_mm256_srai_epi32(uu, 8), _mm256_set1_epi32(source.width >> 1));
    const __m256i yi =
        _mm256_add_epi32(_mm256_srai_epi32(vv, 8), _mm256_set1_epi32(source.height >> 1));
    const __m256i stride = _mm256_set1_epi32(source.stride);
    const __m256i rowA =
        _mm256_mullo_epi32(_mm256_min_epi32(_mm256_max_epi32(yi, zero), lastRow), stride);
    const __m256i rowB = _mm256_mullo_epi32(
        _mm256_min_epi32(_mm256_max_epi32(_mm256_add_epi32(yi, one), zero), lastRow), stride);

    __m256i tl, tr, bl, br;
    // Mostly the eight pixels lie within 16 columns and a few rows: two loads per row and
    // permutes pick them out. Otherwise gathers.
    const int32_t x0 = ReduceMin(xi), y0 = ReduceMin(yi), y1 = ReduceMax(yi);
    const __m256i relative = _mm256_sub_epi32(xi, _mm256_set1_epi32(x0));
    const __m256i inside = _mm256_and_si256(_mm256_cmpgt_epi32(xi, _mm256_set1_epi32(-1)),
                                            _mm256_cmpgt_epi32(lastColumn, xi));
    if (x0 >= 0 && x0 <= source.width - 16 && y0 >= 0 && y1 < source.height - 1 && y1 - y0 < 8 &&
        _mm256_movemask_epi8(_mm256_cmpgt_epi32(relative, _mm256_set1_epi32(14))) == 0) {
        const __m256i right = _mm256_add_epi32(relative, one);
        tl = tr = bl = br = zero;
        for (int32_t r = y0; r <= y1 + 1; ++r) {
            const uint32_t* row = source.rows[r] + x0;
            const __m256i left = Pick(row, relative), rightPixels = Pick(row, right);
            const __m256i upper = _mm256_cmpeq_epi32(yi, _mm256_set1_epi32(r));
            const __m256i lower = _mm256_cmpeq_epi32(yi, _mm256_set1_epi32(r - 1));
            tl = _mm256_blendv_epi8(tl, left, upper);
            tr = _mm256_blendv_epi8(tr, rightPixels, upper);
            bl = _mm256_blendv_epi8(bl, left, lower);
            br = _mm256_blendv_epi8(br, rightPixels, lower);
        }
    } else if (_mm256_movemask_epi8(inside) == -1) {
        // Left and right neighbours are adjacent: one 64-bit gather per pixel and row. Pixels
        // 0,1,4,5 go to the first gather and 2,3,6,7 to the second, so that even and odd halves
        // come out in pixel order.
        const __m256i order = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
        const __m256i a = _mm256_permutevar8x32_epi32(_mm256_add_epi32(rowA, xi), order);
        const __m256i b = _mm256_permutevar8x32_epi32(_mm256_add_epi32(rowB, xi), order);
        const auto* base64 = reinterpret_cast<const long long*>(base);
        const __m256 a0 =
            _mm256_castsi256_ps(_mm256_i32gather_epi64(base64, _mm256_castsi256_si128(a), 4));
        const __m256 a1 =
            _mm256_castsi256_ps(_mm256_i32gather_epi64(base64, _mm256_extracti128_si256(a, 1), 4));
        const __m256 b0 =
            _mm256_castsi256_ps(_mm256_i32gather_epi64(base64, _mm256_castsi256_si128(b), 4));
        const __m256 b1 =
            _mm256_castsi256_ps(_mm256_i32gather_epi64(base64, _mm256_extracti128_si256(b, 1), 4));
        tl = _mm256_castps_si256(_mm256_shuffle_ps(a0, a1, 0x88));
        tr = _mm256_castps_si256(_mm256_shuffle_ps(a0, a1, 0xDD));
        bl = _mm256_castps_si256(_mm256_shuffle_ps(b0, b1, 0x88));
        br = _mm256_castps_si256(_mm256_shuffle_ps(b0, b1, 0xDD));
    } else {  // at the seam: columns wrap
        const __m256i c0 = WrapColumn(xi, lastColumn),
                      c1 = WrapColumn(_mm256_add_epi32(xi, one), lastColumn);
        tl = _mm256_i32gather_epi32(base, _mm256_add_epi32(rowA, c0), 4);
        tr = _mm256_i32gather_epi32(base, _mm256_add_epi32(rowA, c1), 4);
        bl = _mm256_i32gather_epi32(base, _mm256_add_epi32(rowB, c0), 4);
        br = _mm256_i32gather_epi32(base, _mm256_add_epi32(rowB, c1), 4);
    }

    const __m256i fx = _mm256_and_si256(uu, _mm256_set1_epi32(255));
    const __m256i fy = _mm256_and_si256(vv, _mm256_set1_epi32(255));
    const __m256i full = _mm256_set1_epi32(255);
    const __m256i weightsX = _mm256_or_si256(_mm256_sub_epi32(full, fx), _mm256_slli_epi32(fx, 16));
    const __m256i weightsY = _mm256_or_si256(_mm256_sub_epi32(full, fy), _mm256_slli_epi32(fy, 16));
    const ChannelPairs top = SplitChannels(tl, tr), bottom = SplitChannels(bl, br);
    const __m256i c0 = Vertical(_mm256_madd_epi16(top.c0, weightsX),
                                _mm256_madd_epi16(bottom.c0, weightsX), weightsY);
    const __m256i c1 = Vertical(_mm256_madd_epi16(top.c1, weightsX),
                                _mm256_madd_epi16(bottom.c1, weightsX), weightsY);
    const __m256i c2 = Vertical(_mm256_madd_epi16(top.c2, weightsX),
                                _mm256_madd_epi16(bottom.c2, weightsX), weightsY);
    const __m256i alpha = _mm256_set1_epi32(static_cast<int32_t>(0xFF000000u));
    return _mm256_or_si256(_mm256_or_si256(c0, _mm256_slli_epi32(c1, 8)),
                           _mm256_or_si256(_mm256_slli_epi32(c2, 16), alpha));
}

}  // namespace

VEXEL_AVX2 void StepRowAvx2(const int32_t* gridU, const int32_t* gridV, int32_t step, int32_t count,
                            int32_t fullTurn, int32_t* outU, int32_t* outV) {
    const int32_t half = fullTurn / 2;
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i turn = _mm256_set1_epi32(fullTurn);
    const __m256i upper = _mm256_set1_epi32(half - 1);
    const __m256i lower = _mm256_set1_epi32(-half);
    for (int32_t k = 0, x = 0; x < count; ++k, x += step) {
        const CellSlope slope = SlopeOfCell(gridU, gridV, k, step, fullTurn);
        const int32_t n = std::min(step, count - x);
        const int32_t start = WrapOnce(gridU[k], fullTurn);
        const bool oneWrap = start >= -half && start < half &&
                             std::abs(static_cast<int64_t>(slope.du)) * (n - 1) <= half;
        if (!oneWrap) {
            StepCell(gridU[k], gridV[k], slope.du, slope.dv, n, fullTurn, outU + x, outV + x);
            continue;
        }
        const __m256i du = _mm256_set1_epi32(slope.du), dv = _mm256_set1_epi32(slope.dv);
        __m256i u = _mm256_add_epi32(_mm256_set1_epi32(start), _mm256_mullo_epi32(lanes, du));
        __m256i v =
            _mm256_add_epi32(_mm256_set1_epi32(gridV[k]),
                             _mm256_mullo_epi32(_mm256_add_epi32(lanes, _mm256_set1_epi32(1)), dv));
        const __m256i du8 = _mm256_slli_epi32(du, 3), dv8 = _mm256_slli_epi32(dv, 3);
        for (int32_t j = 0; j < n; j += 8) {
            const __m256i high = _mm256_and_si256(_mm256_cmpgt_epi32(u, upper), turn);
            const __m256i low = _mm256_and_si256(_mm256_cmpgt_epi32(lower, u), turn);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(outU + x + j),
                                _mm256_add_epi32(_mm256_sub_epi32(u, high), low));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(outV + x + j), v);
            u = _mm256_add_epi32(u, du8);
            v = _mm256_add_epi32(v, dv8);
        }
    }
}

VEXEL_AVX2 void BlendRowAvx2(const PanoramaRows& source, const int32_t* u, const int32_t* v,
                             int32_t count, uint32_t* out, int32_t step) {
    int32_t i = 0;
    if (source.stride != 0) {
        const int* base = reinterpret_cast<const int*>(source.rows[0]);
        const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
        for (; i + 8 <= count; i += 8) {
            const __m256i pixels = BlendEight(source, base, u + i, v + i);
            if (step == 1) {
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), pixels);
            } else {  // stored backwards: pixel i at out - i
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(out - i - 7),
                                    _mm256_permutevar8x32_epi32(pixels, reverse));
            }
        }
    }
    for (; i < count; ++i) out[static_cast<ptrdiff_t>(i) * step] = SamplePixel(source, u[i], v[i]);
}

}  // namespace vexel
