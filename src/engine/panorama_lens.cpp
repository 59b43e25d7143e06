#include "engine/panorama_lens.h"

#include <atomic>
#include <mutex>

#include "platform/module.h"
#include "vexel/conversion.h"

namespace vexel {

namespace {

struct LensFunctions {
    GetPanoramaAngleFn getAngle = nullptr;
    GetPanoramaPanFn getPan = nullptr;
    GetPanoramaZoomFn getZoom = nullptr;
    SetPanoramaAngleFn setAngle = nullptr;
    SetPanoramaPanFn setPan = nullptr;
    LensGeometryGetFn leftCenterX = nullptr, leftCenterY = nullptr;
    LensGeometryGetFn rightCenterX = nullptr, rightCenterY = nullptr;
    LensGeometryGetFn radius = nullptr;
    bool complete = false;
};

// Published once every function was found; until then each new lens tries to load the module
// again, so a module that appears later (or is loaded by the host first) is picked up.
LensFunctions loaded;
std::atomic<bool> ready{false};
std::mutex loading;
const LensFunctions missing;

void TryLoad() {
    std::lock_guard<std::mutex> guard(loading);
    if (ready.load()) return;
    ModuleHandle module(kLensParamsModule);
    if (!module) return;
    LensFunctions f;
    f.getAngle = module.Function<GetPanoramaAngleFn>(kGetPanoramaAngleSymbol);
    f.getPan = module.Function<GetPanoramaPanFn>(kGetPanoramaPanSymbol);
    f.getZoom = module.Function<GetPanoramaZoomFn>(kGetPanoramaZoomSymbol);
    f.setAngle = module.Function<SetPanoramaAngleFn>(kSetPanoramaAngleSymbol);
    f.setPan = module.Function<SetPanoramaPanFn>(kSetPanoramaPanSymbol);
    f.leftCenterX = module.Function<LensGeometryGetFn>(kGetLeftCenterXSymbol);
    f.leftCenterY = module.Function<LensGeometryGetFn>(kGetLeftCenterYSymbol);
    f.rightCenterX = module.Function<LensGeometryGetFn>(kGetRightCenterXSymbol);
    f.rightCenterY = module.Function<LensGeometryGetFn>(kGetRightCenterYSymbol);
    f.radius = module.Function<LensGeometryGetFn>(kGetRadiusSymbol);
    f.complete = f.getAngle && f.getPan && f.getZoom && f.setAngle && f.setPan && f.leftCenterX &&
                 f.leftCenterY && f.rightCenterX && f.rightCenterY && f.radius;
    if (!f.complete) return;  // the handle closes the module again
    loaded = f;
    module.KeepLoaded();  // the lens module stays for the life of the process
    ready.store(true);
}

const LensFunctions& Lens() { return ready.load() ? loaded : missing; }

}  // namespace

PanoramaLens::PanoramaLens() {
    if (!ready.load()) TryLoad();
}


bool PanoramaLens::Available() { return Lens().complete; }

void PanoramaLens::GetAngle(double time, double* pan, double* tilt, double* fov) {
    if (Lens().getAngle) Lens().getAngle(time, pan, tilt, fov);
}

void PanoramaLens::GetPan(double time, double* pan, double* tilt) {
    if (Lens().getPan) Lens().getPan(time, pan, tilt);
}

void PanoramaLens::GetZoom(double time, double* fov) {
    if (Lens().getZoom) Lens().getZoom(time, fov);
}

void PanoramaLens::SetAngle(double time, double pan, double tilt, double fov) {
    if (Lens().setAngle) Lens().setAngle(time, pan, tilt, fov);
}

void PanoramaLens::SetPan(double time, double pan, double tilt) {
    if (Lens().setPan) Lens().setPan(time, pan, tilt);
}

bool PanoramaLens::GetGeometry(bool dual, LensGeometry& geometry) {
    const LensFunctions& f = Lens();
    if (!f.complete) return false;
    f.leftCenterX(0.0, &geometry.leftCenterX);
    f.leftCenterY(0.0, &geometry.leftCenterY);
    if (dual) {
        f.rightCenterX(0.0, &geometry.rightCenterX);
        f.rightCenterY(0.0, &geometry.rightCenterY);
    }
    f.radius(0.0, &geometry.radius);
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
