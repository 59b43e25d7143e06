// Samples one view row out of the panorama: for each (u, v) in 1/256 source pixels (u from the
// centre column, v from the horizon row) the bilinear blend of the four pixels around it, written to
// out, out + step, out + 2*step, ... Columns wrap around the 360-degree seam; rows are clamped to
// the picture.
//
// BlendRowPlain is the reference; BlendRowSse41 gives bit-identical pixels faster and needs SSE4.1.
// Threads: pure functions, callable from any thread.
#pragma once

#include <cstdint>

namespace vexel {

struct PanoramaRows {
    const uint32_t* const* rows;  // height row pointers, top row first
    int32_t width;
    int32_t height;
};

using BlendRowFunction = void (*)(const PanoramaRows& source, const int32_t* u, const int32_t* v,
                                  int32_t count, uint32_t* out, int32_t step);

void BlendRowPlain(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                   uint32_t* out, int32_t step);
void BlendRowSse41(const PanoramaRows& source, const int32_t* u, const int32_t* v, int32_t count,
                   uint32_t* out, int32_t step);

// The fastest version this processor runs, chosen once.
BlendRowFunction BestBlendRow();

}  // namespace vexel
