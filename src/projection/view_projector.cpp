#include "projection/view_projector.h"

#include "projection/blend_row.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace vexel {

namespace {

constexpr double kPi = std::numbers::pi;

// Widest panorama the fixed-point coordinates can hold: a full turn (256 * width) must fit in
// 31 bits with room for the interpolation between grid points.
constexpr int32_t kMaxSourceWidth = 1 << 22;

// Difference a - b of two u coordinates; a jump of more than 240 degrees between neighbours is a
// crossing of the seam and is taken the short way round.
inline int32_t WrapDiff(int32_t a, int32_t b, int32_t fullTurn, int32_t third) {
    int64_t d = static_cast<int64_t>(a) - b;
    if (a < -third && b > third) {
        d += fullTurn;
    } else if (a > third && b < -third) {
        d -= fullTurn;
    }
    return static_cast<int32_t>(d);
}

// Draws rows of sampled pixels into the destination, forwards or (upside down) backwards.
class BlendSink {
public:
    BlendSink(const PanoramaRows& source, uint32_t* out, int32_t step)
        : source_(source), out_(out), step_(step), blendRow_(BestBlendRow()) {}

    void Row(const int32_t* rowU, const int32_t* rowV, int32_t count) {
        blendRow_(source_, rowU, rowV, count, out_, step_);
        out_ += static_cast<ptrdiff_t>(count) * step_;
    }

private:
    PanoramaRows source_;
    uint32_t* out_;
    int32_t step_;
    BlendRowFunction blendRow_;
};

// Records the coordinates each destination element is sampled at.
class TraceSink {
public:
    TraceSink(int32_t* u, int32_t* v, int64_t start, int64_t step) : u_(u), v_(v), index_(start), step_(step) {}
    void Row(const int32_t* rowU, const int32_t* rowV, int32_t count) {
        for (int32_t i = 0; i < count; ++i, index_ += step_) {
            u_[index_] = rowU[i];
            v_[index_] = rowV[i];
        }
    }

private:
    int32_t* u_;
    int32_t* v_;
    int64_t index_, step_;
};

}  // namespace

ViewProjector::ViewProjector(int32_t sourceWidth, int32_t sourceHeight)
    : sourceWidth_(sourceWidth), sourceHeight_(sourceHeight),
      tables_(GetProjectionTables(std::clamp(sourceWidth, 0, kMaxSourceWidth))) {
    // A picture that is not 2:1 covers only part of the sphere: keep the view inside it.
    if (sourceHeight != sourceWidth / 2) {
        const double extent = static_cast<double>(sourceHeight) / sourceWidth * 180.0;
        tiltMax_ = std::min(90.0, extent);
        tiltMin_ = std::max(-90.0, -extent);
    }
}

void ViewProjector::SetViewBuffer(uint32_t* viewPixels, int32_t viewWidth, int32_t viewHeight) {
    viewPixels_ = viewPixels;
    viewWidth_ = viewWidth;
    viewHeight_ = viewHeight;
}

double ViewProjector::VerticalFov(double fov, int32_t width, int32_t height) {
    return 2.0 * std::atan(std::tan(fov / 2.0 * kPi / 180.0) * height / width) * 180.0 / kPi;
}

void ViewProjector::SetView(double pan, double tilt, double fov) {
    if (!std::isfinite(pan) || !std::isfinite(tilt) || !std::isfinite(fov)) return;
    if (viewWidth_ < 1 || viewHeight_ < 1) return;

    while (VerticalFov(fov, viewWidth_, viewHeight_) > tiltMax_ - tiltMin_) {
        fov = fov / 1.03;
        if (fov < fovMin_) return;  // would be refused below; stop shrinking
    }
    // Huge pans are reduced exactly first so the turn loops below stay short.
    if (std::fabs(pan) > 1024.0 * 360.0) pan = std::fmod(pan, 360.0);
    while (pan > 180.0) pan -= 360.0;
    while (pan < -180.0) pan += 360.0;

    const double half = VerticalFov(fov, viewWidth_, viewHeight_) / 2.0;
    double newTilt;
    if (tilt > tiltMax_ - half && tiltMax_ != 90.0) {
        newTilt = tiltMax_ - half;
    } else if (tilt > tiltMax_) {
        newTilt = tiltMax_;
    } else if (tilt < tiltMin_ + half && tiltMin_ != -90.0) {
        newTilt = tiltMin_ + half;
    } else {
        newTilt = std::max(tiltMin_, tilt);
    }

    const bool accepted = tiltMax_ - tiltMin_ >= 2.0 * half && fovMin_ <= fov && fov <= fovMax_ &&
                          panMax_ - panMin_ >= fov && tiltMin_ <= newTilt && newTilt <= tiltMax_ &&
                          panMin_ <= pan && pan <= panMax_;
    if (!accepted) return;
    pan_ = pan;
    tilt_ = newTilt;
    fov_ = fov;
}

