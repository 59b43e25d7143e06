#include "engine/view_control.h"

#include <algorithm>

namespace vexel {

namespace {

constexpr size_t kMaxQueuedViews = 1 << 16;  // gesture inputs beyond this are dropped

// Takes the front of a queue into value; false when it is empty.
bool TakeFront(std::deque<double>& queue, double& value) {
    if (queue.empty()) return false;
    value = queue.front();
    queue.pop_front();
    return true;
}

// Seconds since the start of the range, clamped into it.
double LensTime(double seconds, double rangeSeconds) {
    return seconds < 0.0 ? 0.0 : std::min(seconds, rangeSeconds);
}

}  // namespace

ViewAngles ViewControl::Current() const { return {pan_.load(), tilt_.load(), fov_.load()}; }

void ViewControl::Set(const ViewAngles& view) {
    pan_.store(view.pan);
    tilt_.store(view.tilt);
    fov_.store(view.fov);
}

void ViewControl::StartPan() {
    panning_.store(true);
    panStepX_.store(0.0);
    panStepY_.store(0.0);
}

void ViewControl::SetPanStep(double x, double y) {
    panStepX_.store(x);
    panStepY_.store(y);
}

void ViewControl::AddPan(double pan, double tilt) {
    std::lock_guard<std::mutex> guard(viewLock_);
    if (panQueue_.size() >= kMaxQueuedViews) return;
    panQueue_.push_back(pan);
    tiltQueue_.push_back(tilt);
}

void ViewControl::EndPan() {
    panning_.store(false);
    std::lock_guard<std::mutex> guard(viewLock_);
    panQueue_.clear();
    tiltQueue_.clear();
}

void ViewControl::StartZoom() {
    zooming_.store(true);
    zoomFactor_.store(1.0);
}

void ViewControl::AddZoom(double fov) {
    std::lock_guard<std::mutex> guard(viewLock_);
    if (zoomQueue_.size() >= kMaxQueuedViews) return;
    zoomQueue_.push_back(fov);
}

void ViewControl::EndZoom() {
    zooming_.store(false);
    std::lock_guard<std::mutex> guard(viewLock_);
    zoomQueue_.clear();
}

ViewAngles ViewControl::FromPath(double lensTime, bool panning, bool zooming,
                                 ViewPath& path) const {
    ViewAngles v = Current();
    if (!panning && !zooming) {  // the view follows the path
        path.GetAngle(lensTime, &v.pan, &v.tilt, &v.fov);
    } else if (!panning) {
        path.GetPan(lensTime, &v.pan, &v.tilt);
    } else if (!zooming) {
        path.GetZoom(lensTime, &v.fov);
    }
    return v;
}

ViewAngles ViewControl::Predict(double seconds, double rangeSeconds, ViewPath& path) const {
    return FromPath(LensTime(seconds, rangeSeconds), panning_.load(), zooming_.load(), path);
}

ViewStep ViewControl::Step(double seconds, double rangeSeconds, ViewPath& path) {
    ViewStep step;
    step.lensTime = LensTime(seconds, rangeSeconds);
    const bool panning = panning_.load(), zooming = zooming_.load();
    step.view = FromPath(step.lensTime, panning, zooming, path);
    ViewAngles& v = step.view;

    if (zooming && !panning) {
        bool took;
        {
            std::lock_guard<std::mutex> guard(viewLock_);
            took = TakeFront(zoomQueue_, v.fov);
        }
        if (took) step.record = ViewStep::Record::Zoom;
    } else if (panning) {
        bool tookZoom = false;
        {
            std::lock_guard<std::mutex> guard(viewLock_);
            TakeFront(panQueue_, v.pan);
            TakeFront(tiltQueue_, v.tilt);
            if (zooming) tookZoom = TakeFront(zoomQueue_, v.fov);
        }
        // Every panning frame is recorded, whether or not it took a value.
        step.record = tookZoom ? ViewStep::Record::PanZoom : ViewStep::Record::Pan;
    }
    Set(v);
    return step;
}

}  // namespace vexel
