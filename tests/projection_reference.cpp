#include "projection_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <random>

namespace vexel::reference {

namespace {

constexpr double kPi = 3.141592653589793;

double Radians(double degrees) { return degrees * kPi / 180.0; }

std::unique_ptr<Tables> BuildTables(int32_t sourceWidth) {
    auto tables = std::make_unique<Tables>();
    tables->sourceWidth = sourceWidth;
    tables->columnsPerRadian = sourceWidth / (2.0 * kPi);
    tables->quarterTurn = 64 * sourceWidth;
    tables->halfTurn = 128 * sourceWidth;
    tables->atanUnitTable.resize(65537);
    tables->atanTable.resize(65537);
    tables->sqrtTable.resize(65537);
    for (int32_t i = 0; i <= 65536; ++i) {
        const double t = i / 65536.0;
        if (i < 65536) {
            tables->atanUnitTable[i] = 256.0 * std::atan(t / (1.0 - t));
            tables->sqrtTable[i] = static_cast<uint32_t>(std::sqrt(1.0 + t * t) * 65536.0);
        } else {
            tables->atanUnitTable[i] = 128.0 * kPi;
            tables->sqrtTable[i] = 92681;
        }
        tables->atanTable[i] =
            static_cast<int32_t>(tables->atanUnitTable[i] * tables->columnsPerRadian + 0.5);
    }
    return tables;
}

// Low 32 bits of a 64-bit value, read as a signed number.
int32_t Low32(int64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }

}  // namespace

const Tables& TablesFor(int32_t sourceWidth) {
    static std::mutex lock;
    static std::map<int32_t, std::unique_ptr<Tables>> cache;
    std::lock_guard<std::mutex> hold(lock);
    auto& slot = cache[sourceWidth];
    if (!slot) slot = BuildTables(sourceWidth);
    return *slot;
}

uint32_t BlendBilinear(uint32_t tl, uint32_t tr, uint32_t bl, uint32_t br, uint32_t fx, uint32_t fy) {
    const uint32_t weightTL = (255 - fx) * (255 - fy);
    const uint32_t weightTR = fx * (255 - fy);
    const uint32_t weightBL = (255 - fx) * fy;
    const uint32_t weightBR = fx * fy;
    uint32_t result = 0xFF000000u;
    for (int shift = 0; shift <= 16; shift += 8) {
        const uint32_t sum = ((tl >> shift) & 255) * weightTL + ((tr >> shift) & 255) * weightTR +
                             ((bl >> shift) & 255) * weightBL + ((br >> shift) & 255) * weightBR;
        result |= (sum >> 16) << shift;
    }
    return result;
}

Projector::Projector(int32_t sourceWidth, int32_t sourceHeight)
    : tables_(&TablesFor(sourceWidth)), sourceWidth_(sourceWidth), sourceHeight_(sourceHeight) {
    // Source limits: a partial panorama keeps the view inside its vertical extent.
    if (sourceHeight != sourceWidth / 2) {
        const double extent = static_cast<double>(sourceHeight) / static_cast<double>(sourceWidth) * 180.0;
        tiltMax_ = std::min(90.0, extent);
        tiltMin_ = std::max(-90.0, -extent);
    }
}

void Projector::SetViewSize(int32_t viewWidth, int32_t viewHeight) {
    viewWidth_ = viewWidth;
    viewHeight_ = viewHeight;
}

double Projector::VerticalFov(double fov, int32_t width, int32_t height) {
    const double halfRadians = Radians(fov / 2.0);
    return 2.0 * std::atan(std::tan(halfRadians) * height / width) * 180.0 / kPi;
}

void Projector::SetView(double pan, double tilt, double fov) {
    if (!std::isfinite(pan) || !std::isfinite(tilt) || !std::isfinite(fov)) return;

    while (VerticalFov(fov, viewWidth_, viewHeight_) > tiltMax_ - tiltMin_) {
        fov = fov / 1.03;
        if (fov < fovMin_) break;  // refused below in any case
    }

    if (std::fabs(pan) > 368640.0) pan = std::fmod(pan, 360.0);
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

void Projector::ComputeRotation() {
    const double phi = fov_ * kPi / 180.0;
    const double p = pan_ * kPi / 180.0;
    const double t = tilt_ * kPi / 180.0;
    const double distance = viewWidth_ / (2.0 * std::tan(phi / 2.0));

    const double a[3][3] = {{1, 0, 0}, {0, std::cos(t), std::sin(t)}, {0, -std::sin(t), std::cos(t)}};
    const double b[3][3] = {{std::cos(p), 0, -std::sin(p)}, {0, 1, 0}, {std::sin(p), 0, std::cos(p)}};
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            double sum = 0.0;
            for (int k = 0; k < 3; ++k) sum += a[row][k] * b[k][column];
            rotation_[row * 3 + column] = sum;
        }
    }
    for (int k = 0; k < 6; ++k) rotation_[k] /= distance;

