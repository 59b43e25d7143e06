#include "engine/panorama_lens.h"

#include "platform/module.h"
#include "vexel/conversion.h"

namespace vexel {

namespace {

constinit SiblingModule lensParams(kLensParamsModule);  // kept for the life of the process

template <class Fn>
Fn Lens(const char* symbol) {
    return lensParams.Function<Fn>(symbol);
}

}  // namespace

PanoramaLens::PanoramaLens() { lensParams.Load(); }

bool PanoramaLens::Available() {
    for (const char* symbol : {kGetPanoramaAngleSymbol, kGetPanoramaPanSymbol,
                               kGetPanoramaZoomSymbol, kSetPanoramaAngleSymbol,
                               kSetPanoramaPanSymbol, kGetLeftCenterXSymbol, kGetLeftCenterYSymbol,
                               kGetRightCenterXSymbol, kGetRightCenterYSymbol, kGetRadiusSymbol}) {
        if (lensParams.Symbol(symbol) == nullptr) return false;
    }
    return true;
}

void PanoramaLens::GetAngle(double time, double* pan, double* tilt, double* fov) {
    if (auto f = Lens<GetPanoramaAngleFn>(kGetPanoramaAngleSymbol)) f(time, pan, tilt, fov);
}

void PanoramaLens::GetPan(double time, double* pan, double* tilt) {
    if (auto f = Lens<GetPanoramaPanFn>(kGetPanoramaPanSymbol)) f(time, pan, tilt);
}

void PanoramaLens::GetZoom(double time, double* fov) {
    if (auto f = Lens<GetPanoramaZoomFn>(kGetPanoramaZoomSymbol)) f(time, fov);
}

void PanoramaLens::SetAngle(double time, double pan, double tilt, double fov) {
    if (auto f = Lens<SetPanoramaAngleFn>(kSetPanoramaAngleSymbol)) f(time, pan, tilt, fov);
}

void PanoramaLens::SetPan(double time, double pan, double tilt) {
    if (auto f = Lens<SetPanoramaPanFn>(kSetPanoramaPanSymbol)) f(time, pan, tilt);
}

bool PanoramaLens::GetGeometry(bool dual, LensGeometry& geometry) {
    const auto leftX = Lens<LensGeometryGetFn>(kGetLeftCenterXSymbol);
    const auto leftY = Lens<LensGeometryGetFn>(kGetLeftCenterYSymbol);
    const auto rightX = Lens<LensGeometryGetFn>(kGetRightCenterXSymbol);
    const auto rightY = Lens<LensGeometryGetFn>(kGetRightCenterYSymbol);
    const auto radius = Lens<LensGeometryGetFn>(kGetRadiusSymbol);
    if (!leftX || !leftY || !rightX || !rightY || !radius) return false;
    leftX(0.0, &geometry.leftCenterX);
    leftY(0.0, &geometry.leftCenterY);
    if (dual) {
        rightX(0.0, &geometry.rightCenterX);
        rightY(0.0, &geometry.rightCenterY);
    }
    radius(0.0, &geometry.radius);
    return true;
}

void PanoramaLens::RecordPan(double time, double pan, double tilt) {
    std::lock_guard<std::mutex> guard(lock_);
    panRecorded_ = true;
    panTimes_.push_back(time);
    panValues_.push_back(pan);
    tiltValues_.push_back(tilt);
}

void PanoramaLens::RecordZoom(double time, double pan, double tilt, double fov) {
    std::lock_guard<std::mutex> guard(lock_);
    zoomRecorded_ = true;
    zoomTimes_.push_back(time);
    panValues_.push_back(pan);
    tiltValues_.push_back(tilt);
    fovValues_.push_back(fov);
}

void PanoramaLens::RecordPanZoom(double time, double pan, double tilt, double fov) {
    std::lock_guard<std::mutex> guard(lock_);
    panRecorded_ = zoomRecorded_ = true;
    panTimes_.push_back(time);
    panValues_.push_back(pan);
    tiltValues_.push_back(tilt);
    zoomTimes_.push_back(time);
    fovValues_.push_back(fov);
}

void PanoramaLens::Commit(Gesture gesture) {
    std::lock_guard<std::mutex> guard(lock_);
    if (!panRecorded_ && !zoomRecorded_) return;
    if (gesture == Gesture::Pan ? panValues_.empty() : zoomTimes_.empty()) return;
    if (gesture == Gesture::Pan) {
        CommitPan();
    } else {
        CommitZoom();
    }
    panRecorded_ = zoomRecorded_ = false;
}

namespace {

enum class Direction { None, Rising, Falling };

// Removes and returns the front of each list; false when one of them is empty.
template <class... Lists>
bool TakeFront(double* out[], Lists&... lists) {
    if ((lists.empty() || ...)) return false;
    size_t i = 0;
    ((*out[i++] = lists.front(), lists.pop_front()), ...);
    return true;
}

}  // namespace

void PanoramaLens::CommitPan() {
    double t = 0, p = 0, q = 0;
    double* sample[] = {&t, &p, &q};
    if (!TakeFront(sample, panTimes_, panValues_, tiltValues_)) return;
    SetPan(t, p, q);
    Direction direction = Direction::None;
    int run = 0;
    while (!panValues_.empty()) {
        const double next = panValues_.front();
        if (next == p) {
            ++run;
        } else {
            if (run >= 8) {
                SetPan(t, p, q);  // the last sample of a pause
            } else if (p > next) {
                if (direction == Direction::Rising) SetPan(t, p, q);  // a peak
                direction = Direction::Falling;
            } else {
                if (direction == Direction::Falling) SetPan(t, p, q);  // a trough
                direction = Direction::Rising;
            }
            run = 0;
        }
        if (!TakeFront(sample, panTimes_, panValues_, tiltValues_)) return;
    }
    SetPan(t, p, q);
}

void PanoramaLens::CommitZoom() {
    double t = 0, p = 0, q = 0, f = 0;
    double* sample[] = {&t, &p, &q, &f};
    if (!TakeFront(sample, zoomTimes_, panValues_, tiltValues_, fovValues_)) return;
    SetAngle(t, p, q, f);
    Direction direction = Direction::None;  // Rising: widening, Falling: narrowing
    while (!zoomTimes_.empty()) {
        if (fovValues_.empty()) return;
        const double next = fovValues_.front();
        if (next > f) {
            if (direction == Direction::Falling) SetAngle(t, p, q, f);
            direction = Direction::Rising;
        } else if (next < f) {
            if (direction == Direction::Rising) SetAngle(t, p, q, f);
            direction = Direction::Falling;
        }
        if (!TakeFront(sample, zoomTimes_, panValues_, tiltValues_, fovValues_)) return;
    }
    SetAngle(t, p, q, f);
}

}  // namespace vexel
