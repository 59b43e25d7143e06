// Observable behaviour of view projection that the comparison with the oracle does not pin down:
// colours of uniform pictures, views beyond the poles, requests the projector must refuse, and
// empty pictures and views.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "projection/view_projector.h"
#include "test_pictures.h"

namespace vexel {
namespace {

// A view of a 512 x 256 picture.
std::vector<uint32_t> Render(const std::vector<uint32_t>& picture, int32_t w, int32_t h, double pan,
                             double tilt, double fov) {
    std::vector<uint32_t> view(static_cast<size_t>(w) * h, 0x5A5A5A5Au);
    RenderPanoramaView(picture.data(), 512, 256, view.data(), w, h, pan, tilt, fov);
    return view;
}

std::vector<uint32_t> TurnedHalfway(const std::vector<uint32_t>& view) {
    return {view.rbegin(), view.rend()};
}

TEST(ProjectionBehaviourTest, UniformPicturesGiveUniformViews) {
    // The blend weights sum to 65025: full intensity comes out as 253. Source alpha is ignored and
    // every written pixel is opaque, the poles and the seam included.
    const double directions[][3] = {
        {0, 0, 120}, {180, 10, 90}, {-30, 90, 165}, {77, -88, 100}, {10, 120, 60}};
    for (const auto& [input, output] :
         {std::pair{0xFFFFFFFFu, 0xFFFDFDFDu}, std::pair{0x00FFFFFFu, 0xFFFDFDFDu},
          std::pair{0x00000000u, 0xFF000000u}}) {
        const std::vector<uint32_t> picture(512 * 256, input);
        for (const auto& [pan, tilt, fov] : directions) {
            EXPECT_EQ(Render(picture, 97, 41, pan, tilt, fov),
                      std::vector<uint32_t>(97 * 41, output))
                << "pan " << pan << ", tilt " << tilt << ", fov " << fov;
        }
    }
}

TEST(ProjectionBehaviourTest, BeyondThePoleLooksBackTurnedOver) {
    const auto picture = testing::NoisePicture(512, 256, 5);
    for (const auto& [w, h] : {std::pair{160, 90}, std::pair{99, 57}}) {
        const auto above = Render(picture, w, h, 30, 95, 100);
        EXPECT_EQ(above, TurnedHalfway(Render(picture, w, h, 210, 85, 100)));
        EXPECT_NE(above, Render(picture, w, h, 210, 85, 100));
        EXPECT_EQ(Render(picture, w, h, -120, -95, 100),
                  TurnedHalfway(Render(picture, w, h, 60, -85, 100)));
        EXPECT_EQ(Render(picture, w, h, 0, 170, 90),
                  TurnedHalfway(Render(picture, w, h, 180, 10, 90)));
    }
}

TEST(ProjectionBehaviourTest, RefusedRequestsKeepTheLastView) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    ViewProjector projector(512, 256);
    projector.SetViewBuffer(nullptr, 100, 60);
    projector.SetView(10, 20, 90);
    for (const double bad : {nan, inf, -inf}) {
        projector.SetView(bad, 0, 100);
        projector.SetView(0, bad, 100);
        projector.SetView(0, 0, bad);
    }
    projector.SetView(50, 30, 20);   // fov below 30
    projector.SetView(50, 30, 170);  // fov above 165
    EXPECT_EQ(projector.pan(), 10);
    EXPECT_EQ(projector.tilt(), 20);
    EXPECT_EQ(projector.fov(), 90);
    // A fresh projector that refuses draws the default view.
    const auto picture = testing::NoisePicture(512, 256, 8);
    EXPECT_EQ(Render(picture, 100, 60, nan, 10, 90), Render(picture, 100, 60, 0, 0, 120));
    EXPECT_EQ(Render(picture, 100, 60, 50, 30, 20), Render(picture, 100, 60, 0, 0, 120));
}

TEST(ProjectionBehaviourTest, EmptyPicturesAndViewsDrawNothing) {
    const auto picture = testing::NoisePicture(64, 32, 11);
    std::vector<uint32_t> view(16, 0x5A5A5A5Au);
    RenderPanoramaView(picture.data(), 64, 32, view.data(), 0, 4, 0, 0, 90);
    RenderPanoramaView(picture.data(), 64, 32, view.data(), 4, 0, 0, 0, 90);
    RenderPanoramaView(picture.data(), 0, 32, view.data(), 4, 4, 0, 0, 90);
    RenderPanoramaView(picture.data(), 64, 0, view.data(), 4, 4, 0, 0, 90);
    RenderPanoramaView(nullptr, 64, 32, view.data(), 4, 4, 0, 0, 90);
    EXPECT_EQ(view, std::vector<uint32_t>(16, 0x5A5A5A5Au));
    // One pixel is a view like any other.
    RenderPanoramaView(picture.data(), 64, 32, view.data(), 1, 1, 0, 0, 90);
    EXPECT_EQ(view[0] >> 24, 0xFFu);
    EXPECT_EQ(view[1], 0x5A5A5A5Au);
}

}  // namespace
}  // namespace vexel
