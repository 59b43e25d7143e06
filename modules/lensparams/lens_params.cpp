// libLensParams.so: lens geometry for unwrapping and the time-keyed view path.
#include <atomic>
#include <cmath>
#include <exception>
#include <new>
#include <string>

#include "path_file.h"
#include "view_path.h"
#include "vexel/conversion.h"

namespace {

using vexel::lens::PathKeys;
using vexel::lens::ViewPath;

// Defaults for a 2:1 picture of two circles side by side (X: fraction of the height, Y: of the width).
constexpr double kLeftX = 0.5, kLeftY = 0.25, kRightX = 0.5, kRightY = 0.75, kRadius = 0.5;
// Bounds that keep every product with a picture side far inside 32 bits.
constexpr double kMaxCoordinate = 4.0;

// Each value is read and written whole; a frame that meets a calibration half done sees some old
// and some new values, and the next frame sees them all.
struct Geometry {
    std::atomic<double> leftX{kLeftX}, leftY{kLeftY}, rightX{kRightX}, rightY{kRightY}, radius{kRadius};
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
    if (value == nullptr) return kVexelErrorPointer;
    *value = source.load();
    return kVexelOk;
}

int32_t Set(std::atomic<double>& target, double value, double low) {
    if (!std::isfinite(value) || value < low || value > kMaxCoordinate) return kVexelErrorArgument;
    target.store(value);
    return kVexelOk;
}

int32_t SetCoordinate(std::atomic<double>& target, double value) { return Set(target, value, -kMaxCoordinate); }

bool AllFinite(std::initializer_list<double> values) {
    for (const double v : values) {
        if (!std::isfinite(v)) return false;
    }
    return true;
}

int32_t ReadPath(double time, double* pan, double* tilt, double* fov) {
    if (std::isnan(time)) return kVexelErrorArgument;
    return Path().Read(time, pan, tilt, fov) ? kVexelOk : kVexelNothingDone;
}

int32_t Stored(bool stored) { return stored ? kVexelOk : kVexelErrorMemory; }

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
int32_t SetPanoramaRadius(double value) { return value > 0.0 ? Set(Lens().radius, value, 0.0) : kVexelErrorArgument; }

int32_t ResetPanoramaGeometry(void) {
    Geometry& lens = Lens();
    lens.leftX = kLeftX;
    lens.leftY = kLeftY;
    lens.rightX = kRightX;
    lens.rightY = kRightY;
    lens.radius = kRadius;
    return kVexelOk;
}

int32_t GetPanoramaAngle(double time, double* pan, double* tilt, double* fov) {
    if (pan == nullptr || tilt == nullptr || fov == nullptr) return kVexelErrorPointer;
    return ReadPath(time, pan, tilt, fov);
}

int32_t GetPanoramaPan(double time, double* pan, double* tilt) {
    if (pan == nullptr || tilt == nullptr) return kVexelErrorPointer;
    return ReadPath(time, pan, tilt, nullptr);
}

int32_t GetPanoramaZoom(double time, double* fov) {
    if (fov == nullptr) return kVexelErrorPointer;
    return ReadPath(time, nullptr, nullptr, fov);
}

int32_t SetPanoramaAngle(double time, double pan, double tilt, double fov) {
    if (!AllFinite({time, pan, tilt, fov})) return kVexelErrorArgument;
    try {
        return Stored(Path().SetAngle(time, pan, tilt, fov));
    } catch (const std::bad_alloc&) {
        return kVexelErrorMemory;
    }
}

int32_t SetPanoramaPan(double time, double pan, double tilt) {
    if (!AllFinite({time, pan, tilt})) return kVexelErrorArgument;
    try {
        return Stored(Path().SetDirection(time, pan, tilt));
    } catch (const std::bad_alloc&) {
        return kVexelErrorMemory;
    }
}

int32_t SetPanoramaZoom(double time, double fov) {
    if (!AllFinite({time, fov})) return kVexelErrorArgument;
    try {
        return Stored(Path().SetZoom(time, fov));
    } catch (const std::bad_alloc&) {
        return kVexelErrorMemory;
    }
}

int32_t ClearPanoramaPath(void) {
    Path().Clear();
    return kVexelOk;
}

int32_t SavePanoramaPath(const char* path) {
    if (path == nullptr) return kVexelErrorPointer;
    try {
        return vexel::lens::WriteTextFile(path, vexel::lens::PathToJson(Path().Snapshot()));
    } catch (const std::exception&) {  // out of memory while building the text
        return kVexelErrorMemory;
    }
}

int32_t LoadPanoramaPath(const char* path) {
    if (path == nullptr) return kVexelErrorPointer;
    try {
        std::string text;
        if (const int32_t status = vexel::lens::ReadTextFile(path, text); status != kVexelOk) return status;
        PathKeys keys;
        if (!vexel::lens::PathFromJson(text, keys)) return kVexelErrorData;
        Path().Replace(std::move(keys));
        return kVexelOk;
    } catch (const std::bad_alloc&) {
        return kVexelErrorMemory;
    } catch (const std::exception&) {  // the JSON library's own, should a check above miss a case
        return kVexelErrorData;
    }
}

}  // extern "C"
