// The view projector against the straightforward model in projection_reference.h: tables,
// fixed-point helpers, view validation, traced coordinates and rendered pixels, bit for bit. The
// one allowed difference: pixels next to a pole, which the projector computes exactly where the
// model's grid interpolates; there the projector must have the exact coordinates.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "projection/projection_tables.h"
#include "projection/view_projector.h"
#include "projection_reference.h"

namespace vexel {
namespace {

constexpr double kPi = 3.141592653589793;

struct ViewCase {
    int32_t sourceWidth;
    int32_t sourceHeight;
    int32_t viewWidth;
    int32_t viewHeight;
    double pan;
    double tilt;
    double fov;
};

std::string Describe(const ViewCase& c) {
    std::ostringstream text;
    text.precision(17);
    text << "source " << c.sourceWidth << "x" << c.sourceHeight << ", view " << c.viewWidth << "x"
         << c.viewHeight << ", pan " << c.pan << ", tilt " << c.tilt << ", fov " << c.fov;
    return text.str();
}

// Index of the first difference of two equally long arrays, or -1.
template <class T>
int64_t FirstDifference(const std::vector<T>& a, const std::vector<T>& b) {
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i]) return static_cast<int64_t>(i);
    }
    return -1;
}

// Noise pictures by size, made once per test (references stay valid: a deque does not move them).
class PictureCache {
public:
    const std::vector<uint32_t>& Get(int32_t width, int32_t height) {
        for (auto& entry : entries_) {
            if (entry.width == width && entry.height == height) return entry.pixels;
        }
        entries_.push_back({width, height, reference::NoisePicture(width, height, width * 7919u + height)});
        return entries_.back().pixels;
    }

private:
    struct Entry {
        int32_t width, height;
        std::vector<uint32_t> pixels;
    };
    std::deque<Entry> entries_;
};

// Whether the model's 32-bit ray terms wrap somewhere in the view (tall wide-angle views); they are
// affine in x and y, so the corners have the extremes.
bool RayLeaves32Bits(const int64_t* m, int32_t w, int32_t h) {
    for (const int64_t x : {-((w - 1) >> 1), w - ((w - 1) >> 1)}) {
        for (const int64_t y : {-(h >> 1), h - (h >> 1)}) {
            for (const int64_t term : {x * m[0] + y * m[3] + m[6], y * m[4] + m[7], x * m[2] + y * m[5] + m[8]}) {
                if (term != static_cast<int32_t>(term)) return true;
            }
        }
    }
    return false;
}

