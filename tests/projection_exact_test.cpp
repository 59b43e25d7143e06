// The view projector must reproduce the straightforward model in projection_reference.h bit for
// bit: tables, fixed-point helpers, view validation, traced coordinates and rendered pixels.
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

// One view on both projectors, fed with the view direction that RenderPanoramaView would hand on:
// the accepted view, the rotation, the traced coordinates and the pixels must all agree.
void ExpectProjectorsAgree(ViewProjector& projector, reference::Projector& model,
                           const std::vector<uint32_t>& picture, const ViewCase& c, bool upsideDown) {
    SCOPED_TRACE(Describe(c) + (upsideDown ? ", upside down" : ""));
    const size_t count = static_cast<size_t>(c.viewWidth) * c.viewHeight;
    std::vector<uint32_t> actual(count, 0x12345678u);
    std::vector<uint32_t> expected(count, 0x9ABCDEF0u);
    projector.SetViewBuffer(actual.data(), c.viewWidth, c.viewHeight);
    model.SetViewSize(c.viewWidth, c.viewHeight);
    projector.SetView(c.pan, c.tilt, c.fov);
    model.SetView(c.pan, c.tilt, c.fov);
    ASSERT_EQ(projector.pan(), model.pan());
    ASSERT_EQ(projector.tilt(), model.tilt());
    ASSERT_EQ(projector.fov(), model.fov());

    std::vector<int32_t> u, v, modelU, modelV;
    projector.TraceCoordinates(u, v, upsideDown);
    model.Trace(modelU, modelV, upsideDown);
    ASSERT_EQ(u.size(), count);
    ASSERT_EQ(v.size(), count);
    for (int k = 0; k < 9; ++k) ASSERT_EQ(projector.rotationFixed()[k], model.rotationFixed()[k]) << "entry " << k;
    const int64_t uDiff = FirstDifference(u, modelU);
    ASSERT_EQ(uDiff, -1) << "u of element " << uDiff << ": " << u[uDiff] << " instead of " << modelU[uDiff]
                         << " (base step " << model.baseStep() << ")";
    const int64_t vDiff = FirstDifference(v, modelV);
    ASSERT_EQ(vDiff, -1) << "v of element " << vDiff << ": " << v[vDiff] << " instead of " << modelV[vDiff]
                         << " (base step " << model.baseStep() << ")";

    const auto rows = reference::RowPointers(picture, c.sourceWidth, c.sourceHeight);
    projector.Render(rows.data(), upsideDown);
    model.Render(rows.data(), expected.data(), upsideDown);
    const int64_t pixel = FirstDifference(actual, expected);
    ASSERT_EQ(pixel, -1) << "pixel " << pixel << ": " << std::hex << actual[pixel] << " instead of "
                         << expected[pixel] << " at (u, v) = (" << std::dec << u[pixel] << ", " << v[pixel] << ")";
}

