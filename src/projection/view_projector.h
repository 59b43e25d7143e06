// ViewProjector: draws a perspective view out of an equirectangular panorama.
//
// All per-pixel work is integer arithmetic: a fixed-point rotation, table atan2 and hypot at the
// points of an adaptive grid (finer near the poles), linear interpolation between grid points and a
// bilinear blend that wraps around the 360-degree seam. The pixels are bit-exact for a given input.
//
// Threads: a projector is used by one thread at a time and takes no lock. The lookup tables it
// reads are shared between projectors of the same source width (see projection_tables.h).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "projection/projection_tables.h"
#include "projection/row_kernel.h"

namespace vexel {

class ViewProjector {
public:
    ViewProjector(int32_t sourceWidth, int32_t sourceHeight);

    // The destination is not owned; it must hold viewWidth * viewHeight pixels.
    void SetViewBuffer(uint32_t* viewPixels, int32_t viewWidth, int32_t viewHeight);

    // Validated update of the view direction; an out-of-limit or non-finite request leaves pan,
    // tilt and fov unchanged. Needs the view size (SetViewBuffer) first.
    void SetView(double pan, double tilt, double fov);

    // Draws the current view from sourceRows (sourceHeight row pointers, top row first). With
    // upsideDown the view is stored turned by 180 degrees. Does nothing without a destination of
    // at least one pixel.
    void Render(const uint32_t* const* sourceRows, bool upsideDown);

    // Same traversal as Render, but records the fixed-point panorama coordinates (u, v) that each
    // destination element is sampled at instead of drawing. Used to check the geometry.
    void TraceCoordinatesForTesting(std::vector<int32_t>& u, std::vector<int32_t>& v,
                                    bool upsideDown);

    // Vertical field of view, in degrees, of a width x height view with horizontal field fov.
    static double VerticalFov(double fov, int32_t width, int32_t height);

    // atan2(a, b) in u units (1/256 source column); HypotFixed needs a, b >= 0. Both take values
    // below 2^46 in magnitude.
    int32_t Atan2Fixed(int64_t a, int64_t b) const;
    int64_t HypotFixed(int64_t a, int64_t b) const;

    // The row kernel Render uses; ChosenRowKernel() unless a test picks another.
    void UseKernel(const RowKernel& kernel) { kernel_ = &kernel; }
    // Tests only: interpolate every cell, also those next to a pole that are otherwise computed
    // exactly, to compare with what the grid alone draws.
    void InterpolateEveryCellForTesting() { exactNearPoles_ = false; }

    double pan() const { return pan_; }
    double tilt() const { return tilt_; }
    double fov() const { return fov_; }
    double tiltMin() const { return tiltMin_; }
    double tiltMax() const { return tiltMax_; }
    const int64_t* rotationFixed() const { return rotationFixed_; }
    const ProjectionTables& tables() const { return *tables_; }

private:
    struct GridPoint {
        int32_t u, v;
    };
    // (u, v) of the ray whose fixed-point terms are xw, yw, zw.
    GridPoint ExactPoint(int64_t xw, int64_t yw, int64_t zw) const;
    bool Drawable() const;
    void ComputeRotation();
    template <class PixelSink>
    void Remap(PixelSink& sink);

    double rotation_[9] = {};
    int64_t rotationFixed_[9] = {};
    int32_t viewWidth_ = 0;
    int32_t viewHeight_ = 0;
    int32_t sourceWidth_;
    int32_t sourceHeight_;
    uint32_t* viewPixels_ = nullptr;
    double pan_ = 0.0;
    double fov_ = 120.0;
    double fovMin_ = 30.0;
    double fovMax_ = 165.0;
    double tilt_ = 0.0;
    double tiltMax_ = 90.0;
    double tiltMin_ = -90.0;
    double panMax_ = 180.0;
    double panMin_ = -180.0;
    std::shared_ptr<const ProjectionTables> tables_;
    const RowKernel* kernel_ = &ChosenRowKernel();
    bool exactNearPoles_ = true;
    // Grid working storage, kept between renders of the same projector.
    std::vector<int32_t> scratch_;
    std::vector<int32_t> exactCells_;
};

// Sets the direction on a projector that has its view buffer and renders from sourceRows. Tilts
// beyond +-90 degrees look backwards over the pole: the view is rendered at pan + 180 and stored
// turned by 180 degrees.
void RenderDirection(ViewProjector& projector, const uint32_t* const* sourceRows, double pan,
                     double tilt, double fov);

// Renders a width x height picture (top row first, no padding) into destination at
// viewWidth x viewHeight for the given direction. Tilts beyond +-90 degrees look backwards over the
// pole: the view is rendered at pan + 180 and stored turned by 180 degrees. Does nothing for
// pictures or views smaller than one pixel.
void RenderPanoramaView(const uint32_t* pixels, int32_t width, int32_t height,
                        uint32_t* destination, int32_t viewWidth, int32_t viewHeight, double pan,
                        double tilt, double fov);

}  // namespace vexel
