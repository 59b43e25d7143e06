#include "projection/view_projector.h"

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

// Draws rows of sampled pixels into the destination, forwards or (upside down) backwards.
class BlendSink {
public:
    BlendSink(const PanoramaRows& source, uint32_t* out, int32_t step, BlendRowFunction blendRow)
        : source_(source), out_(out), step_(step), blendRow_(blendRow) {}

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
    TraceSink(int32_t* u, int32_t* v, int64_t start, int64_t step)
        : u_(u), v_(v), index_(start), step_(step) {}
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
    : sourceWidth_(sourceWidth),
      sourceHeight_(sourceHeight),
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

    // The bound on phi keeps the scale finite for tiny fields of view (which SetView refuses
    // anyway).
    const double scale = phi > 0.3 ? 131072.0 / phi : 131072.0 / 0.3;
    for (int k = 0; k < 9; ++k) {
        rotationFixed_[k] = static_cast<int64_t>(scale * rotation_[k] * 4096.0 + 0.5);
    }
}

int32_t ViewProjector::Atan2Fixed(int64_t a64, int64_t b64) const {
    const int32_t* atanTable = tables_->atanTable.data();
    if (b64 > 0) {
        if (a64 > 0) return atanTable[a64 * 65536 / (a64 + b64)];
        return -atanTable[(-a64) * 65536 / (b64 - a64)];
    }
    if (b64 == 0) return a64 > 0 ? tables_->quarterTurn : -tables_->quarterTurn;
    if (a64 < 0) return atanTable[a64 * 65536 / (a64 + b64)] - tables_->halfTurn;
    return tables_->halfTurn - atanTable[(-a64) * 65536 / (b64 - a64)];
}

int64_t ViewProjector::HypotFixed(int64_t a, int64_t b) const {
    const uint32_t* sqrtTable = tables_->sqrtTable.data();
    if (a > b) return (sqrtTable[b * 65536 / a] * a) >> 16;
    if (b == 0) return 0;
    return (sqrtTable[a * 65536 / b] * b) >> 16;
}

ViewProjector::GridPoint ViewProjector::ExactPoint(int64_t xw, int64_t yw, int64_t zw) const {
    int64_t x = xw >> 12, y = yw >> 12, z = zw >> 12;
    // Rays of tall wide-angle views can pass 2^40; they are scaled down to keep the table lookups'
    // products in range (the angles do not change). Smaller rays are taken as they are.
    while (std::max({std::abs(x), std::abs(y), std::abs(z)}) >= (int64_t{1} << 40)) {
        x >>= 1;
        y >>= 1;
        z >>= 1;
    }
    return {Atan2Fixed(x, z), Atan2Fixed(y, HypotFixed(std::abs(z), std::abs(x)))};
}

