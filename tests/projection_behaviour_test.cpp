// Observable behaviour of view projection: colours, the seam, views beyond the poles, view
// validation and its limits on partial panoramas, and views that once made the grid loop spin.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "projection/view_projector.h"
#include "projection_oracle.h"
#include "projection_reference.h"

namespace vexel {
namespace {

constexpr double kPi = 3.141592653589793;

struct Picture {
    int32_t width;
    int32_t height;
    std::vector<uint32_t> pixels;
};

Picture Uniform(int32_t width, int32_t height, uint32_t colour) {
    return {width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height, colour)};
}

Picture Noise(int32_t width, int32_t height, uint32_t seed) {
    return {width, height, reference::NoisePicture(width, height, seed)};
}

// Smooth in every direction and continuous across the seam: red and green follow the cosine and
// sine of longitude, blue the sine of latitude.
Picture SmoothGlobe(int32_t width, int32_t height) {
    Picture picture{width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height)};
    for (int32_t row = 0; row < height; ++row) {
        const double latitude = (row + 0.5 - height / 2.0) * 2 * kPi / width;
        for (int32_t column = 0; column < width; ++column) {
            const double longitude = (column + 0.5 - width / 2.0) * 2 * kPi / width;
            const auto channel = [](double value) { return static_cast<uint32_t>(std::lround(128 + 100 * value)); };
            picture.pixels[static_cast<size_t>(row) * width + column] =
                channel(std::cos(longitude)) << 16 | channel(std::sin(longitude)) << 8 | channel(std::sin(latitude));
        }
    }
    return picture;
}

std::vector<uint32_t> Render(const Picture& picture, int32_t w, int32_t h, double pan, double tilt, double fov) {
    std::vector<uint32_t> view(static_cast<size_t>(w) * h, 0x5A5A5A5Au);
    RenderPanoramaView(picture.pixels.data(), picture.width, picture.height, view.data(), w, h, pan, tilt, fov);
    return view;
}

std::vector<uint32_t> TurnedHalfway(const std::vector<uint32_t>& view) { return {view.rbegin(), view.rend()}; }

int ChannelDifference(uint32_t a, uint32_t b) {
    int largest = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        largest = std::max(largest, std::abs(static_cast<int>((a >> shift) & 255) - static_cast<int>((b >> shift) & 255)));
    }
    return largest;
}

// The view as the projector takes it, after validation.
struct TakenView {
    double pan, tilt, fov;
};

TakenView Take(int32_t sourceWidth, int32_t sourceHeight, int32_t w, int32_t h, double pan, double tilt, double fov) {
    ViewProjector projector(sourceWidth, sourceHeight);
    projector.SetViewBuffer(nullptr, w, h);
    projector.SetView(pan, tilt, fov);
    return {projector.pan(), projector.tilt(), projector.fov()};
}

// ---------------------------------------------------------------------------------------------

TEST(ProjectionBehaviourTest, UniformPicturesGiveUniformViews) {
    // The blend weights sum to 65025: full intensity comes out as 253. Source alpha is ignored and
    // every written pixel is opaque.
    struct ViewCase {
        int32_t sourceWidth, sourceHeight;
        double pan, tilt, fov;
    };
    const ViewCase cases[] = {{512, 256, 0, 0, 120},    {512, 256, 180, 10, 90},  {512, 256, -30, 90, 165},
                              {512, 256, 77, -88, 100}, {512, 256, 10, 120, 60},  {1000, 300, 179, 40, 90},
                              {257, 128, -179, -60, 150}};
    for (const ViewCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.sourceWidth << "x" << c.sourceHeight << " pan " << c.pan << " tilt "
                                        << c.tilt << " fov " << c.fov);
        for (const auto& [input, output] : {std::pair{0xFFFFFFFFu, 0xFFFDFDFDu}, std::pair{0x00FFFFFFu, 0xFFFDFDFDu},
                                            std::pair{0x00000000u, 0xFF000000u}, std::pair{0xFF000000u, 0xFF000000u}}) {
            const auto view = Render(Uniform(c.sourceWidth, c.sourceHeight, input), 97, 41, c.pan, c.tilt, c.fov);
            for (size_t i = 0; i < view.size(); ++i) ASSERT_EQ(view[i], output) << "pixel " << i;
        }
    }
}