    const double scale = phi > 0.3 ? 131072.0 / phi : 131072.0 / 0.3;
    for (int k = 0; k < 9; ++k) {
        rotationFixed_[k] = static_cast<int64_t>(scale * rotation_[k] * 4096.0 + 0.5);
    }
}

int32_t Projector::Atan2Fixed(int32_t a, int32_t b) const {
    const int64_t a64 = a;
    const int64_t b64 = b;
    const std::vector<int32_t>& table = tables_->atanTable;
    if (b > 0) {
        if (a > 0) return table[a64 * 65536 / (a64 + b64)];
        return -table[(-a64) * 65536 / (b64 - a64)];
    }
    if (b == 0) return a > 0 ? tables_->quarterTurn : -tables_->quarterTurn;
    if (a < 0) return table[a64 * 65536 / (a64 + b64)] - tables_->halfTurn;
    return tables_->halfTurn - table[(-a64) * 65536 / (b64 - a64)];
}

int32_t Projector::HypotFixed(int32_t a, int32_t b) const {
    const int64_t a64 = a;
    const int64_t b64 = b;
    const std::vector<uint32_t>& table = tables_->sqrtTable;
    if (a > b) return static_cast<int32_t>((static_cast<int64_t>(table[b64 * 65536 / a64]) * a64) >> 16);
    if (b == 0) return 0;
    return static_cast<int32_t>((static_cast<int64_t>(table[a64 * 65536 / b64]) * b64) >> 16);
}

void Projector::GridPoint(int32_t x, int32_t y, int32_t& u, int32_t& v) const {
    const int64_t* m = rotationFixed_;
    const int64_t xw = static_cast<int64_t>(x) * m[0] + static_cast<int64_t>(y) * m[3] + m[6];
    const int64_t yw = static_cast<int64_t>(y) * m[4] + m[7];
    const int64_t zw = static_cast<int64_t>(x) * m[2] + static_cast<int64_t>(y) * m[5] + m[8];
    const int32_t rx = Low32(xw) >> 12;
    const int32_t ry = Low32(yw) >> 12;
    const int32_t rz = Low32(zw) >> 12;
    u = Atan2Fixed(rx, rz);
    v = Atan2Fixed(ry, HypotFixed(std::abs(rz), std::abs(rx)));
}

class Projector::PixelSink : public Projector::Sink {
public:
    PixelSink(const uint32_t* const* rows, int32_t width, int32_t height, uint32_t* destination)
        : rows_(rows), width_(width), height_(height), destination_(destination) {}

    void Put(int64_t element, int32_t u, int32_t v) override {
        const int32_t xi = (u >> 8) + (width_ >> 1);
        const int32_t yi = (v >> 8) + (height_ >> 1);
        const uint32_t fx = static_cast<uint32_t>(u) & 255;
        const uint32_t fy = static_cast<uint32_t>(v) & 255;
        const uint32_t* rowA = rows_[std::clamp(yi, 0, height_ - 1)];
        const uint32_t* rowB = rows_[std::clamp(yi + 1, 0, height_ - 1)];
        const int32_t c0 = Column(xi);
        const int32_t c1 = Column(xi + 1);
        destination_[element] = BlendBilinear(rowA[c0], rowA[c1], rowB[c0], rowB[c1], fx, fy);
    }

private:
    // Columns wrap once around the seam.
    int32_t Column(int32_t xi) const {
        if (xi < 0) return width_ - 1;
        if (xi > width_ - 1) return 0;
        return xi;
    }

    const uint32_t* const* rows_;
    int32_t width_;
    int32_t height_;
    uint32_t* destination_;
};