// One view on both projectors, fed with the view direction that RenderPanoramaView would hand on.
// Every element has the model's coordinates or the exact ones of its pixel; the pixels agree
// wherever the coordinates do.
void ExpectProjectorsAgree(ViewProjector& projector, reference::Projector& model,
                           const std::vector<uint32_t>& picture, const ViewCase& c, bool upsideDown) {
    SCOPED_TRACE(Describe(c) + (upsideDown ? ", upside down" : ""));
    const int32_t w = c.viewWidth;
    const int64_t count = static_cast<int64_t>(w) * c.viewHeight;
    std::vector<uint32_t> actual(count, 0x12345678u);
    std::vector<uint32_t> expected(count, 0x9ABCDEF0u);
    projector.SetViewBuffer(actual.data(), w, c.viewHeight);
    model.SetViewSize(w, c.viewHeight);
    projector.SetView(c.pan, c.tilt, c.fov);
    model.SetView(c.pan, c.tilt, c.fov);
    ASSERT_EQ(projector.pan(), model.pan());
    ASSERT_EQ(projector.tilt(), model.tilt());
    ASSERT_EQ(projector.fov(), model.fov());

    std::vector<int32_t> u, v, modelU, modelV;
    projector.TraceCoordinates(u, v, upsideDown);
    model.Trace(modelU, modelV, upsideDown);
    ASSERT_EQ(static_cast<int64_t>(u.size()), count);
    for (int k = 0; k < 9; ++k) ASSERT_EQ(projector.rotationFixed()[k], model.rotationFixed()[k]) << "entry " << k;
    if (RayLeaves32Bits(model.rotationFixed(), w, c.viewHeight)) return;  // the model wraps; see the oracle tests
    const int32_t fullTurn = 256 * c.sourceWidth;
    for (int64_t e = 0; e < count; ++e) {
        if (u[e] == modelU[e] && v[e] == modelV[e]) continue;
        const int64_t drawn = upsideDown ? count - 1 - e : e;
        const int32_t x = -((w - 1) >> 1) + static_cast<int32_t>(drawn % w);
        const int32_t y = -(c.viewHeight >> 1) + static_cast<int32_t>(drawn / w);
        int32_t exactU = 0, exactV = 0;
        model.GridPoint(x, y, exactU, exactV);
        ASSERT_EQ(u[e], WrapOnce(exactU, fullTurn)) << "element " << e << " (model " << modelU[e] << ")";
        ASSERT_EQ(v[e], exactV) << "element " << e << " (model " << modelV[e] << ")";
    }

    const auto rows = reference::RowPointers(picture, c.sourceWidth, c.sourceHeight);
    projector.Render(rows.data(), upsideDown);
    model.Render(rows.data(), expected.data(), upsideDown);
    for (int64_t e = 0; e < count; ++e) {
        if (u[e] != modelU[e] || v[e] != modelV[e]) continue;
        ASSERT_EQ(actual[e], expected[e]) << "pixel " << e << " at (u, v) = (" << u[e] << ", " << v[e] << ")";
    }
}

// The direction RenderPanoramaView hands to SetView, and whether it stores the view turned.
ViewCase LookingBack(ViewCase c, bool& upsideDown) {
    upsideDown = false;
    if (c.tilt > 90.0) {
        c.pan += 180.0;
        c.tilt = 180.0 - c.tilt;
        upsideDown = true;
    } else if (c.tilt < -90.0) {
        c.pan += 180.0;
        c.tilt = -180.0 - c.tilt;
        upsideDown = true;
    }
    return c;
}

void ExpectFullAgreement(PictureCache& pictures, const ViewCase& c) {
    bool upsideDown = false;
    const ViewCase direct = LookingBack(c, upsideDown);
    ViewProjector projector(c.sourceWidth, c.sourceHeight);
    reference::Projector model(c.sourceWidth, c.sourceHeight);
    ExpectProjectorsAgree(projector, model, pictures.Get(c.sourceWidth, c.sourceHeight), direct, upsideDown);
}

// ---------------------------------------------------------------------------------------------
// Tables

TEST(ProjectionTablesTest, EqualTheModelForSeveralWidths) {
    for (int32_t width : {1, 7, 512, 1000, 1023, 3840, 4096}) {
        SCOPED_TRACE("width " + std::to_string(width));
        const auto tables = GetProjectionTables(width);
        const auto& model = reference::TablesFor(width);
        ASSERT_EQ(tables->sourceWidth, width);
        EXPECT_EQ(tables->columnsPerRadian, model.columnsPerRadian);
        EXPECT_EQ(tables->quarterTurn, 64 * width);
        EXPECT_EQ(tables->halfTurn, 128 * width);
        ASSERT_EQ(tables->atanTable.size(), 65537u);
        ASSERT_EQ(tables->sqrtTable.size(), 65537u);
        ASSERT_EQ(tables->atanUnitTable.size(), 65537u);
        const int64_t atan = FirstDifference(tables->atanTable, model.atanTable);
        EXPECT_EQ(atan, -1) << "atanTable[" << atan << "]";
        const int64_t sqrt = FirstDifference(tables->sqrtTable, model.sqrtTable);
        EXPECT_EQ(sqrt, -1) << "sqrtTable[" << sqrt << "]";
        EXPECT_EQ(0, std::memcmp(tables->atanUnitTable.data(), model.atanUnitTable.data(), 65537 * sizeof(double)));
    }
}

