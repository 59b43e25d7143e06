// Lens layouts of the generated clip: the scene's equirectangular picture as it is, its middle
// band only (a partial panorama: 360 by 90 degrees, four times as wide as high), or as two
// back-to-back 180-degree fisheye images side by side (front lens left, back lens right).
//
// Threads: a LayoutMapper is built once and then only read.
#pragma once

#include <string_view>
#include <vector>

#include "canvas.h"

namespace sample {

enum class Layout { Equirectangular, Partial, DualFisheye };

// False for an unknown name. Names: equirect, partial, dual-fisheye.
bool ParseLayout(std::string_view name, Layout* layout);

class LayoutMapper {
public:
    // For a scene of width x height pixels.
    LayoutMapper(Layout layout, int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }

    // The scene picture in this layout; `out` is resized to width() x height().
    void Apply(const mediakit::Canvas& scene, mediakit::Canvas& out) const;

private:
    Layout layout_;
    int width_ = 0;
    int height_ = 0;
    std::vector<int> source_;  // dual fisheye: scene pixel per output pixel, -1 outside the lenses
};

}  // namespace sample
