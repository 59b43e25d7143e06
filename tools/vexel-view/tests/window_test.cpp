// vexel-view in a real window: each test starts its own virtual X server, runs the viewer on a
// generated clip, moves the mouse and presses keys with xdotool, and checks the screenshot the
// viewer writes against views the player renders of the same frame (InlayBuffer_ExtractView).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "overlay.h"
#include "png_reader.h"
#include "window_harness.h"

namespace viewtest {
namespace {

namespace fs = std::filesystem;
constexpr Seconds kLimit{90};  // generous: sanitizer builds on a busy machine are slow
constexpr int kWidth = 320, kHeight = 180;
constexpr double kFrame = 1.0 / 30;

class ViewerWindow : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // No sound card: SDL's dummy audio driver; the software renderer, which every machine has;
        // no session bus, which libdbus would otherwise try to start for SDL once DISPLAY is set.
        setenv("SDL_AUDIODRIVER", "dummy", 1);
        setenv("SDL_RENDER_DRIVER", "software", 1);
        setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
#ifdef VIEWER_ASAN_OPTIONS
        setenv("ASAN_OPTIONS", VIEWER_ASAN_OPTIONS, 1);  // read by the viewer when it starts
#endif
    }

    void SetUp() override {
        ASSERT_TRUE(display_.ready()) << "Xvfb did not start";
        const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        scratch_ = fs::path(VIEW_TEST_SCRATCH) / name;
        fs::remove_all(scratch_);
        fs::create_directories(scratch_);
        // Each test has its own copy, so a saved view path lands in its own folder.
        clip_ = (scratch_ / "clip.mp4").string();
        fs::copy_file(fs::path(VIEW_TEST_CLIPS) / "look.mp4", clip_);
        shotFile_ = (scratch_ / "shot.png").string();
    }

    // Starts the viewer and waits for its first picture; the window's id goes to *window.
    std::unique_ptr<Child> Start(const std::vector<std::string>& options, const std::string& clip,
                                 std::string* window, int width = kWidth, int height = kHeight) {
        std::vector<std::string> args{
            VIEWER,         "--size", std::to_string(width) + "x" + std::to_string(height),
            "--quit-after", "120",    "--screenshot",
            shotFile_};
        args.insert(args.end(), options.begin(), options.end());
        args.push_back(clip);
        auto viewer = std::make_unique<Child>(args);
        if (!viewer->WaitForLine("vexel-view: first picture shown", kLimit, nullptr)) {
            ADD_FAILURE() << "no picture; the viewer said:\n" << viewer->output();
            return viewer;
        }
        std::string found;
        EXPECT_TRUE(Xdotool({"search", "--sync", "--name", "^vexel-view"}, &found));
        *window = found.substr(0, found.find('\n'));
        return viewer;
    }

    // A left-button drag by (dx, dy) pixels, in small steps of real pointer motion.
    static void Drag(const std::string& window, int dx, int dy) {
        constexpr int kSteps = 16;
        ASSERT_TRUE(Xdotool({"mousemove", "--window", window, "100", "60"}));
        ASSERT_TRUE(Xdotool({"mousedown", "1"}));
        for (int i = 0; i < kSteps; ++i) {
            ASSERT_TRUE(Xdotool({"mousemove_relative", "--", std::to_string(dx / kSteps),
                                 std::to_string(dy / kSteps)}));
        }
        ASSERT_TRUE(Xdotool({"mouseup", "1"}));
    }

    static void Key(const std::string& window, const std::string& key) {
        ASSERT_TRUE(Xdotool({"key", "--window", window, key}));
    }

    // Ends the viewer with Escape and reads its screenshot.
    Shot Finish(Child& viewer, const std::string& window, mediakit::Canvas* picture) {
        Key(window, "Escape");
        std::string line;
        Shot shot;
        EXPECT_TRUE(viewer.WaitForLine("vexel-view: screenshot", kLimit, &line)) << viewer.output();
        EXPECT_TRUE(ParseShot(line, &shot)) << line;
        EXPECT_EQ(viewer.Wait(kLimit), 0) << viewer.output();
        std::string error;
        EXPECT_TRUE(mediakit::ReadPng(shotFile_, picture, &error)) << error;
        EXPECT_EQ(picture->width, shot.width);
        EXPECT_EQ(picture->height, shot.height);
        return shot;
    }

    // The screenshot (its top `rows` rows) is the player's view of its frame at the reported
    // direction, which is the one expected.
    static void ExpectView(const Panorama& panorama, const mediakit::Canvas& picture,
                           const Shot& shot, double expectedPan, int rows = 0) {
        ASSERT_TRUE(panorama.ok());
        const mediakit::Canvas expected =
            panorama.View(shot.pan, shot.tilt, shot.fov, picture.width, picture.height);
        EXPECT_LT(MeanDifference(expected, picture, rows), 2.0)
            << "not the player's view of the frame";
        EXPECT_NEAR(shot.pan, expectedPan, 1.0);
    }

    VirtualDisplay display_;
    fs::path scratch_;
    std::string clip_;
    std::string shotFile_;
};

