// The geometric half of unwrapping: for one lens geometry, where every target pixel of the
// equirectangular picture is sampled in the fisheye picture. Built once per geometry (it costs
// trigonometry per pixel) and kept in a small cache while the geometry stays the same.
//
// Model: equidistant fisheye, the angle from the optical axis is lensAngle / 2 at the radius and
// grows linearly with the distance from the centre. Positions are continuous pixel coordinates,
// pixel (c, r) covering [c, c + 1) x [r, r + 1). The target's column j, row i look at longitude
// (j + 0.5) / width x 360 - 180 and latitude 90 - (i + 0.5) / height x 180 degrees; longitude 0 is
// the first lens's axis, the second lens looks the opposite way.
//
// Threads: BuildMap is pure; MapCache is safe from any thread, and a map stays valid for as long
// as a caller holds it, even once evicted.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "unwrap_kernel.h"

namespace vexel::unwrap {

struct LensPlacement {
    int32_t centerRow;
    int32_t centerColumn;
    bool operator==(const LensPlacement&) const = default;
};

struct Geometry {
    uint32_t sourceWidth, sourceHeight;
    uint32_t targetWidth, targetHeight;
    int32_t radius;      // pixels, > 0
    float lensAngle;     // degrees, (0, 360]
    uint32_t lensCount;  // 1: front only; 2: front and back
    LensPlacement lenses[2];
    bool operator==(const Geometry&) const = default;
};

struct UnwrapMap {
    std::vector<Tap> taps;         // one per target pixel
    std::vector<BlendTap> blends;  // second lens where both see the direction
};

// Throws std::bad_alloc when memory runs out.
std::shared_ptr<const UnwrapMap> BuildMap(const Geometry& geometry);

class MapCache {
public:
    explicit MapCache(size_t capacity) : capacity_(capacity) {}

    // The map of this geometry, built now unless cached. Throws std::bad_alloc.
    std::shared_ptr<const UnwrapMap> Get(const Geometry& geometry);

private:
    std::shared_ptr<const UnwrapMap> Find(const Geometry& geometry);  // lock held

    const size_t capacity_;
    std::mutex lock_;
    std::list<std::pair<Geometry, std::shared_ptr<const UnwrapMap>>> entries_;  // most recent first
};

}  // namespace vexel::unwrap