class Projector::TraceSink : public Projector::Sink {
public:
    TraceSink(std::vector<int32_t>& u, std::vector<int32_t>& v) : u_(u), v_(v) {}
    void Put(int64_t element, int32_t u, int32_t v) override {
        u_[element] = u;
        v_[element] = v;
    }

private:
    std::vector<int32_t>& u_;
    std::vector<int32_t>& v_;
};

void Projector::Render(const uint32_t* const* sourceRows, uint32_t* destination, bool upsideDown) {
    if (viewWidth_ < 1 || viewHeight_ < 1) return;
    std::fill(destination, destination + static_cast<int64_t>(viewWidth_) * viewHeight_, 0u);
    ComputeRotation();
    PixelSink sink(sourceRows, sourceWidth_, sourceHeight_, destination);
    Remap(sink, upsideDown);
}

void Projector::Trace(std::vector<int32_t>& u, std::vector<int32_t>& v, bool upsideDown) {
    const int64_t count = viewWidth_ < 1 || viewHeight_ < 1 ? 0 : static_cast<int64_t>(viewWidth_) * viewHeight_;
    u.assign(count, 0);
    v.assign(count, 0);
    if (count == 0) return;
    ComputeRotation();
    TraceSink sink(u, v);
    Remap(sink, upsideDown);
}

void Projector::Remap(Sink& sink, bool upsideDown) {
    const int32_t w = viewWidth_;
    const int32_t h = viewHeight_;
    const int32_t turn = 256 * sourceWidth_;
    const int32_t seamJump = turn / 3;
    const int32_t xMin = -((w - 1) >> 1);
    const int32_t xMax = w - ((w - 1) >> 1);
    const int32_t yMin = -(h >> 1);
    const int32_t yMax = h - (h >> 1);

    // Base step, finer where the view reaches towards a pole.
    const double vfov = VerticalFov(fov_, w, h);
    const double top = tilt_ + vfov / 2.0;
    const double bottom = tilt_ - vfov / 2.0;
    int32_t baseStep = w / 20;
    if (top > 65.0 || bottom < -65.0) baseStep = w / 35;
    if (top > 70.0 || bottom < -70.0) baseStep = w / 50;
    if (top > 80.0 || bottom < -80.0) baseStep = w / 200;
    if (baseStep == 0) baseStep = 1;
    const int32_t coarseStep = 4 * baseStep;
    lastBaseStep_ = baseStep;
    lastGuardUses_ = 0;

    // Pole bands in view rows, taking elevation as linear in rows.
    auto rowAt = [&](double elevation) {
        return yMin + static_cast<int32_t>((1.0 - (elevation - bottom) / vfov) * h);
    };
    int32_t inner0 = yMax + 100;
    int32_t inner1 = yMax + 100;
    int32_t outer0 = yMin - 100;
    int32_t outer1 = yMax + 100;
    if (vfov / 2.0 > 10.0) {
        if (top > 87.5 || bottom < -87.5) {
            if (tilt_ > 0.0) {
                inner0 = rowAt(92.5);
                inner1 = rowAt(87.5);
            } else {
                inner0 = rowAt(-87.5);
                inner1 = rowAt(-92.5);
            }
        }
        if (top > 80.0 || bottom < -80.0) {
            if (tilt_ > 0.0) {
                outer0 = rowAt(100.0);
                outer1 = rowAt(80.0);
            } else {
                outer0 = rowAt(-80.0);
                outer1 = rowAt(-100.0);
            }
        }
    }

    auto wrapDiff = [&](int32_t a, int32_t b) {
        if (a < -seamJump && b > seamJump) return a - b + turn;
        if (a > seamJump && b < -seamJump) return a - b - turn;
        return a - b;
    };

    // Exact coordinates of one grid row: columns xMin + k * step up to and including the first
    // beyond xMax.
    auto gridRow = [&](int32_t y, int32_t step, std::vector<int32_t>& u, std::vector<int32_t>& v) {
        u.clear();
        v.clear();
        for (int32_t k = 0;; ++k) {
            const int32_t x = xMin + k * step;
            int32_t pu = 0;
            int32_t pv = 0;
            GridPoint(x, y, pu, pv);
            u.push_back(pu);
            v.push_back(pv);
            if (x > xMax) break;
        }
    };

    const int64_t total = static_cast<int64_t>(w) * h;
    int64_t drawn = 0;
    auto put = [&](int32_t u, int32_t v) {
        sink.Put(upsideDown ? total - 1 - drawn : drawn, u, v);
        ++drawn;
    };

    // One view row from the grid values ru, rv at step `step`.
    auto drawRow = [&](const std::vector<int32_t>& ru, const std::vector<int32_t>& rv, int32_t step) {
        int32_t u = ru[0];
        int32_t v = rv[0];
        int32_t x = xMin + 1;
        size_t k = 0;
        while (x <= xMax) {
            const int32_t du = wrapDiff(ru[k + 1], u) / step;
            const int32_t dv = (rv[k + 1] - v) / step;
            for (int32_t j = 0; j < step && x <= xMax; ++j) {
                if (u >= turn / 2) u -= turn;
                if (u < -turn / 2) u += turn;
                v += dv;
                put(u, v);
                u += du;
                x += 1;
            }
            u = ru[k + 1];
            v = rv[k + 1];
            k += 1;
        }
    };

    int32_t y = yMin;
    int32_t rowBase = yMin;
    int32_t step = baseStep;
    int32_t blockRows = baseStep + 1;
    bool fresh = true;
    bool stepChangedSinceDraw = false;
    std::vector<int32_t> previousU, previousV, currentU, currentV;

    // Changes the step unless that would undo the previous change with no row drawn since; then
    // the current step is kept for one ordinary block. Returns whether the step was changed.
    auto changeStep = [&](int32_t newStep) {
        if (step == newStep) return true;
        if (stepChangedSinceDraw) {
            blockRows = step + 1;
            ++lastGuardUses_;
            return false;
        }
        step = newStep;
        fresh = true;
        stepChangedSinceDraw = true;
        return true;
    };

    while (y < yMax) {
        if (y + blockRows > inner0 && y < inner1) {
            if (changeStep(baseStep)) blockRows = 1;
        } else if (y + blockRows >= outer0 && y <= outer1) {
            blockRows = step + 1;
        } else {
            if (changeStep(coarseStep)) blockRows = 4 * baseStep + 1;
        }

        if (!fresh) {
            previousU = currentU;
            previousV = currentV;
            rowBase += blockRows;
        }
        gridRow(rowBase, step, currentU, currentV);
        if (fresh) {
            fresh = false;
            continue;
        }

        const size_t columns = currentU.size();
        std::vector<int32_t> rowU(columns), rowV(columns);
        for (int32_t r = 0; r < blockRows; ++r) {
            for (size_t k = 0; k < columns; ++k) {
                const int32_t duY = wrapDiff(currentU[k], previousU[k]) / blockRows;
                const int32_t dvY = (currentV[k] - previousV[k]) / blockRows;
                rowU[k] = previousU[k] + r * duY;
                rowV[k] = previousV[k] + r * dvY;
            }
            drawRow(rowU, rowV, step);
            stepChangedSinceDraw = false;
            y += 1;
            if (y == yMax) return;
        }
    }
}