TEST(ProjectionBehaviourTest, NoSeamAtHalfTurn) {
    // Looking at pan 180 of a picture must show what pan 0 shows of the same picture rotated by half
    // a turn: nothing may change where the view crosses the seam.
    const Picture globe = SmoothGlobe(512, 256);
    Picture turned = globe;
    for (int32_t row = 0; row < 256; ++row) {
        for (int32_t column = 0; column < 512; ++column) {
            turned.pixels[static_cast<size_t>(row) * 512 + column] =
                globe.pixels[static_cast<size_t>(row) * 512 + (column + 256) % 512];
        }
    }
    // Views clear of the poles: close to a pole the longitude runs through a whole turn within a
    // few pixels, and where that happens depends on where the seam is.
    for (const double tilt : {0.0, 30.0, -40.0}) {
        for (const double fov : {60.0, 100.0}) {
            SCOPED_TRACE(testing::Message() << "tilt " << tilt << ", fov " << fov);
            const auto acrossSeam = Render(globe, 320, 180, 180, tilt, fov);
            const auto awayFromSeam = Render(turned, 320, 180, 0, tilt, fov);
            int largest = 0;
            for (size_t i = 0; i < acrossSeam.size(); ++i) {
                largest = std::max(largest, ChannelDifference(acrossSeam[i], awayFromSeam[i]));
            }
            EXPECT_LE(largest, 1);
            // And no jump between neighbours: the picture changes by about one level per column.
            int largestStep = 0;
            for (int32_t row = 0; row < 180; ++row) {
                for (int32_t column = 1; column < 320; ++column) {
                    const size_t i = static_cast<size_t>(row) * 320 + column;
                    largestStep = std::max(largestStep, ChannelDifference(acrossSeam[i], acrossSeam[i - 1]));
                }
            }
            EXPECT_LE(largestStep, 3);
        }
    }
}

TEST(ProjectionBehaviourTest, BeyondThePoleLooksBackTurnedOver) {
    const Picture picture = Noise(512, 256, 5);
    for (const auto& [w, h] : {std::pair{160, 90}, std::pair{99, 57}}) {
        const auto above = Render(picture, w, h, 30, 95, 100);
        EXPECT_EQ(above, TurnedHalfway(Render(picture, w, h, 210, 85, 100)));
        EXPECT_NE(above, Render(picture, w, h, 210, 85, 100));
        const auto below = Render(picture, w, h, -120, -95, 100);
        EXPECT_EQ(below, TurnedHalfway(Render(picture, w, h, 60, -85, 100)));
        // Far beyond: tilt 170 is pan + 180 at tilt 10.
        EXPECT_EQ(Render(picture, w, h, 0, 170, 90), TurnedHalfway(Render(picture, w, h, 180, 10, 90)));
    }
}

TEST(ProjectionBehaviourTest, RefusedFieldOfViewDrawsTheDefaultView) {
    const Picture picture = Noise(512, 256, 6);
    const auto defaultView = Render(picture, 120, 80, 0, 0, 120);
    EXPECT_EQ(Render(picture, 120, 80, 50, 30, 20), defaultView);
    EXPECT_EQ(Render(picture, 120, 80, -50, -30, 170), defaultView);
    EXPECT_EQ(Render(picture, 120, 80, 50, 30, 29.9), defaultView);
    EXPECT_NE(Render(picture, 120, 80, 50, 30, 30), defaultView);
    EXPECT_NE(Render(picture, 120, 80, 50, 30, 165), defaultView);

    ViewProjector projector(512, 256);
    projector.SetViewBuffer(nullptr, 120, 80);
    projector.SetView(50, 30, 20);
    EXPECT_EQ(projector.pan(), 0);
    EXPECT_EQ(projector.tilt(), 0);
    EXPECT_EQ(projector.fov(), 120);
    // A refusal keeps the last accepted view, not the default.
    projector.SetView(40, 20, 90);
    projector.SetView(50, 30, 170);
    EXPECT_EQ(projector.pan(), 40);
    EXPECT_EQ(projector.tilt(), 20);
    EXPECT_EQ(projector.fov(), 90);
}

TEST(ProjectionBehaviourTest, PartialPanoramaLimitsTheView) {
    // 4096 x 1024 covers +-45 degrees about the horizon.
    ViewProjector projector(4096, 1024);
    EXPECT_EQ(projector.tiltMax(), 45);
    EXPECT_EQ(projector.tiltMin(), -45);
    projector.SetViewBuffer(nullptr, 640, 360);

    // fov 165 is 154 degrees high at 16:9: it shrinks by steps of 1.03 until it fits in 90.
    projector.SetView(0, 0, 165);
    const double fov = projector.fov();
    EXPECT_LE(ViewProjector::VerticalFov(fov, 640, 360), 90);
    EXPECT_GT(ViewProjector::VerticalFov(fov * 1.03, 640, 360), 90);
    const double steps = std::log(165 / fov) / std::log(1.03);
    EXPECT_NEAR(steps, std::round(steps), 1e-9);
    EXPECT_GE(steps, 1);

    // With a vertical field of 30 degrees the centre may go up to 30 and down to -30.
    const double fov30 = 2 * std::atan(std::tan(15 * kPi / 180) * 640 / 360) * 180 / kPi;
    projector.SetView(10, 40, fov30);
    EXPECT_NEAR(projector.tilt(), 30, 1e-9);
    EXPECT_EQ(projector.fov(), fov30);
    EXPECT_EQ(projector.pan(), 10);
    projector.SetView(10, -40, fov30);
    EXPECT_NEAR(projector.tilt(), -30, 1e-9);
    projector.SetView(10, 20, fov30);
    EXPECT_EQ(projector.tilt(), 20);

    // A 2:1 picture keeps the full range and lets the view centre reach the pole.
    ViewProjector sphere(4096, 2048);
    EXPECT_EQ(sphere.tiltMax(), 90);
    EXPECT_EQ(sphere.tiltMin(), -90);
    sphere.SetViewBuffer(nullptr, 640, 360);
    sphere.SetView(0, 90, fov30);
    EXPECT_EQ(sphere.tilt(), 90);
}

