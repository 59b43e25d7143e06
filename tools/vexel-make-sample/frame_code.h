// The frame code: the frame number written into the top-left corner of every generated picture as
// a row of 16 black or white squares (most significant bit first), so that a program can read back
// which frame it is looking at even after lossy compression. Header-only: the generator writes it,
// tests read it.
#pragma once

#include <algorithm>
#include <cstdint>

namespace framecode {

inline constexpr int kBits = 16;

// Side of one square for a picture `width` pixels wide.
inline int CellSize(int width) { return std::max(4, width / 64); }

// Writes `number` into 32-bit pixels (rows top-down, `width` pixels each, at least one cell high).
inline void Write(uint32_t* pixels, int width, uint32_t number) {
    const int cell = CellSize(width);
    for (int bit = 0; bit < kBits && (bit + 1) * cell <= width; ++bit) {
        const uint32_t color = (number >> (kBits - 1 - bit)) & 1 ? 0xFFFFFFFFu : 0xFF000000u;
        for (int y = 0; y < cell; ++y) {
            std::fill_n(pixels + static_cast<size_t>(y) * width + bit * cell, cell, color);
        }
    }
}

// Reads the number back from B,G,R,A pixels (rows top-down); -1 when the picture is too small.
inline int64_t Read(const uint8_t* pixels, int width, int height) {
    const int cell = CellSize(width);
    if (pixels == nullptr || height < cell || width < kBits * cell) return -1;
    uint32_t number = 0;
    for (int bit = 0; bit < kBits; ++bit) {
        const uint8_t* p =
            pixels + (static_cast<size_t>(cell / 2) * width + bit * cell + cell / 2) * 4;
        const int luma = (p[0] + 2 * p[1] + p[2]) / 4;
        number = number << 1 | (luma >= 128 ? 1u : 0u);
    }
    return number;
}

}  // namespace framecode
