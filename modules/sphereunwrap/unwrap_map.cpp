#include "unwrap_map.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vexel::unwrap {

namespace {

constexpr double kPi = std::numbers::pi;

constexpr Tap kNothing = {kNoTap, 0, 0};

// The tap for continuous position (x, y); kNoTap when it lies outside the picture.
Tap TapAt(double x, double y, uint32_t width, uint32_t height) {
    if (!(x >= 0.0 && y >= 0.0 && x <= width && y <= height)) return kNothing;
    // Pixel centres sit at +0.5; the outer half pixel repeats the edge.
    const double u = std::clamp(x - 0.5, 0.0, width - 1.0);
    const double v = std::clamp(y - 0.5, 0.0, height - 1.0);
    const uint32_t x0 = std::min(static_cast<uint32_t>(u), width - 2);
    const uint32_t y0 = std::min(static_cast<uint32_t>(v), height - 2);
    return MakeTap(y0 * width + x0, static_cast<uint32_t>(std::lround((u - x0) * kOne)),
                   static_cast<uint32_t>(std::lround((v - y0) * kOne)));
}

// Where the lens sees a direction given in its own frame (x right, y up, z along the axis).
Tap LensTap(const Geometry& g, const LensPlacement& lens, double theta, double x, double y,
            double rho) {
    const double r = g.radius * theta / (g.lensAngle * kPi / 360.0);
    const double scale = rho > 0.0 ? r / rho : 0.0;
    return TapAt(lens.centerColumn + x * scale, lens.centerRow - y * scale, g.sourceWidth,
                 g.sourceHeight);
}

// Share of the front lens for a direction theta from its axis: 1 well inside its half, falling
// smoothly to 0 across the band both lenses see.
double FrontShare(double theta, double halfAngle) {
    const double overlap = halfAngle - kPi / 2;
    if (overlap <= 0.0) return theta < kPi / 2 ? 1.0 : 0.0;
    const double s = std::clamp((halfAngle - theta) / (2.0 * overlap), 0.0, 1.0);
    return s * s * (3.0 - 2.0 * s);
}

}  // namespace

std::shared_ptr<const UnwrapMap> BuildMap(const Geometry& g) {
    auto map = std::make_shared<UnwrapMap>();
    map->taps.resize(size_t{g.targetWidth} * g.targetHeight);
    const double halfAngle = g.lensAngle * kPi / 360.0;
    std::vector<double> sinLon(g.targetWidth), cosLon(g.targetWidth);
    for (uint32_t j = 0; j < g.targetWidth; ++j) {
        const double lon = (j + 0.5) / g.targetWidth * 2.0 * kPi - kPi;
        sinLon[j] = std::sin(lon);
        cosLon[j] = std::cos(lon);
    }
    for (uint32_t i = 0; i < g.targetHeight; ++i) {
        const double lat = kPi / 2 - (i + 0.5) / g.targetHeight * kPi;
        const double y = std::sin(lat), cosLat = std::cos(lat);
        for (uint32_t j = 0; j < g.targetWidth; ++j) {
            const double x = cosLat * sinLon[j], z = cosLat * cosLon[j];
            const double rho = std::sqrt(x * x + y * y);
            const double theta =
                std::atan2(rho, z);  // from the front axis; the back lens sees pi - theta
            const uint32_t index = i * g.targetWidth + j;
            // The back lens is the front one turned half round the vertical: its x and z flip.
            const Tap front =
                theta <= halfAngle ? LensTap(g, g.lenses[0], theta, x, y, rho) : kNothing;
            const Tap back = g.lensCount == 2 && kPi - theta <= halfAngle
                                 ? LensTap(g, g.lenses[1], kPi - theta, -x, y, rho)
                                 : kNothing;
            double share = front.offset == kNoTap ? 0.0 : 1.0;
            if (front.offset != kNoTap && back.offset != kNoTap)
                share = FrontShare(theta, halfAngle);
            const auto backWeight = static_cast<uint32_t>(std::lround((1.0 - share) * kOne));
            if (backWeight == 0) {
                map->taps[index] = front;
            } else if (backWeight == kOne) {
                map->taps[index] = back;
            } else {
                map->taps[index] = front;
                map->blends.push_back({index, backWeight, back});
            }
        }
    }
    map->blends.shrink_to_fit();
    return map;
}

std::shared_ptr<const UnwrapMap> MapCache::Find(const Geometry& geometry) {
    const auto it = std::find_if(entries_.begin(), entries_.end(),
                                 [&](const auto& entry) { return entry.first == geometry; });
    if (it == entries_.end()) return nullptr;
    entries_.splice(entries_.begin(), entries_, it);
    return it->second;
}

std::shared_ptr<const UnwrapMap> MapCache::Get(const Geometry& geometry) {
    {
        std::lock_guard guard(lock_);
        if (auto map = Find(geometry)) return map;
    }
    // Built without the lock, so other geometries are served meanwhile; a thread that raced us
    // to the same geometry wins and this copy is dropped.
    auto built = BuildMap(geometry);
    std::lock_guard guard(lock_);
    if (auto map = Find(geometry)) return map;
    entries_.emplace_front(geometry, built);
    if (entries_.size() > capacity_) entries_.pop_back();
    return built;
}

}  // namespace vexel::unwrap
