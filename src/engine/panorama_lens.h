// PanoramaLens: the engine's access to the lens parameter module (libLensParams.so, loaded once per
// process and never unloaded) and the recording of pan and zoom gestures, which a commit thins to
// keyframes in the module's view path.
//
// Threads: the recording steps run on the render thread, Commit on the host thread that ends a
// gesture; the lens's own lock keeps them apart. The module's functions are called from the
// delivery, render and host threads; the module guards its own state.
#pragma once

#include <deque>
#include <mutex>

namespace vexel {

struct LensGeometry {
    double leftCenterX = 0.0, leftCenterY = 0.0;
    double rightCenterX = 0.0, rightCenterY = 0.0;
    double radius = 0.0;
};

class PanoramaLens {
public:
    enum class Gesture { Pan, Zoom };

    PanoramaLens();  // loads the module on first use in the process

    // True when the module and all its functions were found. Without it the view path reads leave
    // their outputs untouched and keyframes are not stored.
    static bool Available();

    // The view path of the module, keyed by seconds since the start of the play range.
    static void GetAngle(double time, double* pan, double* tilt, double* fov);
    static void GetPan(double time, double* pan, double* tilt);
    static void GetZoom(double time, double* fov);
    static void SetAngle(double time, double pan, double tilt, double fov);
    static void SetPan(double time, double pan, double tilt);
    // Lens geometry for unwrapping; false without the module.
    static bool GetGeometry(bool dual, LensGeometry& geometry);

    void RecordPan(double time, double pan, double tilt);
    void RecordZoom(double time, double pan, double tilt, double fov);
    void RecordPanZoom(double time, double pan, double tilt, double fov);
    // Writes the recorded samples of one gesture as keyframes: the first, every reversal of
    // direction (the extreme sample), the end of every pause of 8 or more repeats (pan), the last.
    void Commit(Gesture gesture);

private:
    void CommitPan();
    void CommitZoom();

    std::mutex lock_;
    bool panRecorded_ = false;
    bool zoomRecorded_ = false;
    std::deque<double> panValues_;
    std::deque<double> tiltValues_;
    std::deque<double> fovValues_;
    std::deque<double> panTimes_;
    std::deque<double> zoomTimes_;
};

}  // namespace vexel