template <class PixelSink>
void ViewProjector::Remap(PixelSink& sink) {
    const int32_t w = viewWidth_, h = viewHeight_;
    const int32_t fullTurn = 256 * sourceWidth_;
    const int32_t third = fullTurn / 3;
    const int64_t* m = rotationFixed_;

    const int32_t xMin = -((w - 1) >> 1);  // pixels are drawn for x = xMin + 1 ... xMin + w
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
    const size_t rowLength = static_cast<size_t>(w) + kRowPadding;
    scratch_.assign(columns * 8 + rowLength * 2, 0);
    int32_t* prevU = scratch_.data();
    int32_t* prevV = prevU + columns;
    int32_t* curU = prevV + columns;
    int32_t* curV = curU + columns;
    int32_t* duY = curV + columns;
    int32_t* dvY = duY + columns;
    int32_t* runU = dvY + columns;
    int32_t* runV = runU + columns;
    int32_t* rowU = runV + columns;  // coordinates of one view row
    int32_t* rowV = rowU + rowLength;

    // Row base: the 64-bit ray terms y*m3 + m6, y*m4 + m7, y*m5 + m8 of the current grid row.
    int64_t baseX = yMin * m[3] + m[6];
    int64_t baseY = yMin * m[4] + m[7];
    int64_t baseZ = yMin * m[5] + m[8];

    // Exact (u, v) at columns xMin + k*s, up to and including the first one past xMax.
    auto computeGridRow = [&](int32_t s, int32_t* gridU, int32_t* gridV) {
        int64_t xw = baseX + xMin * m[0];
        int64_t zw = baseZ + xMin * m[2];
        const int32_t count = w / s + 2;
        for (int32_t k = 0; k < count; ++k) {
            const GridPoint point = ExactPoint(xw, baseY, zw);
            gridU[k] = point.u;
            gridV[k] = point.v;
            xw += s * m[0];
            zw += s * m[2];
        }
    };

    // Exact (u, v) of the ray through view offset (x, y).
    auto exactAt = [&](int64_t x, int64_t y) {
        return ExactPoint(x * m[0] + y * m[3] + m[6], y * m[4] + m[7], x * m[2] + y * m[5] + m[8]);
    };

    // Where the pole in view lies, in grid coordinates: the ray along the Y axis has X = Z = 0.
    // Near it longitude turns too fast for the grid (tilt 0 puts it at infinity).
    const double det = static_cast<double>(m[0]) * m[5] - static_cast<double>(m[3]) * m[2];
    const double poleX =
        det != 0.0 ? (static_cast<double>(m[3]) * m[8] - static_cast<double>(m[6]) * m[5]) / det
                   : 1e300;
    const double poleY =
        det != 0.0 ? (static_cast<double>(m[6]) * m[2] - static_cast<double>(m[0]) * m[8]) / det
                   : 1e300;

    // Cells of the block starting at row y whose interpolated coordinates would be wrong: those
    // within one cell of the pole, and those whose corners' longitudes spread wider than the
    // tolerance (near a pole, in very wide views) and whose interpolated coordinates in the middle
    // of the cell stray more than that from the exact ones (a crossing of the seam taken for a
    // turn through the centre column, or longitude bending round the pole).
    const int32_t tolerance = fullTurn / 90;  // 4 degrees
    auto findExactCells = [&](int32_t s, int32_t blockRows, int32_t y) {
        const double reach = std::max(s, blockRows);
        const bool poleRows = poleY >= y - reach && poleY <= y + blockRows + reach;
        const int32_t r = blockRows / 2, j = s / 2;
        for (int32_t k = 0; k * s < w; ++k) {
            const double left = xMin + static_cast<double>(k) * s;
            if (poleRows && poleX >= left - reach && poleX <= left + s + reach) {
                exactCells_.push_back(k);
                continue;
            }
            const int32_t spread =
                std::max({std::abs(WrapDiff(prevU[k + 1], prevU[k], fullTurn, third)),
                          std::abs(WrapDiff(curU[k], prevU[k], fullTurn, third)),
                          std::abs(WrapDiff(curU[k + 1], prevU[k], fullTurn, third))});
            if (spread <= tolerance) continue;
            // As the row stepping would interpolate, without the wrapping.
            const int32_t leftU = prevU[k] + r * duY[k], rightU = prevU[k + 1] + r * duY[k + 1];
            const int32_t leftV = prevV[k] + r * dvY[k], rightV = prevV[k + 1] + r * dvY[k + 1];
            const int32_t u = leftU + j * (WrapDiff(rightU, leftU, fullTurn, third) / s);
            const int32_t v = leftV + (j + 1) * ((rightV - leftV) / s);
            const GridPoint exact = exactAt(xMin + static_cast<int64_t>(k) * s + j, y + r);
            int64_t offU = (static_cast<int64_t>(u) - exact.u) % fullTurn;  // the short way round
            offU = std::min(std::abs(offU), fullTurn - std::abs(offU));
            if (offU > tolerance || std::abs(static_cast<int64_t>(v) - exact.v) > tolerance)
                exactCells_.push_back(k);
        }
    };

    // Pixels of the cells listed in exactCells_ get their own exact coordinates; pixel i of a row
    // looks along the ray at column xMin + i, like the grid point its u starts from.
    auto overwriteExactCells = [&](int32_t s, int32_t y) {
        for (const int32_t k : exactCells_) {
            const int32_t end = std::min(w, (k + 1) * s);
            for (int32_t i = k * s; i < end; ++i) {
                const GridPoint point = exactAt(xMin + i, y);
                rowU[i] = WrapOnce(point.u, fullTurn);
                rowV[i] = point.v;
            }
        }
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
        exactCells_.clear();
        if (exactNearPoles_) findExactCells(s, blockRows, y);
        for (int32_t r = 0; r < blockRows; ++r) {
            kernel_->stepRow(runU, runV, s, w, fullTurn, rowU, rowV);
            overwriteExactCells(s, y);
            sink.Row(rowU, rowV, w);
            if (++y >= yMax) return;
            for (int32_t k = 0; k < count; ++k) {
                runU[k] += duY[k];
                runV[k] += dvY[k];
            }
        }
        drawnSinceChange = true;
    }
}

bool ViewProjector::Drawable() const {
    // The ray terms y * m3 grow with the view's height over its width; up to 2^28 they stay within
    // 64 bits for every field of view (a view of at most 2^30 pixels is never taller).
    return viewWidth_ >= 1 && viewHeight_ >= 1 && viewHeight_ / viewWidth_ <= (1 << 28) &&
           sourceWidth_ >= 1 && sourceWidth_ <= kMaxSourceWidth && sourceHeight_ >= 1;
}

void ViewProjector::Render(const uint32_t* const* sourceRows, bool upsideDown) {
    if (viewPixels_ == nullptr || sourceRows == nullptr || !Drawable()) return;
    // Every destination pixel is written below, so the view needs no clearing first.
    ComputeRotation();
    const int64_t last = static_cast<int64_t>(viewWidth_) * viewHeight_ - 1;
    const PanoramaRows source{sourceRows, sourceWidth_, sourceHeight_,
                              RowStride(sourceRows, sourceWidth_, sourceHeight_)};
    BlendSink sink(source, upsideDown ? viewPixels_ + last : viewPixels_, upsideDown ? -1 : 1,
                   kernel_->blendRow);
    Remap(sink);
}

void ViewProjector::TraceCoordinatesForTesting(std::vector<int32_t>& u, std::vector<int32_t>& v,
                                               bool upsideDown) {
    u.clear();
    v.clear();
    if (!Drawable()) return;
    const int64_t count = static_cast<int64_t>(viewWidth_) * viewHeight_;
    u.assign(count, 0);
    v.assign(count, 0);
    ComputeRotation();
    TraceSink sink(u.data(), v.data(), upsideDown ? count - 1 : 0, upsideDown ? -1 : 1);
    Remap(sink);
}

void RenderPanoramaView(const uint32_t* pixels, int32_t width, int32_t height,
                        uint32_t* destination, int32_t viewWidth, int32_t viewHeight, double pan,
                        double tilt, double fov) {
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

void RenderDirection(ViewProjector& projector, const uint32_t* const* sourceRows, double pan,
                     double tilt, double fov) {
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
