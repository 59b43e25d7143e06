// Lens layouts of the generated clip: the scene's equirectangular picture as it is, its middle
// band only (a partial panorama: 360 by 90 degrees, four times as wide as high), or as two
// back-to-back 180-degree fisheye images side by side (front lens left, back lens right). Any of
// them may be stereo: two eyes stacked (top-bottom) or side by side, the left eye first; the left
// eye is the scene and the right eye the scene in inverted colours, so that a program showing the
// wrong eye is easy to tell.
//
// Threads: a LayoutMapper is built once and then only read.
#pragma once

#include <string_view>
#include <vector>

#include "canvas.h"
#include "panorama_layout.h"

namespace sample {

enum class Layout { Equirectangular, Partial, DualFisheye };

// False for an unknown name. Names: equirect, partial, dual-fisheye.
bool ParseLayout(std::string_view name, Layout* layout);

class LayoutMapper {
public:
    // For a scene of width x height pixels; `stereo` Mono, TopBottom or SideBySide.
    LayoutMapper(Layout layout, int width, int height,
                 mediakit::Stereo stereo = mediakit::Stereo::Mono);

    int width() const { return width_; }
    int height() const { return height_; }

    // The scene picture in this layout; `out` is resized to width() x height().
    void Apply(const mediakit::Canvas& scene, mediakit::Canvas& out) const;

private:
    void ApplyMono(const mediakit::Canvas& scene, mediakit::Canvas& out) const;

    Layout layout_;
    mediakit::Stereo stereo_;
    int eyeWidth_ = 0;
    int eyeHeight_ = 0;
    int width_ = 0;
    int height_ = 0;
    std::vector<int> source_;  // dual fisheye: scene pixel per output pixel, -1 outside the lenses
};

}  // namespace sample