void ViewProjector::ComputeRotation() {
    const double phi = fov_ * kPi / 180.0;
    const double p = pan_ * kPi / 180.0;
    const double t = tilt_ * kPi / 180.0;
    const double distance = viewWidth_ / (2.0 * std::tan(phi / 2.0));

    // Tilt about X after pan about Y. Rows 0 and 1 step one view pixel right and down; row 2 points
    // at the view centre, so a pixel's ray is x * row0 + y * row1 + row2 in panorama axes.
    const double sp = std::sin(p), cp = std::cos(p), st = std::sin(t), ct = std::cos(t);
    rotation_[0] = cp;
    rotation_[1] = 0.0;
    rotation_[2] = -sp;
    rotation_[3] = st * sp;
    rotation_[4] = ct;
    rotation_[5] = st * cp;
    rotation_[6] = ct * sp;
    rotation_[7] = -st;
    rotation_[8] = ct * cp;
    for (int k = 0; k < 6; ++k) rotation_[k] /= distance;

    // The scale bound on phi keeps the products formed in Remap inside 32 bits.
    const double scale = phi > 0.3 ? 131072.0 / phi : 131072.0 / 0.3;
    for (int k = 0; k < 9; ++k) {
        rotationFixed_[k] = static_cast<int64_t>(scale * rotation_[k] * 4096.0 + 0.5);
    }
}

int32_t ViewProjector::Atan2Fixed(int32_t a, int32_t b) const {
    const int32_t* atanTable = tables_->atanTable.data();
    const int64_t a64 = a, b64 = b;
    if (b > 0) {
        if (a > 0) return atanTable[a64 * 65536 / (a64 + b64)];
        return -atanTable[(-a64) * 65536 / (b64 - a64)];
    }
    if (b == 0) return a > 0 ? tables_->quarterTurn : -tables_->quarterTurn;
    if (a < 0) return atanTable[a64 * 65536 / (a64 + b64)] - tables_->halfTurn;
    return tables_->halfTurn - atanTable[(-a64) * 65536 / (b64 - a64)];
}

int32_t ViewProjector::HypotFixed(int32_t a, int32_t b) const {
    const uint32_t* sqrtTable = tables_->sqrtTable.data();
    const int64_t a64 = a, b64 = b;
    if (a > b) return static_cast<int32_t>((sqrtTable[b64 * 65536 / a64] * a64) >> 16);
    if (b == 0) return 0;
    return static_cast<int32_t>((sqrtTable[a64 * 65536 / b64] * b64) >> 16);
}