// Half a window width of drag to the right, while playing: the picture follows the pointer, so
// the view turns left by half the field of view; the gesture goes into the view path, which S saves
// and a later run follows. (Its screenshot, with the overlay, is the one the README shows.)
TEST_F(ViewerWindow, DragWhilePlayingTurnsTheViewAndIsRecordedInThePath) {
    constexpr int kWide = 640;
    std::string window;
    auto viewer = Start({"--view", "0,0,90"}, clip_, &window, kWide, 360);
    ASSERT_FALSE(window.empty());
    Drag(window, kWide / 2, 64);
    Key(window, "s");
    EXPECT_TRUE(viewer->WaitForLine("vexel-view: saved", kLimit, nullptr)) << viewer->output();
    mediakit::Canvas picture;
    const Shot shot = Finish(*viewer, window, &picture);
    // The overlay covers the bottom of the window; the view is compared above it.
    ExpectView(Panorama(clip_, shot.seconds), picture, shot, -45.0,
               picture.height - view::OverlayHeight());
    EXPECT_NEAR(shot.tilt, 64 * 90.0 / kWide, 0.5) << "dragging down looks up";
    fs::copy_file(shotFile_, fs::path(VIEW_TEST_SCRATCH) / "vexel-view.png",
                  fs::copy_options::overwrite_existing);

    // A new run follows the saved path: near the end of the clip the view is where the drag ended.
    auto follower =
        Start({"--paused", "--no-overlay", "--path", clip_ + ".view.json"}, clip_, &window);
    ASSERT_FALSE(window.empty());
    Key(window, "Right");
    Key(window, "Right");
    EXPECT_TRUE(follower->WaitForLine("vexel-view: still picture at 9.9", kLimit, nullptr))
        << follower->output();
    mediakit::Canvas replayed;
    const Shot again = Finish(*follower, window, &replayed);
    ExpectView(Panorama(clip_, again.seconds), replayed, again, -45.0);
    EXPECT_NEAR(again.tilt, shot.tilt, 0.5);
}

// Paused, the view follows the mouse at once (rendered from the last panorama picture); Home and
// two frame steps show the third frame with the view the user chose.
TEST_F(ViewerWindow, PausedDragAndFrameStepsShowTheChosenView) {
    std::string window;
    auto viewer = Start({"--no-overlay"}, clip_, &window);
    ASSERT_FALSE(window.empty());
    Key(window, "space");
    Drag(window, kWidth / 4, 0);
    Key(window, "Home");
    EXPECT_TRUE(viewer->WaitForLine("vexel-view: still picture at 0.0000", kLimit, nullptr))
        << viewer->output();
    Key(window, "period");
    Key(window, "period");
    EXPECT_TRUE(viewer->WaitForLine("vexel-view: still picture at 0.0667", kLimit, nullptr))
        << viewer->output();
    mediakit::Canvas picture;
    const Shot shot = Finish(*viewer, window, &picture);
    EXPECT_NEAR(shot.seconds, 2 * kFrame, 1e-3);
    ExpectView(Panorama(clip_, shot.seconds), picture, shot, -22.5);
}

// A resized window gets views rendered at its new size, not a stretched picture; four wheel
// notches narrow the field of view by 20 degrees, through the zoom gesture.
TEST_F(ViewerWindow, ResizeSetsTheViewSizeAndTheWheelZooms) {
    std::string window;
    auto viewer = Start({"--no-overlay", "--view", "30,0,90"}, clip_, &window);
    ASSERT_FALSE(window.empty());
    ASSERT_TRUE(Xdotool({"windowsize", window, "480", "240"}));
    ASSERT_TRUE(Xdotool({"mousemove", "--window", window, "160", "90"}));
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(Xdotool({"click", "4"}));
    mediakit::Canvas picture;
    const Shot shot = Finish(*viewer, window, &picture);
    EXPECT_EQ(shot.width, 480);
    EXPECT_EQ(shot.height, 240);
    EXPECT_NEAR(shot.fov, 70.0, 0.01);
    const Panorama panorama(clip_, shot.seconds);
    ExpectView(panorama, picture, shot, 30.0);
    EXPECT_GT(MeanDifference(panorama.View(shot.pan, shot.tilt, 90.0, 480, 240), picture), 5.0);
}

// A top-bottom stereo clip shows its left eye (the upper half; the lower one is in inverted
// colours), and the metadata chose the layout.
TEST_F(ViewerWindow, StereoShowsTheLeftEye) {
    const std::string stereo = (fs::path(VIEW_TEST_CLIPS) / "stereo-tb.mp4").string();
    std::string window;
    auto viewer = Start({"--no-overlay", "--paused"}, stereo, &window);
    ASSERT_FALSE(window.empty());
    EXPECT_NE(viewer->output().find("stereo top-bottom"), std::string::npos) << viewer->output();
    mediakit::Canvas picture;
    const Shot shot = Finish(*viewer, window, &picture);
    ExpectView(Panorama(stereo, shot.seconds, true), picture, shot, 0.0);
    const Panorama whole(stereo, shot.seconds);
    EXPECT_GT(MeanDifference(whole.View(shot.pan, shot.tilt, shot.fov, kWidth, kHeight), picture),
              20.0);
}

}  // namespace
}  // namespace viewtest
