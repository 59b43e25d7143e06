// libLensParams.so through its exports: lens calibration kept and refused; the view path's
// interpolation, shorter-arc pan, replacement, holds and empty tracks; saving and loading
// JSON files, corrupt ones refused; concurrent use from several threads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "sibling_module.h"

namespace vexel {
namespace {

using testing::ModuleFunction;

struct Lens {
    const char* m = kLensParamsModule;
    LensGeometryGetFn leftY = ModuleFunction<LensGeometryGetFn>(m, kGetLeftCenterYSymbol);
    LensGeometryGetFn radius = ModuleFunction<LensGeometryGetFn>(m, kGetRadiusSymbol);
    LensGeometrySetFn setLeftY = ModuleFunction<LensGeometrySetFn>(m, kSetLeftCenterYSymbol);
    LensGeometrySetFn setRadius = ModuleFunction<LensGeometrySetFn>(m, kSetRadiusSymbol);
    ResetPanoramaGeometryFn resetGeometry =
        ModuleFunction<ResetPanoramaGeometryFn>(m, kResetPanoramaGeometrySymbol);
    GetPanoramaAngleFn getAngle = ModuleFunction<GetPanoramaAngleFn>(m, kGetPanoramaAngleSymbol);
    GetPanoramaZoomFn getZoom = ModuleFunction<GetPanoramaZoomFn>(m, kGetPanoramaZoomSymbol);
    SetPanoramaAngleFn setAngle = ModuleFunction<SetPanoramaAngleFn>(m, kSetPanoramaAngleSymbol);
    SetPanoramaPanFn setPan = ModuleFunction<SetPanoramaPanFn>(m, kSetPanoramaPanSymbol);
    SetPanoramaZoomFn setZoom = ModuleFunction<SetPanoramaZoomFn>(m, kSetPanoramaZoomSymbol);
    ClearPanoramaPathFn clear = ModuleFunction<ClearPanoramaPathFn>(m, kClearPanoramaPathSymbol);
    PanoramaPathFileFn save = ModuleFunction<PanoramaPathFileFn>(m, kSavePanoramaPathSymbol);
    PanoramaPathFileFn load = ModuleFunction<PanoramaPathFileFn>(m, kLoadPanoramaPathSymbol);
};

struct View {
    double pan = -999, tilt = -999, fov = -999;  // untouched marks
    bool operator==(const View&) const = default;
};
std::ostream& operator<<(std::ostream& out, const View& v) {
    return out << v.pan << ", " << v.tilt << ", " << v.fov;
}

class LensParamsTest : public ::testing::Test {
protected:
    void SetUp() override { TearDown(); }
    void TearDown() override {
        lens.clear();
        lens.resetGeometry();
    }

    View At(double time) {
        View v;
        lens.getAngle(time, &v.pan, &v.tilt, &v.fov);
        return v;
    }
    double PanAt(double time) { return At(time).pan; }

    std::string TempPath(const char* name) {
        return ::testing::TempDir() + "vexel_path_" + std::to_string(getpid()) + "_" + name;
    }