// ---------------------------------------------------------------------------------------------
// Fixed-point helpers

TEST(FixedPointTest, Atan2FixedQuadrantsAndAxes) {
    ViewProjector projector(512, 256);
    EXPECT_EQ(projector.Atan2Fixed(0, 0), -64 * 512);
    // Every quadrant against the floating-point atan2, within the table's resolution.
    std::mt19937 random(11);
    std::uniform_int_distribution<int32_t> coordinate(-(1 << 19), 1 << 19);
    const double unitsPerRadian = 256 * 512 / (2 * kPi);
    for (int i = 0; i < 20000; ++i) {
        const int32_t a = coordinate(random);
        const int32_t b = coordinate(random);
        const double expected = std::atan2(static_cast<double>(a), static_cast<double>(b)) * unitsPerRadian;
        ASSERT_NEAR(projector.Atan2Fixed(a, b), expected, 1.5) << "a " << a << ", b " << b;
    }
}

TEST(FixedPointTest, Atan2FixedAndHypotFixedEqualTheModel) {
    std::mt19937 random(12);
    for (int32_t width : {512, 1023, 4096}) {
        ViewProjector projector(width, width / 2);
        reference::Projector model(width, width / 2);
        for (int i = 0; i < 20000; ++i) {
            // Magnitudes from 1 to the full range of a rotated coordinate (20 bits).
            const int32_t magnitude = 1 << (random() % 21);
            const int32_t a = static_cast<int32_t>(random() % (2 * magnitude + 1)) - magnitude;
            const int32_t b = static_cast<int32_t>(random() % (2 * magnitude + 1)) - magnitude;
            ASSERT_EQ(projector.Atan2Fixed(a, b), model.Atan2Fixed(a, b)) << "a " << a << ", b " << b;
            ASSERT_EQ(projector.HypotFixed(std::abs(a), std::abs(b)), model.HypotFixed(std::abs(a), std::abs(b)))
                << "a " << a << ", b " << b;
        }
    }
}

TEST(FixedPointTest, BlendBilinearEqualsTheModel) {
    std::mt19937 random(14);
    for (int i = 0; i < 100000; ++i) {
        const uint32_t tl = random(), tr = random(), bl = random(), br = random();
        const uint32_t fx = random() & 255, fy = random() & 255;
        ASSERT_EQ(BlendBilinear(tl, tr, bl, br, fx, fy), reference::BlendBilinear(tl, tr, bl, br, fx, fy));
    }
}

// ---------------------------------------------------------------------------------------------
// Whole views

struct SourceSize {
    int32_t width, height;
};

TEST(ProjectorExactTest, RandomViewsMatchTheModel) {
    // Mostly small 2:1 pictures; partial panoramas and odd widths among them.
    const SourceSize sources[] = {{512, 256}, {512, 256}, {512, 256}, {500, 250}, {511, 255}, {257, 128},
                                  {1000, 300}, {640, 200}, {512, 300}, {1023, 511}, {300, 40}};
    const struct {
        int32_t w, h;
    } fixedViews[] = {{1, 1}, {7, 3}, {19, 5}, {2, 1}, {1, 7}, {3, 200}, {200, 3}, {641, 17}, {20, 20}, {35, 9}};
    std::mt19937 random(2024);
    std::uniform_real_distribution<double> unit(0, 1);
    PictureCache pictures;
    for (int i = 0; i < 250; ++i) {
        ViewCase c{};
        const SourceSize source = sources[random() % std::size(sources)];
        c.sourceWidth = source.width;
        c.sourceHeight = source.height;
        if (random() % 4 == 0) {
            const auto& view = fixedViews[random() % std::size(fixedViews)];
            c.viewWidth = view.w;
            c.viewHeight = view.h;
        } else {
            c.viewWidth = 1 + static_cast<int32_t>(random() % 256);
            c.viewHeight = 1 + static_cast<int32_t>(random() % 160);
        }
        const double specialPans[] = {180, -180, 179.999, -179.999, 540, -190, 0, 360, 1e7};
        c.pan = random() % 5 == 0 ? specialPans[random() % std::size(specialPans)] : -400 + 800 * unit(random);
        switch (random() % 3) {
            case 0: c.tilt = -120 + 240 * unit(random); break;
            case 1: c.tilt = (random() % 2 ? 1 : -1) * (75 + 30 * unit(random)); break;
            default: c.tilt = (random() % 2 ? 1 : -1) * (80 + 12 * unit(random)); break;
        }
        c.fov = random() % 2 ? 10 + 170 * unit(random) : 100 + 65 * unit(random);
        ExpectFullAgreement(pictures, c);
        if (HasFatalFailure()) return;
    }
}

