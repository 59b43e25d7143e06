// A slow, straightforward model of the view projector, for tests only.
//
// Every step is written out the plain way: grid points are computed directly from their (x, y)
// instead of by running sums, the tables are rebuilt from their defining formulas, and the block
// loop keeps its state in named variables. Integer widths follow the fixed-point design: 64-bit
// products and quotients, the low 32 bits of the rotated ray taken as signed and shifted right by
// 12, 32-bit running values. The production projector must produce the same bits.
#pragma once

#include <cstdint>
#include <vector>

namespace vexel::reference {

struct Tables {
    int32_t sourceWidth = 0;
    double columnsPerRadian = 0.0;
    int32_t quarterTurn = 0;
    int32_t halfTurn = 0;
    std::vector<int32_t> atanTable;     // 65537 entries, 1/256 source columns
    std::vector<uint32_t> sqrtTable;    // 65537 entries, 16 fraction bits
    std::vector<double> atanUnitTable;  // 65537 entries, 1/256 radian
};

// Tables for one source width, built once per width and kept for the life of the process.
const Tables& TablesFor(int32_t sourceWidth);

uint32_t BlendBilinear(uint32_t tl, uint32_t tr, uint32_t bl, uint32_t br, uint32_t fx, uint32_t fy);

class Projector {
public:
    Projector(int32_t sourceWidth, int32_t sourceHeight);

    void SetViewSize(int32_t viewWidth, int32_t viewHeight);
    void SetView(double pan, double tilt, double fov);

    // Draws viewWidth * viewHeight pixels into destination.
    void Render(const uint32_t* const* sourceRows, uint32_t* destination, bool upsideDown);

    // The (u, v) each destination element is sampled at.
    void Trace(std::vector<int32_t>& u, std::vector<int32_t>& v, bool upsideDown);

    static double VerticalFov(double fov, int32_t width, int32_t height);
    // Exact (u, v) of the ray through view offset (x, y), as at a grid point (u not wrapped).
    void GridPoint(int32_t x, int32_t y, int32_t& u, int32_t& v) const;
    int32_t Atan2Fixed(int32_t a, int32_t b) const;
    int32_t HypotFixed(int32_t a, int32_t b) const;

    double pan() const { return pan_; }
    double tilt() const { return tilt_; }
    double fov() const { return fov_; }
    double tiltMin() const { return tiltMin_; }
    double tiltMax() const { return tiltMax_; }
    const int64_t* rotationFixed() const { return rotationFixed_; }
    const Tables& tables() const { return *tables_; }

    // Statistics of the last Render or Trace.
    int32_t baseStep() const { return lastBaseStep_; }
    // How often the block loop kept its step because changing it would have undone the previous
    // change with no row drawn in between (the loop would otherwise never end).
    int32_t loopGuardUses() const { return lastGuardUses_; }

private:
    struct Sink {
        virtual void Put(int64_t element, int32_t u, int32_t v) = 0;
        virtual ~Sink() = default;
    };
    class PixelSink;
    class TraceSink;

    void ComputeRotation();
    void Remap(Sink& sink, bool upsideDown);

    const Tables* tables_;
    int32_t sourceWidth_;
    int32_t sourceHeight_;
    int32_t viewWidth_ = 0;
    int32_t viewHeight_ = 0;
    double pan_ = 0.0;
    double fov_ = 120.0;
    double tilt_ = 0.0;
    double fovMin_ = 30.0;
    double fovMax_ = 165.0;
    double tiltMax_ = 90.0;
    double tiltMin_ = -90.0;
    double panMax_ = 180.0;
    double panMin_ = -180.0;
    double rotation_[9] = {};
    int64_t rotationFixed_[9] = {};
    int32_t lastBaseStep_ = 0;
    int32_t lastGuardUses_ = 0;
};

// Test pictures: random noise in every byte (alpha included), and the row table of a picture.
std::vector<uint32_t> NoisePicture(int32_t width, int32_t height, uint32_t seed);
std::vector<const uint32_t*> RowPointers(const std::vector<uint32_t>& pixels, int32_t width, int32_t height);

// Whole render with a temporary projector; tilts beyond +-90 look back over the pole and store the
// view turned by 180 degrees.
void RenderPanoramaView(const uint32_t* pixels, int32_t width, int32_t height, uint32_t* destination,
                        int32_t viewWidth, int32_t viewHeight, double pan, double tilt, double fov);

}  // namespace vexel::reference
