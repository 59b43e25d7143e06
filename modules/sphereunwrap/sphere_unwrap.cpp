// libSphereUnwrap.so: one or two fisheye pictures to an equirectangular panorama.
#include <cmath>
#include <new>

#include "unwrap_kernel.h"
#include "unwrap_map.h"
#include "vexel/conversion.h"

namespace {

using namespace vexel::unwrap;

constexpr int32_t kMaxRadius = 65536;

bool ValidSide(uint32_t side) { return side >= 2 && side <= kMaxPictureSide; }

// The geometry of a call, or an error for records that cannot be unwrapped.
int32_t ReadGeometry(const UnwrapSource* source, const UnwrapTarget* target, uint32_t lensCount,
                     Geometry& geometry) {
    if (source == nullptr || target == nullptr || source->pixels == nullptr ||
        target->pixels == nullptr) {
        return E_POINTER;
    }
    const uint64_t sourcePixels = uint64_t{source->width} * source->height;
    const uint64_t targetPixels = uint64_t{target->width} * target->height;
    if (!ValidSide(source->width) || !ValidSide(source->height) ||
        source->size < sourcePixels * 4 || !ValidSide(target->width) ||
        !ValidSide(target->height) || targetPixels > kMaxUnwrapTargetPixels ||
        target->size < targetPixels || source->radius < 1 || source->radius > kMaxRadius ||
        !std::isfinite(source->lensAngle) || source->lensAngle <= 0.0f ||
        source->lensAngle > 360.0f) {
        return E_INVALIDARG;
    }
    geometry = Geometry{source->width,  source->height,    target->width, target->height,
                        source->radius, source->lensAngle, lensCount,     {}};
    if (lensCount == 1) {
        geometry.lenses[0] = {source->centerRow, source->centerColumn};
    } else {
        geometry.lenses[0] = {source->leftRow, source->leftColumn};
        geometry.lenses[1] = {source->rightRow, source->rightColumn};
    }
    return S_OK;
}

int32_t Unwrap(const UnwrapSource* source, const UnwrapTarget* target, uint32_t lensCount) {
    // Room for the single and the dual geometry of one player, plus one more.
    static MapCache cache(3);
    Geometry geometry;
    if (const int32_t status = ReadGeometry(source, target, lensCount, geometry); status != S_OK) {
        return status;
    }
    try {
        const auto map = cache.Get(geometry);
        const SourcePicture picture{reinterpret_cast<const uint32_t*>(source->pixels),
                                    source->width};
        auto* out = reinterpret_cast<uint32_t*>(target->pixels);
        BestUnwrap()(picture, map->taps.data(), map->taps.size(), map->blends.data(),
                     map->blends.size(), out);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

}  // namespace

extern "C" {

int32_t SingleFisheye2Equirectangular(const UnwrapSource* source, const UnwrapTarget* target) {
    return Unwrap(source, target, 1);
}

int32_t DualFisheye2Equirectangular(const UnwrapSource* source, const UnwrapTarget* target) {
    return Unwrap(source, target, 2);
}

}  // extern "C"
