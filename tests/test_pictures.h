// Pictures for projection tests: seeded noise, and the row pointers a projector reads them by.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace vexel::testing {

inline std::vector<uint32_t> NoisePicture(int32_t width, int32_t height, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint32_t> pixels(static_cast<size_t>(width) * height);
    for (uint32_t& pixel : pixels) pixel = static_cast<uint32_t>(random());
    return pixels;
}

inline std::vector<const uint32_t*> RowPointers(const std::vector<uint32_t>& pixels, int32_t width,
                                                int32_t height) {
    std::vector<const uint32_t*> rows(height);
    for (int32_t i = 0; i < height; ++i) rows[i] = pixels.data() + static_cast<size_t>(i) * width;
    return rows;
}

}  // namespace vexel::testing
