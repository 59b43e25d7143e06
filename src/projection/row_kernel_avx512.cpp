// AVX-512 (F, BW) versions of StepRowPlain and BlendRowPlain, sixteen pixels per step. The
// arithmetic is that of the AVX2 kernels (row_kernel_avx2.cpp), which explains it.
//
// GCC 12 warns about the deliberately undefined registers inside its own AVX-512 intrinsics.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>

#include <cstdlib>

#include "projection/row_kernel.h"

#define VEXEL_AVX512 __attribute__((target("avx512f,avx512bw")))

namespace vexel {

namespace {

struct ChannelPairs {
    __m512i c0, c1, c2;
};

constexpr __mmask32 kHighHalves = 0xAAAAAAAAu;

VEXEL_AVX512 inline ChannelPairs SplitChannels(__m512i left, __m512i right) {
    const __m512i low = _mm512_set1_epi32(0x00FF00FF);
    return {_mm512_and_si512(
                _mm512_mask_blend_epi16(kHighHalves, left, _mm512_slli_epi32(right, 16)), low),
            _mm512_and_si512(_mm512_mask_blend_epi16(kHighHalves, _mm512_srli_epi32(left, 8),
                                                     _mm512_slli_epi32(right, 8)),
                             low),
            _mm512_and_si512(
                _mm512_mask_blend_epi16(kHighHalves, _mm512_srli_epi32(left, 16), right), low)};
}

VEXEL_AVX512 inline __m512i Vertical(__m512i top, __m512i bottom, __m512i weightsY) {
    const __m512i pairs =
        _mm512_xor_si512(_mm512_mask_blend_epi16(kHighHalves, top, _mm512_slli_epi32(bottom, 16)),
                         _mm512_set1_epi32(static_cast<int32_t>(0x80008000u)));
    const __m512i sum =
        _mm512_add_epi32(_mm512_madd_epi16(pairs, weightsY), _mm512_set1_epi32(255 * 32768));
    return _mm512_srli_epi32(sum, 16);
}

VEXEL_AVX512 inline __m512i WrapColumn(__m512i x, __m512i lastColumn) {
    const __m512i column = _mm512_maskz_mov_epi32(_mm512_cmple_epi32_mask(x, lastColumn), x);
    return _mm512_mask_mov_epi32(column, _mm512_cmplt_epi32_mask(x, _mm512_setzero_si512()),
                                 lastColumn);
}

// Most rows the blend picks pixels from by loads and permutes; more would cost more than gathers.
constexpr int32_t kWindowRows = 8;

// Pixels row[columns % 32] for sixteen columns.
VEXEL_AVX512 inline __m512i Pick(const uint32_t* row, __m512i columns) {
    return _mm512_permutex2var_epi32(_mm512_loadu_si512(row), columns,
                                     _mm512_loadu_si512(row + 16));
}

VEXEL_AVX512 inline __m512i BlendSixteen(const PanoramaRows& source, const int* base,
                                         const int32_t* u, const int32_t* v) {
    const __m512i uu = _mm512_loadu_si512(u);
    const __m512i vv = _mm512_loadu_si512(v);
    const __m512i lastColumn = _mm512_set1_epi32(source.width - 1);
    const __m512i lastRow = _mm512_set1_epi32(source.height - 1);
    const __m512i zero = _mm512_setzero_si512();
    const __m512i one = _mm512_set1_epi32(1);
    const __m512i xi =
        _mm512_add_epi32(_mm512_srai_epi32(uu, 8), _mm512_set1_epi32(source.width >> 1));
    const __m512i yi =
        _mm512_add_epi32(_mm512_srai_epi32(vv, 8), _mm512_set1_epi32(source.height >> 1));
    const __m512i stride = _mm512_set1_epi32(source.stride);
    const __m512i rowA =
        _mm512_mullo_epi32(_mm512_min_epi32(_mm512_max_epi32(yi, zero), lastRow), stride);
    const __m512i rowB = _mm512_mullo_epi32(
        _mm512_min_epi32(_mm512_max_epi32(_mm512_add_epi32(yi, one), zero), lastRow), stride);

    __m512i tl, tr, bl, br;
    // Mostly the sixteen pixels lie within 64 columns and a few rows: loads of each row and
    // permutes pick them out. Otherwise gathers (slow on some processors).
    const int32_t x0 = _mm512_reduce_min_epi32(xi);
    const int32_t y0 = _mm512_reduce_min_epi32(yi), y1 = _mm512_reduce_max_epi32(yi);
    const __m512i relative = _mm512_sub_epi32(xi, _mm512_set1_epi32(x0));
    const __mmask16 inside =
        _mm512_cmpge_epi32_mask(xi, zero) & _mm512_cmplt_epi32_mask(xi, lastColumn);
    const int32_t span = _mm512_reduce_max_epi32(relative) + 2;  // columns used
    if (x0 >= 0 && span <= 64 && x0 <= source.width - (span <= 32 ? 32 : 64) && y0 >= 0 &&
        y1 < source.height - 1 && y1 - y0 < kWindowRows) {
        const __m512i right = _mm512_add_epi32(relative, one);
        tl = tr = bl = br = zero;
        for (int32_t r = y0; r <= y1 + 1; ++r) {
            const uint32_t* row = source.rows[r] + x0;
            __m512i left = Pick(row, relative), rightPixels = Pick(row, right);
            if (span > 32) {
                left = _mm512_mask_mov_epi32(
                    left, _mm512_cmpge_epi32_mask(relative, _mm512_set1_epi32(32)),
                    Pick(row + 32, relative));
                rightPixels = _mm512_mask_mov_epi32(
                    rightPixels, _mm512_cmpge_epi32_mask(right, _mm512_set1_epi32(32)),
                    Pick(row + 32, right));
            }
            const __mmask16 upper = _mm512_cmpeq_epi32_mask(yi, _mm512_set1_epi32(r));
            const __mmask16 lower = _mm512_cmpeq_epi32_mask(yi, _mm512_set1_epi32(r - 1));
            tl = _mm512_mask_mov_epi32(tl, upper, left);
            tr = _mm512_mask_mov_epi32(tr, upper, rightPixels);
            bl = _mm512_mask_mov_epi32(bl, lower, left);
            br = _mm512_mask_mov_epi32(br, lower, rightPixels);
        }
    } else if (inside == 0xFFFF) {
        // One 64-bit gather per pixel and row; pixels 4i, 4i+1 to the first gather and 4i+2, 4i+3
        // to the second, so that even and odd halves come out in pixel order.
        const __m512i order =
            _mm512_setr_epi32(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
        const __m512i a = _mm512_permutexvar_epi32(order, _mm512_add_epi32(rowA, xi));
        const __m512i b = _mm512_permutexvar_epi32(order, _mm512_add_epi32(rowB, xi));
        const __m512 a0 =
            _mm512_castsi512_ps(_mm512_i32gather_epi64(_mm512_castsi512_si256(a), base, 4));
        const __m512 a1 =
            _mm512_castsi512_ps(_mm512_i32gather_epi64(_mm512_extracti64x4_epi64(a, 1), base, 4));
        const __m512 b0 =
            _mm512_castsi512_ps(_mm512_i32gather_epi64(_mm512_castsi512_si256(b), base, 4));
        const __m512 b1 =
            _mm512_castsi512_ps(_mm512_i32gather_epi64(_mm512_extracti64x4_epi64(b, 1), base, 4));
        tl = _mm512_castps_si512(_mm512_shuffle_ps(a0, a1, 0x88));
        tr = _mm512_castps_si512(_mm512_shuffle_ps(a0, a1, 0xDD));
        bl = _mm512_castps_si512(_mm512_shuffle_ps(b0, b1, 0x88));
        br = _mm512_castps_si512(_mm512_shuffle_ps(b0, b1, 0xDD));
    } else {  // at the seam: columns wrap
        const __m512i c0 = WrapColumn(xi, lastColumn),
                      c1 = WrapColumn(_mm512_add_epi32(xi, one), lastColumn);
        tl = _mm512_i32gather_epi32(_mm512_add_epi32(rowA, c0), base, 4);
        tr = _mm512_i32gather_epi32(_mm512_add_epi32(rowA, c1), base, 4);
        bl = _mm512_i32gather_epi32(_mm512_add_epi32(rowB, c0), base, 4);
        br = _mm512_i32gather_epi32(_mm512_add_epi32(rowB, c1), base, 4);
    }

    const __m512i full = _mm512_set1_epi32(255);
    const __m512i fx = _mm512_and_si512(uu, full);
    const __m512i fy = _mm512_and_si512(vv, full);
    const __m512i weightsX = _mm512_or_si512(_mm512_sub_epi32(full, fx), _mm512_slli_epi32(fx, 16));
    const __m512i weightsY = _mm512_or_si512(_mm512_sub_epi32(full, fy), _mm512_slli_epi32(fy, 16));
    const ChannelPairs top = SplitChannels(tl, tr), bottom = SplitChannels(bl, br);
    const __m512i c0 = Vertical(_mm512_madd_epi16(top.c0, weightsX),
                                _mm512_madd_epi16(bottom.c0, weightsX), weightsY);
    const __m512i c1 = Vertical(_mm512_madd_epi16(top.c1, weightsX),
                                _mm512_madd_epi16(bottom.c1, weightsX), weightsY);
    const __m512i c2 = Vertical(_mm512_madd_epi16(top.c2, weightsX),
                                _mm512_madd_epi16(bottom.c2, weightsX), weightsY);
    const __m512i alpha = _mm512_set1_epi32(static_cast<int32_t>(0xFF000000u));
    return _mm512_or_si512(_mm512_or_si512(c0, _mm512_slli_epi32(c1, 8)),
                           _mm512_or_si512(_mm512_slli_epi32(c2, 16), alpha));
}

}  // namespace

VEXEL_AVX512 void StepRowAvx512(const int32_t* gridU, const int32_t* gridV, int32_t step,
                                int32_t count, int32_t fullTurn, int32_t* outU, int32_t* outV) {
    const int32_t half = fullTurn / 2;
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m512i turn = _mm512_set1_epi32(fullTurn);
    const __m512i upper = _mm512_set1_epi32(half);
    const __m512i lower = _mm512_set1_epi32(-half);
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
        const __m512i du = _mm512_set1_epi32(slope.du), dv = _mm512_set1_epi32(slope.dv);
        __m512i u = _mm512_add_epi32(_mm512_set1_epi32(start), _mm512_mullo_epi32(lanes, du));
        __m512i v =
            _mm512_add_epi32(_mm512_set1_epi32(gridV[k]),
                             _mm512_mullo_epi32(_mm512_add_epi32(lanes, _mm512_set1_epi32(1)), dv));
        const __m512i du16 = _mm512_slli_epi32(du, 4), dv16 = _mm512_slli_epi32(dv, 4);
        for (int32_t j = 0; j < n; j += 16) {
            __m512i wrapped = _mm512_mask_sub_epi32(u, _mm512_cmpge_epi32_mask(u, upper), u, turn);
            wrapped = _mm512_mask_add_epi32(wrapped, _mm512_cmplt_epi32_mask(u, lower), u, turn);
            _mm512_storeu_si512(outU + x + j, wrapped);
            _mm512_storeu_si512(outV + x + j, v);
            u = _mm512_add_epi32(u, du16);
            v = _mm512_add_epi32(v, dv16);
        }
    }
}

VEXEL_AVX512 void BlendRowAvx512(const PanoramaRows& source, const int32_t* u, const int32_t* v,
                                 int32_t count, uint32_t* out, int32_t step) {
    int32_t i = 0;
    if (source.stride != 0) {
        const int* base = reinterpret_cast<const int*>(source.rows[0]);
        const __m512i reverse =
            _mm512_setr_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        for (; i + 16 <= count; i += 16) {
            const __m512i pixels = BlendSixteen(source, base, u + i, v + i);
            if (step == 1) {
                _mm512_storeu_si512(out + i, pixels);
            } else {  // stored backwards: pixel i at out - i
                _mm512_storeu_si512(out - i - 15, _mm512_permutexvar_epi32(reverse, pixels));
            }
        }
    }
    BlendRowAvx2(source, u + i, v + i, count - i, out + static_cast<ptrdiff_t>(i) * step, step);
}

}  // namespace vexel