TEST(ProjectorExactTest, ReusedProjectorMatchesTheModel) {
    // One projector through many views of changing sizes, some refused: state and working storage
    // carry over from one render to the next.
    PictureCache pictures;
    const auto& picture = pictures.Get(512, 256);
    ViewProjector projector(512, 256);
    reference::Projector model(512, 256);
    std::mt19937 random(77);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int i = 0; i < 80; ++i) {
        ViewCase c{512, 256, 1 + static_cast<int32_t>(random() % 200), 1 + static_cast<int32_t>(random() % 150),
                   -200 + 400 * unit(random), -95 + 190 * unit(random), 20 + 155 * unit(random)};
        ExpectProjectorsAgree(projector, model, picture, c, random() % 2 == 0);
        if (HasFatalFailure()) return;
    }
}

TEST(ProjectorExactTest, PartialAndLargePictures) {
    PictureCache pictures;
    const ViewCase cases[] = {
        {4096, 1024, 320, 180, 10, 40, 120},    {4096, 1024, 320, 180, -170, -44, 150},
        {4096, 1024, 160, 160, 179.5, 0, 165},  {2048, 1024, 320, 180, 33, 89, 100},
        {2048, 1024, 321, 181, -90, -88, 160},  {2048, 1024, 400, 100, 179.9, 10, 60},
        {1000, 300, 200, 120, 45, 30, 90},      {1000, 300, 200, 120, -45, -60, 60},
        {1001, 301, 199, 121, 135, 20, 70},     {2049, 1024, 257, 129, -179.99, 91, 120},
    };
    for (const ViewCase& c : cases) {
        ExpectFullAgreement(pictures, c);
        if (HasFatalFailure()) return;
    }
}

TEST(ProjectorExactTest, ShortWideViewsOverThePoles) {
    // Views whose pole band is thinner than a coarse block of the grid: without its guard the block
    // loop would switch between the fine and the coarse step for ever. Each of these needs the
    // guard, and the projector must keep its step in the same way as the model.
    struct Size {
        int32_t w, h;
    };
    const struct {
        Size size;
        double tilt, fov;
    } views[] = {
        {{1280, 200}, 90, 165}, {{640, 60}, -80, 160},  {{640, 60}, 85, 165},  {{640, 100}, 80, 165},
        {{640, 100}, -86, 160}, {{640, 150}, 84, 165},  {{960, 60}, -85, 160}, {{960, 100}, -87, 155},
    };
    PictureCache pictures;
    const auto& picture = pictures.Get(1024, 512);
    for (const auto& view : views) {
        const ViewCase c{1024, 512, view.size.w, view.size.h, 17, view.tilt, view.fov};
        ViewProjector projector(c.sourceWidth, c.sourceHeight);
        reference::Projector model(c.sourceWidth, c.sourceHeight);
        ExpectProjectorsAgree(projector, model, picture, c, false);
        if (HasFatalFailure()) return;
        EXPECT_GT(model.loopGuardUses(), 0) << Describe(c);
    }
}

}  // namespace
}  // namespace vexel