    Lens lens;
};

TEST_F(LensParamsTest, CalibrationIsKeptUntilResetAndBadValuesAreRefused) {
    double value = 0;
    EXPECT_EQ(lens.setLeftY(0.5), S_OK);  // a single centred circle
    EXPECT_EQ(lens.setRadius(0.45), S_OK);
    for (const double bad : {double{NAN}, double{INFINITY}, 1e9, -1e9})
        EXPECT_EQ(lens.setLeftY(bad), E_INVALIDARG) << bad;
    for (const double bad : {0.0, -0.5, double{NAN}})
        EXPECT_EQ(lens.setRadius(bad), E_INVALIDARG) << bad;
    lens.leftY(0.0, &value);
    EXPECT_EQ(value, 0.5);
    lens.radius(0.0, &value);
    EXPECT_EQ(value, 0.45);
    EXPECT_EQ(lens.radius(0.0, nullptr), E_POINTER);

    lens.resetGeometry();
    lens.leftY(0.0, &value);
    EXPECT_EQ(value, 0.25);
}

// Pan keyframes and field-of-view keyframes are separate tracks: a pan gesture's keyframes do not
// pin the field of view, and a path of one kind leaves the other's outputs untouched.
TEST_F(LensParamsTest, DirectionAndFieldOfViewAreSeparateTracks) {
    View v;
    EXPECT_EQ(lens.getAngle(3.0, &v.pan, &v.tilt, &v.fov), S_FALSE);  // empty: all untouched
    EXPECT_EQ(v, View{});
    lens.setPan(0.0, 10, 5);
    EXPECT_EQ(At(1.0), (View{10, 5, -999}));

    lens.setZoom(2.0, 70);
    lens.setAngle(4.0, 30, 0, 90);
    v = At(2.0);
    EXPECT_EQ(v.fov, 70);
    EXPECT_GT(v.pan, 10);  // on its way from the pan keyframe at 0 to the one at 4
    EXPECT_LT(v.pan, 30);
    double fov = 0;
    EXPECT_EQ(lens.getZoom(4.0, &fov), S_OK);
    EXPECT_EQ(fov, 90);

    // A keyframe at an existing time replaces it; a pan keyframe there replaces the direction only.
    lens.setAngle(4.0, 50, -20, 40);
    EXPECT_EQ(At(4.0), (View{50, -20, 40}));
    lens.setPan(4.0, 60, 0);
    EXPECT_EQ(At(4.0).fov, 40);
}

// Through several keyframes the curve keeps going where the keyframes go (no overshoot past a
// keyframe, a turn exactly at a reversal) and has no kink at a keyframe it passes through.
TEST_F(LensParamsTest, InterpolationIsMonotoneAndSmoothThroughKeyframes) {
    lens.setPan(0.0, 0, 0);
    lens.setPan(1.0, 10, 0);
    lens.setPan(2.0, 100, 0);
    lens.setPan(3.0, 40, 0);
    for (double t = 0.0; t <= 2.0; t += 0.01) {
        EXPECT_GE(PanAt(t + 0.01), PanAt(t) - 1e-12) << t;
        EXPECT_LE(PanAt(t), 100 + 1e-12) << t;
    }
    for (double t = 2.0; t <= 3.0; t += 0.01) EXPECT_GE(PanAt(t), 40 - 1e-12) << t;
    EXPECT_EQ(PanAt(1.0), 10);
    EXPECT_EQ(PanAt(2.0), 100);  // the reversal is the extreme
    EXPECT_EQ(PanAt(-5.0), 0);   // held before the first and after the last
    EXPECT_EQ(PanAt(100.0), 40);

    constexpr double h = 1e-6;
    const double slopeBefore = (PanAt(1.0) - PanAt(1.0 - h)) / h,
                 slopeAfter = (PanAt(1.0 + h) - PanAt(1.0)) / h;
    EXPECT_GT(slopeBefore, 0);
    EXPECT_NEAR(slopeBefore, slopeAfter, 1e-3 * slopeAfter);
}

double Wrapped(double angle) { return angle - 360.0 * std::floor((angle + 180.0) / 360.0); }

TEST_F(LensParamsTest, PanTakesTheShorterWayAcross180) {
    struct Case {
        double from, to, middle;
    };
    for (const Case c :
         {Case{170, -170, 180}, Case{-170, 170, 180}, Case{10, 350, 0}, Case{-90, 100, -175}}) {
        lens.clear();
        lens.setPan(0.0, c.from, 0);
        lens.setPan(1.0, c.to, 0);
        EXPECT_NEAR(Wrapped(PanAt(0.5) - c.middle), 0, 1e-9) << c.from << " to " << c.to;
        const double arc = std::abs(Wrapped(c.to - c.from));
        for (double t = 0; t <= 1.0; t += 0.1) {  // never leaves the short arc
            EXPECT_LE(std::abs(Wrapped(PanAt(t) - c.from)), arc + 1e-9) << t;
            EXPECT_LE(std::abs(Wrapped(PanAt(t) - c.to)), arc + 1e-9) << t;
        }
        EXPECT_EQ(PanAt(1.0), c.to);  // a keyframe's own value, as stored
    }
}

// A saved path loads back exactly, replacing what was there; a corrupt, missing or unreadable file
// is refused and leaves the loaded path as it was.
TEST_F(LensParamsTest, SaveAndLoadRoundTripExactlyAndBadFilesAreRefused) {
    lens.setAngle(0.0, 10, -5, 90);
    lens.setPan(1.0 / 3, 170.125, 1e-9);
    lens.setZoom(0.7, 61.5);
    lens.setAngle(2.5, -179.999, 45, 30);
    std::vector<View> before;
    for (double t = -1; t < 4; t += 0.05) before.push_back(At(t));
    const auto expectAsBefore = [&](const std::string& what) {
        size_t i = 0;
        for (double t = -1; t < 4; t += 0.05, ++i)
            EXPECT_EQ(At(t), before[i]) << what << ", at " << t;
    };

    const std::string path = TempPath("round_trip.json");
    ASSERT_EQ(lens.save(path.c_str()), S_OK);
    lens.clear();
    lens.setAngle(9.0, 1, 1, 1);  // replaced by the load
    ASSERT_EQ(lens.load(path.c_str()), S_OK);
    expectAsBefore("loaded");

    const std::string head = R"({"format": "vexel-view-path", "version": 1, "keyframes": )";
    const std::vector<std::string> corrupt = {
        "",
        head + R"([{"time": 0, "pan": 1, "tilt": 2})",  // truncated
        R"({"format": "other", "version": 1, "keyframes": []})",
        R"({"format": "vexel-view-path", "version": 2, "keyframes": []})",
        head + "{}}",
        head + "[5]}",
        head + R"([{"pan": 1, "tilt": 2}]})",
        head + R"([{"time": 0, "pan": 1}]})",
        head + R"([{"time": "0", "fov": 50}]})",
        head + R"([{"time": 1e999, "fov": 50}]})",
        head + R"([{"time": 1, "fov": 50}, {"time": 1, "pan": 0, "tilt": 0}]})",
        head + R"([{"time": 2, "fov": 50}, {"time": 1, "fov": 60}]})",
        std::string(100000, '[') + std::string(100000, ']'),
    };
    for (const std::string& text : corrupt) {
        std::ofstream(path) << text;
        EXPECT_EQ(lens.load(path.c_str()), E_INVALID_DATA) << text.substr(0, 120);
    }
    EXPECT_EQ(lens.load(TempPath("missing.json").c_str()), E_FAIL);
    EXPECT_EQ(lens.load(::testing::TempDir().c_str()), E_FAIL);  // a directory
    EXPECT_EQ(lens.save("/nonexistent-folder/path.json"), E_FAIL);
    EXPECT_EQ(lens.load(nullptr), E_POINTER);
    EXPECT_EQ(lens.setAngle(NAN, 0, 0, 90), E_INVALIDARG);
    expectAsBefore("after the refusals");

    std::ofstream(path) << head + "[]}";  // an empty path is a valid file
    EXPECT_EQ(lens.load(path.c_str()), S_OK);
    EXPECT_EQ(At(1.0).pan, -999);
    std::remove(path.c_str());
}

// The delivery thread reads geometry, the render thread reads the path, host threads write
// keyframes and calibrate, all at once. Every read sees a whole keyframe's worth of values.
TEST_F(LensParamsTest, ConcurrentReadersAndWriters) {
    std::atomic<bool> stop{false};
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int i = 0; i < 2000; ++i) lens.setAngle(i * 0.01, 20, 20, 20);
        stop = true;
    });
    threads.emplace_back([&] {
        for (int i = 0; !stop; ++i) lens.setRadius(i % 2 ? 0.5 : 0.4);
    });
    threads.emplace_back([&] {
        while (!stop) {
            View v = At(5.0);
            if ((v.pan != -999 && v.pan != 20) || (v.fov != -999 && v.fov != 20)) ++bad;
            double r = 0;
            lens.radius(0.0, &r);
            if (r != 0.5 && r != 0.4) ++bad;
        }
    });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(bad.load(), 0);
}

}  // namespace
}  // namespace vexel
