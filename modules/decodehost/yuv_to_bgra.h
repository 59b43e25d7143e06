// Decoded YUV pictures to 32-bit B,G,R,A pixels through libyuv, in the colour matrix (BT.601,
// BT.709, BT.2020) and range (limited, full) the picture is tagged with; untagged pictures are
// BT.601, limited range unless the pixel format says full.
//
// Threads: any; the function keeps no state.
#pragma once

#include <cstdint>

#include "av_ptr.h"

namespace vexel::decodehost {

// Whether YuvToBgra takes `frame`: libyuv offers its pixel format and colour matrix.
bool YuvToBgraHandles(const AVFrame& frame);

// Writes `frame` at its own size into `out`, `stride` bytes from one row to the next (at least
// width * 4), first row first or, with `bottomUp`, last row first. False, with `out` untouched,
// when YuvToBgraHandles does not take the frame.
bool YuvToBgra(const AVFrame& frame, uint8_t* out, int stride, bool bottomUp);

}  // namespace vexel::decodehost
