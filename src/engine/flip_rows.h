// Row reversal of a 32-bit picture: delivered pictures come bottom row first.
#pragma once

#include <cstdint>

namespace vexel {

// Copies a width x height 32-bit picture with its rows in reverse order. False when a picture is
// missing; true without copying when height is 0.
bool FlipRows32(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height);

}  // namespace vexel
