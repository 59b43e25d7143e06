// ViewControl: the view each frame is rendered with, and the pan and zoom gestures that steer it.
// Host threads queue absolute values; the present thread applies one queued value per presented
// frame (Step) and says what to record of it. Between gestures each frame takes its view from the
// view path. Predict gives the view a frame drawn ahead would get if nothing changed until it is
// shown, so that a frame is drawn a second time only when the view did change.
//
// Threads: the gesture calls and Set on host threads, Step on the present thread, Predict on the
// render thread, Current on any.
// viewLock_ guards the three queues; the view, the gesture flags and the stored-only settings are
// atomics written without a lock, so a frame may see a concurrent call just before or after it.
#pragma once

#include <atomic>
#include <deque>
#include <mutex>

namespace vexel {

struct ViewAngles {
    double pan = 0.0;  // degrees
    double tilt = 0.0;
    double fov = 120.0;
};

// The view path, keyed by seconds since the start of the play range (the lens module's path).
class ViewPath {
public:
    virtual ~ViewPath() = default;
    virtual void GetAngle(double time, double* pan, double* tilt, double* fov) = 0;
    virtual void GetPan(double time, double* pan, double* tilt) = 0;
    virtual void GetZoom(double time, double* fov) = 0;
};

// What one frame's step asks to be recorded, at lensTime, with the view it produced.
struct ViewStep {
    enum class Record { None, Pan, Zoom, PanZoom };
    ViewAngles view;
    double lensTime = 0.0;
    Record record = Record::None;
};

class ViewControl {
public:
    ViewAngles Current() const;
    void Set(const ViewAngles& view);

    void StartPan();
    void SetPanStep(double x, double y);  // stored only
    void AddPan(double pan, double tilt);
    void EndPan();  // drops the queued values; the caller commits the recording first
    void StartZoom();
    void AddZoom(double fov);
    void EndZoom();

    // The view of a frame `seconds` after the start of a range of `rangeSeconds`: the path's view
    // while no gesture runs, otherwise the next queued values over what the path or the last frame
    // gave. The lens time is clamped into the range.
    ViewStep Step(double seconds, double rangeSeconds, ViewPath& path);
    // Step's view without taking a queued value or changing the current view.
    ViewAngles Predict(double seconds, double rangeSeconds, ViewPath& path) const;

private:
    // The current view with the path's values, at lensTime, for what no gesture steers.
    ViewAngles FromPath(double lensTime, bool panning, bool zooming, ViewPath& path) const;

    std::atomic<double> pan_{0.0};
    std::atomic<double> tilt_{0.0};
    std::atomic<double> fov_{120.0};
    std::atomic<double> panStepX_{0.0};  // stored only, like zoomFactor_
    std::atomic<double> panStepY_{0.0};
    std::atomic<double> zoomFactor_{1.0};
    std::atomic<bool> panning_{false};
    std::atomic<bool> zooming_{false};
    std::mutex viewLock_;
    std::deque<double> panQueue_;
    std::deque<double> tiltQueue_;
    std::deque<double> zoomQueue_;
};

}  // namespace vexel
