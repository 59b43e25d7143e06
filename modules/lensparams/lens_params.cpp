// libLensParams.so: lens geometry for unwrapping and the time-keyed view path.
#include <atomic>
#include <cmath>
#include <exception>
#include <new>
#include <string>

#include "path_file.h"
#include "vexel/conversion.h"
#include "view_path.h"

namespace {

using vexel::lens::PathKeys;
using vexel::lens::ViewPath;

// Defaults for a 2:1 picture of two circles side by side (X: fraction of the height, Y: of the
// width).
constexpr double kLeftX = 0.5, kLeftY = 0.25, kRightX = 0.5, kRightY = 0.75, kRadius = 0.5;
// Bounds that keep every product with a picture side far inside 32 bits.
constexpr double kMaxCoordinate = 4.0;

// Each value is read and written whole; a frame that meets a calibration half done sees some old
// and some new values, and the next frame sees them all.
struct Geometry {
    std::atomic<double> leftX{kLeftX}, leftY{kLeftY}, rightX{kRightX}, rightY{kRightY},
        radius{kRadius};
};

Geometry& Lens() {
    static Geometry geometry;
    return geometry;
}

ViewPath& Path() {
    static ViewPath path;
    return path;
}

int32_t Get(const std::atomic<double>& source, double* value) {
    if (value == nullptr) return E_POINTER;
    *value = source.load();
    return S_OK;
}

int32_t Set(std::atomic<double>& target, double value, double low) {
    if (!std::isfinite(value) || value < low || value > kMaxCoordinate) return E_INVALIDARG;
    target.store(value);
    return S_OK;
}

int32_t SetCoordinate(std::atomic<double>& target, double value) {
    return Set(target, value, -kMaxCoordinate);
}

bool AllFinite(std::initializer_list<double> values) {
    for (const double v : values) {
        if (!std::isfinite(v)) return false;
    }
    return true;
}

int32_t ReadPath(double time, double* pan, double* tilt, double* fov) {
    if (std::isnan(time)) return E_INVALIDARG;
    return Path().Read(time, pan, tilt, fov) ? S_OK : S_FALSE;
}

int32_t Stored(bool stored) { return stored ? S_OK : E_OUTOFMEMORY; }

}  // namespace

extern "C" {

int32_t GetPanoramaLeftCenterX(double, double* value) { return Get(Lens().leftX, value); }
int32_t GetPanoramaLeftCenterY(double, double* value) { return Get(Lens().leftY, value); }
int32_t GetPanoramaRightCenterX(double, double* value) { return Get(Lens().rightX, value); }
int32_t GetPanoramaRightCenterY(double, double* value) { return Get(Lens().rightY, value); }
int32_t GetPanoramaRadius(double, double* value) { return Get(Lens().radius, value); }

int32_t SetPanoramaLeftCenterX(double value) { return SetCoordinate(Lens().leftX, value); }
int32_t SetPanoramaLeftCenterY(double value) { return SetCoordinate(Lens().leftY, value); }
int32_t SetPanoramaRightCenterX(double value) { return SetCoordinate(Lens().rightX, value); }
int32_t SetPanoramaRightCenterY(double value) { return SetCoordinate(Lens().rightY, value); }
int32_t SetPanoramaRadius(double value) {
    return value > 0.0 ? Set(Lens().radius, value, 0.0) : E_INVALIDARG;
}

int32_t ResetPanoramaGeometry(void) {
    Geometry& lens = Lens();
    lens.leftX = kLeftX;
    lens.leftY = kLeftY;
    lens.rightX = kRightX;
    lens.rightY = kRightY;
    lens.radius = kRadius;
    return S_OK;
}

int32_t GetPanoramaAngle(double time, double* pan, double* tilt, double* fov) {
    if (pan == nullptr || tilt == nullptr || fov == nullptr) return E_POINTER;
    return ReadPath(time, pan, tilt, fov);
}

int32_t GetPanoramaPan(double time, double* pan, double* tilt) {
    if (pan == nullptr || tilt == nullptr) return E_POINTER;
    return ReadPath(time, pan, tilt, nullptr);
}

int32_t GetPanoramaZoom(double time, double* fov) {
    if (fov == nullptr) return E_POINTER;
    return ReadPath(time, nullptr, nullptr, fov);
}

int32_t SetPanoramaAngle(double time, double pan, double tilt, double fov) {
    if (!AllFinite({time, pan, tilt, fov})) return E_INVALIDARG;
    try {
        return Stored(Path().SetAngle(time, pan, tilt, fov));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

int32_t SetPanoramaPan(double time, double pan, double tilt) {
    if (!AllFinite({time, pan, tilt})) return E_INVALIDARG;
    try {
        return Stored(Path().SetDirection(time, pan, tilt));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

int32_t SetPanoramaZoom(double time, double fov) {
    if (!AllFinite({time, fov})) return E_INVALIDARG;
    try {
        return Stored(Path().SetZoom(time, fov));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

int32_t ClearPanoramaPath(void) {
    Path().Clear();
    return S_OK;
}

int32_t SavePanoramaPath(const char* path) {
    if (path == nullptr) return E_POINTER;
    try {
        return vexel::lens::WriteTextFile(path, vexel::lens::PathToJson(Path().Snapshot()));
    } catch (const std::exception&) {  // out of memory while building the text
        return E_OUTOFMEMORY;
    }
}

int32_t LoadPanoramaPath(const char* path) {
    if (path == nullptr) return E_POINTER;
    try {
        std::string text;
        if (const int32_t status = vexel::lens::ReadTextFile(path, text); status != S_OK)
            return status;
        PathKeys keys;
        if (!vexel::lens::PathFromJson(text, keys)) return E_INVALID_DATA;
        Path().Replace(std::move(keys));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {  // the JSON library's own, should a check above miss a case
        return E_INVALID_DATA;
    }
}

}  // extern "C"
