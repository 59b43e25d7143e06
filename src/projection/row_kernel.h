// The per-row work of the view projector, in one plain C++ version (the reference) and SIMD
// versions that give bit-identical results:
// - StepRow: the panorama coordinates (u, v) of every pixel of a view row, interpolated linearly
//   between the grid points of that row. Cell k holds `step` pixels; pixel j of it takes
//   u = gridU[k] + j*du, carried into [-U/2, U/2) with one wrap per pixel, and
//   v = gridV[k] + (j+1)*dv, where du = WrapDiff(gridU[k+1], gridU[k]) / step and
//   dv = (gridV[k+1] - gridV[k]) / step (truncating).
// - BlendRow: for each (u, v) in 1/256 source pixels (u from the centre column, v from the horizon
//   row) the bilinear blend of the four pixels around it, written to out, out + step, ...
//   Columns wrap around the 360-degree seam; rows are clamped to the picture.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "projection/bilinear_blend.h"
#include "vexel/cpu_kernel.h"

namespace vexel {

struct PanoramaRows {
    const uint32_t* const* rows;  // height row pointers, top row first
    int32_t width;
    int32_t height;
    // Pixels from one row to the next when the rows are evenly spaced and every pixel lies within
    // 2^31 pixels of rows[0] (the SIMD kernels then gather by offset); 0 otherwise.
    int32_t stride;
};

// Evenly spaced rows get their stride; any other row table gets 0.
int32_t RowStride(const uint32_t* const* rows, int32_t width, int32_t height);

// Difference a - b of two u coordinates; a jump of more than 240 degrees between neighbours
// (third = fullTurn / 3) is a crossing of the seam and is taken the short way round.
inline int32_t WrapDiff(int32_t a, int32_t b, int32_t fullTurn, int32_t third) {
    int64_t d = static_cast<int64_t>(a) - b;
    if (a < -third && b > third) {
        d += fullTurn;
    } else if (a > third && b < -third) {
        d -= fullTurn;
    }
    return static_cast<int32_t>(d);
}

// One wrap into [-fullTurn/2, fullTurn/2), as the row stepping applies it to every pixel.
inline int32_t WrapOnce(int32_t u, int32_t fullTurn) {
    if (u >= fullTurn / 2) u -= fullTurn;
    if (u < -fullTurn / 2) u += fullTurn;
    return u;
}

// Per-pixel increments of u and v across cell k of a grid row.
struct CellSlope {
    int32_t du, dv;
};
inline CellSlope SlopeOfCell(const int32_t* gridU, const int32_t* gridV, int32_t k, int32_t step,
                             int32_t fullTurn) {
    return {WrapDiff(gridU[k + 1], gridU[k], fullTurn, fullTurn / 3) / step,
            static_cast<int32_t>(static_cast<int64_t>(gridV[k + 1]) - gridV[k]) / step};
}

// The pixels of cell k of a row, stepped one by one: the reference, and the SIMD kernels' way for
// cells whose u could need more than one wrap.
inline void StepCell(int32_t u, int32_t v, int32_t du, int32_t dv, int32_t count, int32_t fullTurn,
                     int32_t* outU, int32_t* outV) {
    for (int32_t j = 0; j < count; ++j) {
        u = WrapOnce(u, fullTurn);
        v = static_cast<int32_t>(static_cast<uint32_t>(v) + static_cast<uint32_t>(dv));
        outU[j] = u;
        outV[j] = v;
        u = static_cast<int32_t>(static_cast<uint32_t>(u) + static_cast<uint32_t>(du));
    }
}

// The blended pixel at (u, v); the reference for every blend kernel.
inline uint32_t SamplePixel(const PanoramaRows& source, int32_t u, int32_t v) {
    const int32_t width = source.width, height = source.height;
    const int32_t xi = (u >> 8) + (width >> 1);
    const int32_t yi = (v >> 8) + (height >> 1);
    const uint32_t* rowA = source.rows[std::clamp(yi, 0, height - 1)];
    const uint32_t* rowB = source.rows[std::clamp(yi + 1, 0, height - 1)];
    const int32_t c0 = xi < 0 ? width - 1 : (xi > width - 1 ? 0 : xi);
    const int32_t c1 = xi + 1 < 0 ? width - 1 : (xi + 1 > width - 1 ? 0 : xi + 1);
    return BlendBilinear(rowA[c0], rowA[c1], rowB[c0], rowB[c1], static_cast<uint32_t>(u) & 255,
                         static_cast<uint32_t>(v) & 255);
}

// gridU, gridV: count / step + 2 grid points. outU, outV: count pixels, plus kRowPadding that a
// kernel may write beyond the end.
using StepRowFunction = void (*)(const int32_t* gridU, const int32_t* gridV, int32_t step,
                                 int32_t count, int32_t fullTurn, int32_t* outU, int32_t* outV);
using BlendRowFunction = void (*)(const PanoramaRows& source, const int32_t* u, const int32_t* v,
                                  int32_t count, uint32_t* out, int32_t step);
inline constexpr int32_t kRowPadding = 16;

struct RowKernel {
    CpuKernel level;
    StepRowFunction stepRow;
    BlendRowFunction blendRow;
};

void StepRowPlain(const int32_t* gridU, const int32_t* gridV, int32_t step, int32_t count,
                  int32_t fullTurn, int32_t* outU, int32_t* outV);
void StepRowAvx2(const int32_t* gridU, const int32_t* gridV, int32_t step, int32_t count,
                 int32_t fullTurn, int32_t* outU, int32_t* outV);
void StepRowAvx512(const int32_t* gridU, const int32_t* gridV, int32_t step, int32_t count,
                   int32_t fullTurn, int32_t* outU, int32_t* outV);
void BlendRowPlain(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                   uint32_t* out, int32_t step);
void BlendRowSse41(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                   uint32_t* out, int32_t step);
void BlendRowAvx2(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                  uint32_t* out, int32_t step);
void BlendRowAvx512(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                    uint32_t* out, int32_t step);

// The kernels this processor runs, plain first, best last.
std::span<const RowKernel> SupportedRowKernels();

// The kernel chosen once from the processor's features and VEXEL_CPU (see vexel/cpu_kernel.h).
const RowKernel& ChosenRowKernel();

}  // namespace vexel