// The whole path of RenderPanoramaView on both sides: a fresh projector each, the same pixels.
void ExpectSameRender(const std::vector<uint32_t>& picture, const ViewCase& c) {
    const size_t count = static_cast<size_t>(c.viewWidth) * c.viewHeight;
    std::vector<uint32_t> actual(count, 0x12345678u);
    std::vector<uint32_t> expected(count, 0x9ABCDEF0u);
    RenderPanoramaView(picture.data(), c.sourceWidth, c.sourceHeight, actual.data(), c.viewWidth, c.viewHeight,
                       c.pan, c.tilt, c.fov);
    reference::RenderPanoramaView(picture.data(), c.sourceWidth, c.sourceHeight, expected.data(), c.viewWidth,
                                  c.viewHeight, c.pan, c.tilt, c.fov);
    const int64_t pixel = FirstDifference(actual, expected);
    ASSERT_EQ(pixel, -1) << Describe(c) << ": pixel " << pixel << " is " << std::hex << actual[pixel]
                         << " instead of " << expected[pixel];
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
    const auto& picture = pictures.Get(c.sourceWidth, c.sourceHeight);
    bool upsideDown = false;
    const ViewCase direct = LookingBack(c, upsideDown);
    ViewProjector projector(c.sourceWidth, c.sourceHeight);
    reference::Projector model(c.sourceWidth, c.sourceHeight);
    ExpectProjectorsAgree(projector, model, picture, direct, upsideDown);
    if (::testing::Test::HasFatalFailure()) return;
    ExpectSameRender(picture, c);
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

TEST(ProjectionTablesTest, SpotValues) {
    const auto tables = GetProjectionTables(3840);
    EXPECT_EQ(tables->columnsPerRadian, 3840 / (2 * kPi));
    // The last entry is b = 0 for atan (90 degrees) and a = b for sqrt (sqrt 2).
    EXPECT_EQ(tables->atanUnitTable[65536], 402.1238596594935);
    EXPECT_EQ(tables->atanTable[65536], static_cast<int32_t>(128 * kPi * tables->columnsPerRadian + 0.5));
    EXPECT_EQ(tables->atanTable[65536], tables->quarterTurn);
    EXPECT_EQ(tables->sqrtTable[65536], 92681u);
    // a = 0: no angle, length 1.
    EXPECT_EQ(tables->atanTable[0], 0);
    EXPECT_EQ(tables->atanUnitTable[0], 0.0);
    EXPECT_EQ(tables->sqrtTable[0], 65536u);
    // a = b: 45 degrees, and t = 1/2 gives sqrt(1.25).
    EXPECT_EQ(tables->atanTable[32768], 32 * 3840);
    EXPECT_EQ(tables->sqrtTable[32768], 73271u);
    // t = 1/4 is a/b = 1/3.
    EXPECT_DOUBLE_EQ(tables->atanUnitTable[16384], 256 * std::atan(1.0 / 3.0));
    EXPECT_EQ(tables->sqrtTable[16384], 67552u);  // sqrt(1 + 1/16)
    // Monotonic, as a table atan must be.
    for (size_t i = 1; i < tables->atanTable.size(); ++i) ASSERT_LE(tables->atanTable[i - 1], tables->atanTable[i]);
}

TEST(ProjectionTablesTest, OneSetPerWidthIsShared) {
    const auto a = GetProjectionTables(2048);
    const auto b = GetProjectionTables(2048);
    const auto c = GetProjectionTables(2050);
    EXPECT_EQ(a.get(), b.get());
    EXPECT_NE(a.get(), c.get());
    EXPECT_EQ(c->sourceWidth, 2050);
    ViewProjector projector(2048, 1024);
    EXPECT_EQ(&projector.tables(), a.get());
}

// ---------------------------------------------------------------------------------------------
// Fixed-point helpers

TEST(FixedPointTest, Atan2FixedQuadrantsAndAxes) {
    ViewProjector projector(512, 256);
    const int32_t quarter = 64 * 512;
    const int32_t half = 128 * 512;
    const int32_t eighth = 32 * 512;
    EXPECT_EQ(projector.Atan2Fixed(0, 0), -quarter);
    EXPECT_EQ(projector.Atan2Fixed(5, 0), quarter);
    EXPECT_EQ(projector.Atan2Fixed(-5, 0), -quarter);
    EXPECT_EQ(projector.Atan2Fixed(0, 5), 0);
    EXPECT_EQ(projector.Atan2Fixed(0, -5), half);
    EXPECT_EQ(projector.Atan2Fixed(7, 7), eighth);
    EXPECT_EQ(projector.Atan2Fixed(-7, 7), -eighth);
    EXPECT_EQ(projector.Atan2Fixed(7, -7), half - eighth);
    EXPECT_EQ(projector.Atan2Fixed(-7, -7), eighth - half);

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

TEST(FixedPointTest, HypotFixed) {
    ViewProjector projector(512, 256);
    EXPECT_EQ(projector.HypotFixed(0, 0), 0);
    EXPECT_EQ(projector.HypotFixed(5, 0), 5);
    EXPECT_EQ(projector.HypotFixed(0, 5), 5);
    EXPECT_EQ(projector.HypotFixed(3, 4), 5);
    EXPECT_EQ(projector.HypotFixed(4, 3), 5);
    EXPECT_EQ(projector.HypotFixed(1000, 1000), 1414);  // 92681 * 1000 >> 16
    std::mt19937 random(13);
    std::uniform_int_distribution<int32_t> coordinate(0, 1 << 20);
    for (int i = 0; i < 20000; ++i) {
        const int32_t a = coordinate(random);
        const int32_t b = coordinate(random);
        const double exact = std::hypot(static_cast<double>(a), static_cast<double>(b));
        // Truncated table (2^-16 relative) and truncating shift: never above, at most 2^-15 below.
        const int32_t result = projector.HypotFixed(a, b);
        ASSERT_LE(result, exact + 1e-9) << a << ", " << b;
        ASSERT_GE(result, exact * (1 - 1.0 / 32768) - 1) << a << ", " << b;
    }
}

TEST(FixedPointTest, RotationForKnownView) {
    // pan 30, tilt 20, fov 90 on a 1000 pixel wide view: view distance 500, scale 131072 / (pi/2).
    std::vector<uint32_t> view(1000 * 500);
    ViewProjector projector(512, 256);
    projector.SetViewBuffer(view.data(), 1000, 500);
    projector.SetView(30, 20, 90);
    std::vector<int32_t> u, v;
    projector.TraceCoordinates(u, v, false);  // computes the rotation for the view
    const int64_t expected[9] = {591985, 0, -341782, 116897, 642341, 202471, 160585311, -116896546, 278141918};
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(projector.rotationFixed()[k], expected[k], 1) << "entry " << k;

    reference::Projector model(512, 256);
    model.SetViewSize(1000, 500);
    model.SetView(30, 20, 90);
    model.Trace(u, v, false);
    for (int k = 0; k < 9; ++k) EXPECT_EQ(projector.rotationFixed()[k], model.rotationFixed()[k]) << "entry " << k;
}

TEST(FixedPointTest, BlendBilinearEqualsTheModel) {
    std::mt19937 random(14);
    for (int i = 0; i < 100000; ++i) {
        const uint32_t tl = random(), tr = random(), bl = random(), br = random();
        const uint32_t fx = random() & 255, fy = random() & 255;
        ASSERT_EQ(BlendBilinear(tl, tr, bl, br, fx, fy), reference::BlendBilinear(tl, tr, bl, br, fx, fy));
    }
    // Corner weights: at fx = fy = 0 the top-left pixel alone, scaled by 65025/65536.
    EXPECT_EQ(BlendBilinear(0x00FF8040u, 0, 0, 0, 0, 0), 0xFFFD7F3Fu);
    EXPECT_EQ(BlendBilinear(0, 0, 0, 0x00FF8040u, 255, 255), 0xFFFD7F3Fu);
    EXPECT_EQ(BlendBilinear(0, 0x00FF8040u, 0, 0, 255, 0), 0xFFFD7F3Fu);
    EXPECT_EQ(BlendBilinear(0, 0, 0x00FF8040u, 0, 0, 255), 0xFFFD7F3Fu);
}

TEST(ViewValidationTest, VerticalFovEqualsTheModel) {
    std::mt19937 random(15);
    std::uniform_real_distribution<double> fov(1, 179);
    for (int i = 0; i < 1000; ++i) {
        const double f = fov(random);
        const int32_t w = 1 + random() % 2000, h = 1 + random() % 2000;
        ASSERT_EQ(ViewProjector::VerticalFov(f, w, h), reference::Projector::VerticalFov(f, w, h));
    }
    EXPECT_NEAR(ViewProjector::VerticalFov(90, 100, 100), 90, 1e-12);
    EXPECT_NEAR(ViewProjector::VerticalFov(90, 200, 100), 2 * std::atan(0.5) * 180 / kPi, 1e-12);
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
