// vexel-view's logic without a window: the camera's limits, the time bar, and the spherical
// metadata of generated clips read back and turned into a layout.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "camera.h"
#include "overlay.h"
#include "panorama_layout.h"

namespace view {
namespace {

// (Which way and how far a drag turns the view, and a wheel notch's 5 degrees, are seen in a real
// window by the window tests.)
TEST(ViewCamera, DragsZoomsAndPansStayInRange) {
    const Angles start{10.0, 0.0, 90.0};
    EXPECT_DOUBLE_EQ(Dragged(start, 0, 100000, 640).tilt, 90.0);
    EXPECT_DOUBLE_EQ(Dragged(start, 0, -100000, 640).tilt, -90.0);
    // A long drag keeps going round: no wrap inside a drag.
    EXPECT_DOUBLE_EQ(Dragged(start, -3 * 640, 0, 640).pan, 10.0 + 270.0);
    EXPECT_DOUBLE_EQ(Dragged({0.0, 0.0, 45.0}, 320, 0, 640).pan, -22.5) << "narrower turns less";
    EXPECT_DOUBLE_EQ(Zoomed({0, 0, 40}, 5).fov, kMinFov);
    EXPECT_DOUBLE_EQ(Zoomed({0, 0, 140}, -5).fov, kMaxFov);
    EXPECT_DOUBLE_EQ(WrappedPan(190.0), -170.0);
    EXPECT_DOUBLE_EQ(WrappedPan(-190.0), 170.0);
    EXPECT_DOUBLE_EQ(WrappedPan(720.0 + 45.0), 45.0);
    EXPECT_DOUBLE_EQ(WrappedPan(180.0), -180.0);
    EXPECT_TRUE(SameView({179.999, 0, 90}, {-180.0, 0, 90}));
    EXPECT_FALSE(SameView({10, 0, 90}, {10, 0, 91}));
}

TEST(ViewOverlay, TimeBarMapsColumnsToTimes) {
    const Rect bar = TimeBarRect(640, 360);
    EXPECT_LT(bar.y + bar.h, 360);
    EXPECT_GE(bar.y, 360 - OverlayHeight());
    EXPECT_DOUBLE_EQ(TimeAtColumn(bar, bar.x, 12.0), 0.0);
    EXPECT_DOUBLE_EQ(TimeAtColumn(bar, bar.x + bar.w / 2, 12.0), 6.0);
    EXPECT_DOUBLE_EQ(TimeAtColumn(bar, bar.x + bar.w + 50, 12.0), 12.0);
    EXPECT_DOUBLE_EQ(TimeAtColumn(bar, 0, 12.0), 0.0);

    // Drawn: the played part, the freeze marks and the playhead land where the times say.
    OverlayInfo info;
    info.time = 5.0;
    info.duration = 10.0;
    info.freezes = {{7.5, 1.0}};
    mediakit::Canvas canvas;
    DrawOverlay(info, 640, &canvas);
    ASSERT_EQ(canvas.height, OverlayHeight());
    const Rect drawn = TimeBarRect(640, canvas.height);
    const uint32_t* row = canvas.row(drawn.y + drawn.h - 1);
    EXPECT_NE(row[drawn.x + drawn.w / 4], row[drawn.x + 3 * drawn.w / 5])
        << "played and unplayed look alike";
    EXPECT_NE(row[drawn.x + drawn.w * 78 / 100], row[drawn.x + drawn.w * 9 / 10])
        << "no freeze mark";
}

// The generator's tags survive the round trip through MP4 and Matroska, and choose the layout.
TEST(SphericalMetadata, TagsOfGeneratedClipsChooseTheLayout) {
    const std::string clips = VIEW_TEST_CLIPS;
    struct Case {
        const char* file;
        bool spherical;
        mediakit::Stereo stereo;
        mediakit::EyeRegion leftEye;
    };
    for (const Case& c :
         {Case{"look.mp4", true, mediakit::Stereo::Mono, mediakit::EyeRegion::Whole},
          Case{"stereo-tb.mp4", true, mediakit::Stereo::TopBottom, mediakit::EyeRegion::TopHalf},
          Case{"stereo-sbs.mkv", true, mediakit::Stereo::SideBySide, mediakit::EyeRegion::LeftHalf},
          Case{"plain.mp4", false, mediakit::Stereo::Mono, mediakit::EyeRegion::Whole}}) {
        mediakit::SphericalMetadata m;
        std::string error;
        ASSERT_TRUE(mediakit::ProbeSphericalMetadata(clips + "/" + c.file, &m, &error)) << error;
        EXPECT_EQ(m.spherical, c.spherical) << c.file;
        EXPECT_EQ(m.projection, c.spherical ? "equirectangular" : "") << c.file;
        EXPECT_EQ(m.stereo, c.stereo) << c.file;
        const mediakit::LayoutChoice choice = mediakit::ChooseLayout(m);
        EXPECT_EQ(choice.fisheyeMode, mediakit::kLayoutEquirect) << c.file;
        EXPECT_EQ(choice.leftEye, c.leftEye) << c.file;
        EXPECT_FALSE(choice.description.empty());
    }
    // Swapped eyes put the left one second.
    mediakit::SphericalMetadata swapped;
    swapped.spherical = true;
    swapped.projection = "equirectangular";
    swapped.stereo = mediakit::Stereo::TopBottom;
    swapped.rightEyeFirst = true;
    EXPECT_EQ(mediakit::ChooseLayout(swapped).leftEye, mediakit::EyeRegion::BottomHalf);

    mediakit::SphericalMetadata none;
    std::string error;
    EXPECT_FALSE(mediakit::ProbeSphericalMetadata(clips + "/no-such-clip.mp4", &none, &error));
    EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace view
