#include "layout.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace sample {

bool ParseLayout(std::string_view name, Layout* layout) {
    if (name == "equirect") {
        *layout = Layout::Equirectangular;
    } else if (name == "partial") {
        *layout = Layout::Partial;
    } else if (name == "dual-fisheye") {
        *layout = Layout::DualFisheye;
    } else {
        return false;
    }
    return true;
}

LayoutMapper::LayoutMapper(Layout layout, int width, int height, mediakit::Stereo stereo)
    : layout_(layout),
      stereo_(stereo),
      eyeWidth_(width),
      eyeHeight_(layout == Layout::Partial ? height / 2 : height) {
    width_ = stereo == mediakit::Stereo::SideBySide ? 2 * eyeWidth_ : eyeWidth_;
    height_ = stereo == mediakit::Stereo::TopBottom ? 2 * eyeHeight_ : eyeHeight_;
    if (layout != Layout::DualFisheye) return;

    // Each lens is an equidistant 180-degree fisheye: the distance from the circle's centre is
    // proportional to the angle from the lens axis.
    constexpr double pi = std::numbers::pi;
    const double radius = height / 2.0;
    source_.assign(static_cast<size_t>(eyeWidth_) * eyeHeight_, -1);
    for (int lens = 0; lens < 2; ++lens) {
        const double cx = lens == 0 ? radius : width - radius;
        for (int y = 0; y < eyeHeight_; ++y) {
            for (int x = 0; x < eyeWidth_; ++x) {
                const double dx = (x + 0.5 - cx) / radius, dy = (y + 0.5 - radius) / radius;
                const double rho = std::hypot(dx, dy);
                if (rho > 1.0) continue;
                const double theta = rho * pi / 2, phi = std::atan2(dy, dx);
                // Camera axes: right, up, forward along the lens axis; the back lens looks south.
                double right = std::sin(theta) * std::cos(phi),
                       up = -std::sin(theta) * std::sin(phi);
                double forward = std::cos(theta);
                if (lens == 1) {
                    right = -right;
                    forward = -forward;
                }
                const double longitude = std::atan2(right, forward),
                             latitude = std::asin(std::clamp(up, -1.0, 1.0));
                const int sx = std::clamp(static_cast<int>((longitude / (2 * pi) + 0.5) * width), 0,
                                          width - 1);
                const int sy =
                    std::clamp(static_cast<int>((0.5 - latitude / pi) * height), 0, height - 1);
                source_[static_cast<size_t>(y) * eyeWidth_ + x] = sy * width + sx;
            }
        }
    }
}

void LayoutMapper::Apply(const mediakit::Canvas& scene, mediakit::Canvas& out) const {
    if (stereo_ == mediakit::Stereo::Mono) {
        ApplyMono(scene, out);
        return;
    }
    mediakit::Canvas eye;
    ApplyMono(scene, eye);
    if (out.width != width_ || out.height != height_) out = mediakit::Canvas(width_, height_);
    const bool sideBySide = stereo_ == mediakit::Stereo::SideBySide;
    for (int y = 0; y < eyeHeight_; ++y) {
        const uint32_t* in = eye.row(y);
        uint32_t* left = out.row(y);
        uint32_t* right = sideBySide ? left + eyeWidth_ : out.row(y + eyeHeight_);
        for (int x = 0; x < eyeWidth_; ++x) {
            left[x] = in[x];
            right[x] = in[x] ^ 0x00FFFFFFu;
        }
    }
}

void LayoutMapper::ApplyMono(const mediakit::Canvas& scene, mediakit::Canvas& out) const {
    if (layout_ == Layout::Equirectangular) {
        out = scene;
        return;
    }
    if (out.width != eyeWidth_ || out.height != eyeHeight_)
        out = mediakit::Canvas(eyeWidth_, eyeHeight_);
    if (layout_ == Layout::Partial) {
        std::memcpy(out.pixels.data(), scene.row(scene.height / 4), out.pixels.size() * 4);
        return;
    }
    for (size_t i = 0; i < source_.size(); ++i) {
        out.pixels[i] =
            source_[i] < 0 ? mediakit::kBlack : scene.pixels[static_cast<size_t>(source_[i])];
    }
}

}  // namespace sample
