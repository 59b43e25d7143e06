// Decoded YUV pictures to 32-bit B,G,R,A pixels through libyuv, in the colour matrix (BT.601,
// BT.709, BT.2020) and range (limited, full) the picture is tagged with; untagged pictures are
// BT.601, limited range unless the pixel format says full.
//
// Threads: any; the function keeps no state.
#pragma once

#include <cstdint>

#include "av_ptr.h"

namespace vexel::decodehost {

// Writes `frame` at its own size into `out` (width * 4 bytes a row, no padding), last row first.
// False, with `out` untouched, for pixel formats and colour matrices libyuv does not offer.
bool YuvToBottomUpBgra(const AVFrame& frame, uint8_t* out);

}  // namespace vexel::decodehost