template <class PixelSink>
void ViewProjector::Remap(PixelSink& sink) {
    const int32_t w = viewWidth_, h = viewHeight_;
    const int32_t fullTurn = 256 * sourceWidth_;
    const int32_t third = fullTurn / 3;
    const int32_t halfU = fullTurn / 2;
    const int64_t* m = rotationFixed_;

    const int32_t xMin = -((w - 1) >> 1), xMax = w - ((w - 1) >> 1);
    const int32_t yMin = -(h >> 1), yMax = h - (h >> 1);

    // Grid step: coarser for views that stay away from the poles.
    const double vfov = VerticalFov(fov_, w, h);
    const double top = tilt_ + vfov / 2.0, bottom = tilt_ - vfov / 2.0;
    int32_t sBase = w / 20;
    if (top > 65.0 || bottom < -65.0) sBase = w / 35;
    if (top > 70.0 || bottom < -70.0) sBase = w / 50;
    if (top > 80.0 || bottom < -80.0) sBase = w / 200;
    sBase = std::max(sBase, 1);  // narrow views: exact coordinates at every column

    // Pole bands in view rows, taking elevation as linear in rows: within the inner band every row
    // is exact, around it (outer band) the current step is kept.
    auto rowAt = [&](double elevation) {
        return yMin + static_cast<int32_t>((1.0 - (elevation - bottom) / vfov) * h);
    };
    int32_t inner0 = yMax + 100, inner1 = yMax + 100;
    int32_t outer0 = yMin - 100, outer1 = yMax + 100;
    if (vfov / 2.0 > 10.0) {
        if (top > 87.5 || bottom < -87.5) {
            inner0 = tilt_ > 0.0 ? rowAt(92.5) : rowAt(-87.5);
            inner1 = tilt_ > 0.0 ? rowAt(87.5) : rowAt(-92.5);
        }
        if (top > 80.0 || bottom < -80.0) {
            outer0 = tilt_ > 0.0 ? rowAt(100.0) : rowAt(-80.0);
            outer1 = tilt_ > 0.0 ? rowAt(80.0) : rowAt(-100.0);
        }
    }

    const size_t columns = static_cast<size_t>(w / sBase + 4);
    scratch_.assign(columns * 8 + static_cast<size_t>(w) * 2, 0);
    int32_t* prevU = scratch_.data();
    int32_t* prevV = prevU + columns;
    int32_t* curU = prevV + columns;
    int32_t* curV = curU + columns;
    int32_t* duY = curV + columns;
    int32_t* dvY = duY + columns;
    int32_t* runU = dvY + columns;
    int32_t* runV = runU + columns;
    int32_t* rowU = runV + columns;  // coordinates of one view row
    int32_t* rowV = rowU + w;

    // Row base: the 64-bit ray terms y*m3 + m6, y*m4 + m7, y*m5 + m8 of the current grid row.
    int64_t baseX = yMin * m[3] + m[6];
    int64_t baseY = yMin * m[4] + m[7];
    int64_t baseZ = yMin * m[5] + m[8];

    // Exact (u, v) at columns xMin + k*s, up to and including the first one past xMax.
    auto computeGridRow = [&](int32_t s, int32_t* gridU, int32_t* gridV) {
        const int32_t y12 = static_cast<int32_t>(baseY) >> 12;
        int64_t xw = baseX + xMin * m[0];
        int64_t zw = baseZ + xMin * m[2];
        const int32_t count = w / s + 2;
        for (int32_t k = 0; k < count; ++k) {
            const int32_t x12 = static_cast<int32_t>(xw) >> 12;
            const int32_t z12 = static_cast<int32_t>(zw) >> 12;
            gridU[k] = Atan2Fixed(x12, z12);
            gridV[k] = Atan2Fixed(y12, HypotFixed(std::abs(z12), std::abs(x12)));
            xw += s * m[0];
            zw += s * m[2];
        }
    };

    // One view row from the running grid values; u moves after each pixel, v before it.
    auto drawRow = [&](int32_t s) {
        int32_t u = runU[0], v = runV[0];
        int32_t x = xMin + 1;
        int32_t i = 0;
        for (int32_t k = 0; x <= xMax; ++k) {
            const int32_t du = WrapDiff(runU[k + 1], u, fullTurn, third) / s;
            const int32_t dv = (runV[k + 1] - v) / s;
            const int32_t end = std::min(xMax, x + s - 1);
            for (; x <= end; ++x, ++i) {
                if (u >= halfU) u -= fullTurn;
                if (u < -halfU) u += fullTurn;
                v += dv;
                rowU[i] = u;
                rowV[i] = v;
                u += du;
            }
            u = runU[k + 1];
            v = runV[k + 1];
        }
        sink.Row(rowU, rowV, w);
    };

    int32_t y = yMin;
    int32_t s = sBase;
    int32_t blockRows = sBase + 1;
    bool fresh = true;  // a fresh grid row is only computed, not drawn from
    // A change of step that would undo the previous one before any row was drawn would alternate
    // for ever (a pole band thinner than one coarse block); then the current step is kept.
    int32_t stepBeforeChange = 0;
    bool drawnSinceChange = true;

    while (y < yMax) {
        int32_t wantStep;
        if (y + blockRows > inner0 && y < inner1) {
            blockRows = 1;
            wantStep = sBase;
        } else if (y + blockRows >= outer0 && y <= outer1) {
            blockRows = s + 1;
            wantStep = s;
        } else {
            blockRows = 4 * sBase + 1;
            wantStep = 4 * sBase;
        }
        if (wantStep != s) {
            if (!drawnSinceChange && wantStep == stepBeforeChange) {
                blockRows = s + 1;
            } else {
                stepBeforeChange = s;
                s = wantStep;
                fresh = true;
                drawnSinceChange = false;
            }
        }

        if (!fresh) {
            std::swap(prevU, curU);
            std::swap(prevV, curV);
            baseX += blockRows * m[3];
            baseY += blockRows * m[4];
            baseZ += blockRows * m[5];
        }
        computeGridRow(s, curU, curV);
        if (fresh) {
            fresh = false;
            continue;
        }

        const int32_t count = w / s + 2;
        for (int32_t k = 0; k < count; ++k) {
            duY[k] = WrapDiff(curU[k], prevU[k], fullTurn, third) / blockRows;
            dvY[k] = (curV[k] - prevV[k]) / blockRows;
            runU[k] = prevU[k];
            runV[k] = prevV[k];
        }
        for (int32_t r = 0; r < blockRows; ++r) {
            drawRow(s);
            if (++y >= yMax) return;
            for (int32_t k = 0; k < count; ++k) {
                runU[k] += duY[k];
                runV[k] += dvY[k];
            }
        }
        drawnSinceChange = true;
    }
}