TEST(ProjectionBehaviourTest, PanIsBroughtIntoHalfTurns) {
    const Picture picture = Noise(512, 256, 7);
    EXPECT_EQ(Take(512, 256, 100, 60, 540, 0, 90).pan, 180);
    EXPECT_EQ(Take(512, 256, 100, 60, -190, 0, 90).pan, 170);
    EXPECT_EQ(Take(512, 256, 100, 60, 725, 0, 90).pan, 5);
    EXPECT_EQ(Render(picture, 100, 60, 540, 10, 90), Render(picture, 100, 60, 180, 10, 90));
    EXPECT_EQ(Render(picture, 100, 60, -190, 10, 90), Render(picture, 100, 60, 170, 10, 90));
}

TEST(ProjectionBehaviourTest, NonFiniteRequestsLeaveTheViewUnchanged) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    ViewProjector projector(512, 256);
    projector.SetViewBuffer(nullptr, 100, 60);
    projector.SetView(10, 20, 90);
    for (const double bad : {nan, inf, -inf}) {
        projector.SetView(bad, 0, 100);
        projector.SetView(0, bad, 100);
        projector.SetView(0, 0, bad);
        EXPECT_EQ(projector.pan(), 10);
        EXPECT_EQ(projector.tilt(), 20);
        EXPECT_EQ(projector.fov(), 90);
    }
    const Picture picture = Noise(512, 256, 8);
    EXPECT_EQ(Render(picture, 100, 60, nan, 10, 90), Render(picture, 100, 60, 0, 0, 120));
    EXPECT_EQ(Render(picture, 100, 60, 10, nan, 90), Render(picture, 100, 60, 0, 0, 120));
}

TEST(ProjectionBehaviourTest, HugePansAreReducedExactly) {
    // The result is the pan reduced by whole turns, exactly (fmod is exact).
    for (const double pan : {1e300, -1e300, 1e18, -3.5e15, 368640.5, 368641.25, -1e6 - 0.25}) {
        SCOPED_TRACE(testing::Message() << "pan " << pan);
        const TakenView view = Take(512, 256, 100, 60, pan, 10, 90);
        double expected = std::fmod(pan, 360.0);
        if (expected > 180) expected -= 360;
        if (expected < -180) expected += 360;
        EXPECT_EQ(view.pan, expected);
        EXPECT_EQ(view.tilt, 10);
        EXPECT_EQ(view.fov, 90);
    }
    EXPECT_EQ(Take(512, 256, 100, 60, 368640.5, 10, 90).pan, 0.5);
    EXPECT_EQ(Take(512, 256, 100, 60, -1e6 - 0.25, 10, 90).pan, 79.75);
}

TEST(ProjectionBehaviourTest, EmptyPicturesAndViewsDrawNothing) {
    const Picture picture = Noise(64, 32, 11);
    std::vector<uint32_t> view(16, 0x5A5A5A5Au);
    RenderPanoramaView(picture.pixels.data(), 64, 32, view.data(), 0, 4, 0, 0, 90);
    RenderPanoramaView(picture.pixels.data(), 64, 32, view.data(), 4, 0, 0, 0, 90);
    RenderPanoramaView(picture.pixels.data(), 0, 32, view.data(), 4, 4, 0, 0, 90);
    RenderPanoramaView(picture.pixels.data(), 64, 0, view.data(), 4, 4, 0, 0, 90);
    RenderPanoramaView(nullptr, 64, 32, view.data(), 4, 4, 0, 0, 90);
    EXPECT_EQ(view, std::vector<uint32_t>(16, 0x5A5A5A5Au));
    // One pixel is a view like any other.
    RenderPanoramaView(picture.pixels.data(), 64, 32, view.data(), 1, 1, 0, 0, 90);
    EXPECT_EQ(view[0] >> 24, 0xFFu);
    EXPECT_EQ(view[1], 0x5A5A5A5Au);
}

