// Gesture recordings thinned to keyframes and committed into the real lens module's view path, read
// back through its JSON file; and the keyframe SetView stores at the current position.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engine/render_engine.h"
#include "sibling_module.h"

namespace vexel {
namespace {

using testing::ModuleFunction;

struct Keyframe {
    double time;
    double value;  // pan or fov
};

class GestureRecording : public ::testing::Test {
protected:
    void SetUp() override {
        // Loaded by path first, the lens then finds the module by its name.
        clear_ = ModuleFunction<ClearPanoramaPathFn>(kLensParamsModule, kClearPanoramaPathSymbol);
        save_ = ModuleFunction<PanoramaPathFileFn>(kLensParamsModule, kSavePanoramaPathSymbol);
        ASSERT_TRUE(clear_ && save_);
        clear_();
        lens_ = std::make_unique<PanoramaLens>();
        ASSERT_TRUE(PanoramaLens::Available());
    }
    void TearDown() override {
        if (clear_) clear_();
    }

    std::vector<Keyframe> SavedKeyframes(const char* field) {
        const std::string path = ::testing::TempDir() + "gesture-path.json";
        EXPECT_EQ(save_(path.c_str()), S_OK);
        std::ifstream file(path);
        const nlohmann::json json = nlohmann::json::parse(file);
        std::remove(path.c_str());
        std::vector<Keyframe> keyframes;
        for (const auto& keyframe : json.at("keyframes")) {
            if (keyframe.contains(field))
                keyframes.push_back({keyframe.at("time"), keyframe.at(field)});
        }
        return keyframes;
    }

    ClearPanoramaPathFn clear_ = nullptr;
    PanoramaPathFileFn save_ = nullptr;
    std::unique_ptr<PanoramaLens> lens_;
};

TEST_F(GestureRecording, APanKeepsItsFirstAndLastSampleAndEveryTurningPoint) {
    const double pans[] = {10.0, 20.0, 30.0, 20.0, 10.0};
    for (int i = 0; i < 5; ++i) lens_->RecordPan(i * 0.1, pans[i], i);
    lens_->Commit(PanoramaLens::Gesture::Pan);
    const auto keyframes = SavedKeyframes("pan");
    ASSERT_EQ(keyframes.size(), 3u);
    EXPECT_DOUBLE_EQ(keyframes[0].time, 0.0);
    EXPECT_EQ(keyframes[0].value, 10.0);
    EXPECT_DOUBLE_EQ(keyframes[1].time, 0.2);
    EXPECT_EQ(keyframes[1].value, 30.0);
    EXPECT_DOUBLE_EQ(keyframes[2].time, 0.4);
    EXPECT_EQ(keyframes[2].value, 10.0);
    lens_->Commit(PanoramaLens::Gesture::Pan);  // nothing recorded since: nothing more
    EXPECT_EQ(SavedKeyframes("pan").size(), 3u);
}

TEST_F(GestureRecording, APauseOfEightRepeatsEndsWithAKeyframe) {
    for (int i = 0; i < 9; ++i) lens_->RecordPan(i * 0.1, 5.0, 0.0);
    lens_->RecordPan(0.9, 6.0, 0.0);
    lens_->Commit(PanoramaLens::Gesture::Pan);
    const auto keyframes = SavedKeyframes("pan");
    ASSERT_EQ(keyframes.size(), 3u);
    EXPECT_DOUBLE_EQ(keyframes[0].time, 0.0);  // the first 5
    EXPECT_DOUBLE_EQ(keyframes[1].time, 0.8);  // the ninth 5, where the pause ends
    EXPECT_EQ(keyframes[2].value, 6.0);
}

TEST_F(GestureRecording, AZoomKeepsTheNarrowestFieldBeforeItWidensAgain) {
    const double fovs[] = {90.0, 80.0, 70.0, 80.0};
    for (int i = 0; i < 4; ++i) lens_->RecordZoom(i * 0.1, 0.0, 0.0, fovs[i]);
    lens_->Commit(PanoramaLens::Gesture::Zoom);
    const auto keyframes = SavedKeyframes("fov");
    ASSERT_EQ(keyframes.size(), 3u);
    EXPECT_EQ(keyframes[0].value, 90.0);
    EXPECT_EQ(keyframes[1].value, 70.0);
    EXPECT_EQ(keyframes[2].value, 80.0);
}

TEST_F(GestureRecording, SetViewStoresAKeyframeAtTheCurrentPositionAndRefusesNonNumbers) {
    RenderEngine engine;
    engine.SetTimeRange(0, 100'000'000);
    engine.SetView(40.0, 10.0, 100.0);
    engine.SetView(std::nan(""), 0.0, 90.0);
    const auto keyframes = SavedKeyframes("pan");
    ASSERT_EQ(keyframes.size(), 1u);
    EXPECT_EQ(keyframes[0].time, 0.0);
    EXPECT_EQ(keyframes[0].value, 40.0);
}

}  // namespace
}  // namespace vexel