std::vector<uint32_t> NoisePicture(int32_t width, int32_t height, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint32_t> pixels(static_cast<size_t>(width) * height);
    for (uint32_t& pixel : pixels) pixel = static_cast<uint32_t>(random());
    return pixels;
}

std::vector<const uint32_t*> RowPointers(const std::vector<uint32_t>& pixels, int32_t width, int32_t height) {
    std::vector<const uint32_t*> rows(height);
    for (int32_t i = 0; i < height; ++i) rows[i] = pixels.data() + static_cast<size_t>(i) * width;
    return rows;
}

void RenderPanoramaView(const uint32_t* pixels, int32_t width, int32_t height, uint32_t* destination,
                        int32_t viewWidth, int32_t viewHeight, double pan, double tilt, double fov) {
    if (pixels == nullptr || destination == nullptr || width < 1 || height < 1 || viewWidth < 1 ||
        viewHeight < 1) {
        return;
    }
    Projector projector(width, height);
    std::vector<const uint32_t*> rows(height);
    for (int32_t i = 0; i < height; ++i) rows[i] = pixels + static_cast<int64_t>(i) * width;
    projector.SetViewSize(viewWidth, viewHeight);
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
    projector.Render(rows.data(), destination, upsideDown);
}

}  // namespace vexel::reference