// ---------------------------------------------------------------------------------------------
// Short wide views over a pole: the pole band is thinner than one coarse block of the grid. They
// must finish and show what the camera sees.

void ExpectViewFollowsTheGeometry(int32_t w, int32_t h, double tilt, double fov, int32_t stride) {
    SCOPED_TRACE(testing::Message() << "view " << w << "x" << h << ", tilt " << tilt << ", fov " << fov);
    ViewProjector projector(1024, 512);
    projector.SetViewBuffer(nullptr, w, h);
    projector.SetView(25, tilt, fov);
    ASSERT_EQ(projector.fov(), fov);
    std::vector<int32_t> u, v;
    projector.TraceCoordinates(u, v, false);
    const oracle::Agreement a = oracle::CompareWithOracle(1024, w, h, projector.pan(), projector.tilt(),
                                                          projector.fov(), false, u, v, oracle::kTolerance, stride);
    ASSERT_GT(a.checked, 0);
    EXPECT_GE(a.fractionWithin(), oracle::kPoleViewFractionWithin)
        << a.within << " of " << a.checked << " within, worst " << a.worst;
}

TEST(ProjectionBehaviourTest, ShortWideViewAtTheZenithFinishes) {
    const Picture picture = Noise(1024, 512, 9);
    const auto view = Render(picture, 1280, 200, 0, 90, 165);
    EXPECT_EQ(view.back() >> 24, 0xFFu);  // drawn to the last pixel
    ExpectViewFollowsTheGeometry(1280, 200, 90, 165, 1);
}

TEST(ProjectionBehaviourTest, ShortWideViewsNearThePolesFinish) {
    for (const int32_t w : {640, 1280}) {
        for (const int32_t h : {60, 100, 200}) {
            for (const double tilt : {80.0, 84.0, 87.0, 90.0}) {
                for (const double fov : {120.0, 165.0}) {
                    ExpectViewFollowsTheGeometry(w, h, tilt, fov, 4);
                    ExpectViewFollowsTheGeometry(w, h, -tilt, fov, 4);
                    if (HasFailure()) return;
                }
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------

TEST(ProjectionBehaviourTest, RowsBeyondThePictureRepeatItsEdgeRows) {
    // A picture and the same picture with its first and last rows repeated twice more: the extra
    // rows keep the horizon where it was, so both must give the same view wherever the view
    // touches the top or bottom edge.
    struct ViewCase {
        int32_t width, height, w, h;
        double tilt, fov;
    };
    const ViewCase cases[] = {
        {1024, 256, 320, 100, -44, 60},  // partial: the view is held at the bottom edge
        {1024, 256, 320, 100, 44, 60},   // and at the top edge
        {511, 255, 200, 100, 90, 90},    // odd width: the north pole lies half a row above row 0
        {511, 255, 200, 100, -90, 90},
        {512, 256, 200, 100, -90, 90},   // the south pole lies on the row below the last
    };
    int64_t samplesAbove = 0;
    int64_t samplesBelow = 0;
    for (const ViewCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << ", tilt " << c.tilt);
        const Picture picture = Noise(c.width, c.height, 10);
        Picture extended{c.width, c.height + 4, {}};
        for (int32_t row = -2; row < c.height + 2; ++row) {
            const int32_t from = std::clamp(row, 0, c.height - 1);
            extended.pixels.insert(extended.pixels.end(), picture.pixels.begin() + static_cast<size_t>(from) * c.width,
                                   picture.pixels.begin() + static_cast<size_t>(from + 1) * c.width);
        }
        // The same direction on both (the taller picture would allow more tilt).
        const TakenView view = Take(c.width, c.height, c.w, c.h, 10, c.tilt, c.fov);
        ASSERT_EQ(Take(c.width, c.height + 4, c.w, c.h, view.pan, view.tilt, view.fov).tilt, view.tilt);
        EXPECT_EQ(Render(picture, c.w, c.h, view.pan, view.tilt, view.fov),
                  Render(extended, c.w, c.h, view.pan, view.tilt, view.fov));

        ViewProjector projector(c.width, c.height);
        projector.SetViewBuffer(nullptr, c.w, c.h);
        projector.SetView(view.pan, view.tilt, view.fov);
        std::vector<int32_t> u, v;
        projector.TraceCoordinates(u, v, false);
        for (const int32_t vv : v) {
            const int32_t row = (vv >> 8) + (c.height >> 1);
            samplesAbove += row < 0;
            samplesBelow += row + 1 > c.height - 1;
        }
    }
    // The cases do reach beyond both edges.
    EXPECT_GT(samplesAbove, 0);
    EXPECT_GT(samplesBelow, 0);
}

}  // namespace
}  // namespace vexel