void ViewProjector::Render(const uint32_t* const* sourceRows, bool upsideDown) {
    if (viewPixels_ == nullptr || sourceRows == nullptr || viewWidth_ < 1 || viewHeight_ < 1 ||
        sourceWidth_ < 1 || sourceWidth_ > kMaxSourceWidth || sourceHeight_ < 1) {
        return;
    }
    // Every destination pixel is written below, so the view needs no clearing first.
    ComputeRotation();
    const int64_t last = static_cast<int64_t>(viewWidth_) * viewHeight_ - 1;
    BlendSink sink({sourceRows, sourceWidth_, sourceHeight_}, upsideDown ? viewPixels_ + last : viewPixels_,
                   upsideDown ? -1 : 1);
    Remap(sink);
}

void ViewProjector::TraceCoordinates(std::vector<int32_t>& u, std::vector<int32_t>& v, bool upsideDown) {
    u.clear();
    v.clear();
    if (viewWidth_ < 1 || viewHeight_ < 1 || sourceWidth_ < 1 || sourceWidth_ > kMaxSourceWidth ||
        sourceHeight_ < 1) {
        return;
    }
    const int64_t count = static_cast<int64_t>(viewWidth_) * viewHeight_;
    u.assign(count, 0);
    v.assign(count, 0);
    ComputeRotation();
    TraceSink sink(u.data(), v.data(), upsideDown ? count - 1 : 0, upsideDown ? -1 : 1);
    Remap(sink);
}

void RenderPanoramaView(const uint32_t* pixels, int32_t width, int32_t height, uint32_t* destination,
                        int32_t viewWidth, int32_t viewHeight, double pan, double tilt, double fov) {
    if (pixels == nullptr || destination == nullptr || width < 1 || height < 1 || viewWidth < 1 ||
        viewHeight < 1) {
        return;
    }
    ViewProjector projector(width, height);
    std::vector<const uint32_t*> rows(static_cast<size_t>(height));
    for (int32_t i = 0; i < height; ++i) rows[i] = pixels + static_cast<size_t>(i) * width;
    projector.SetViewBuffer(destination, viewWidth, viewHeight);
    RenderDirection(projector, rows.data(), pan, tilt, fov);
}

void RenderDirection(ViewProjector& projector, const uint32_t* const* sourceRows, double pan, double tilt,
                     double fov) {
    bool upsideDown = false;
    if (tilt > 90.0) {
        pan += 180.0;
        tilt = 180.0 - tilt;
        upsideDown = true;
    } else if (tilt < -90.0) {
        pan += 180.0;
        tilt = -180.0 - tilt;
        upsideDown = true;
    }
    projector.SetView(pan, tilt, fov);
    projector.Render(sourceRows, upsideDown);
}

}  // namespace vexel
