// Pan and zoom gestures on a running engine, recorded frame by frame and committed as keyframes
// into the real lens module's view path, which is read back through its JSON file.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "engine/render_engine.h"
#include "sibling_module.h"

namespace vexel {
namespace {

using testing::ModuleFunction;
constexpr int64_t kTicksPerMs = 10000;

struct Keyframe {
    double time;
    double value;  // pan or fov
};

class GestureRecording : public ::testing::Test {
protected:
    void SetUp() override {
        // Loaded by path first, the engine then finds the module by its name.
        clear_ = ModuleFunction<ClearPanoramaPathFn>(kLensParamsModule, kClearPanoramaPathSymbol);
        save_ = ModuleFunction<PanoramaPathFileFn>(kLensParamsModule, kSavePanoramaPathSymbol);
        ASSERT_TRUE(clear_ && save_);
        clear_();
        engine_ = std::make_unique<RenderEngine>();
        ASSERT_TRUE(PanoramaLens::Available());
        MediaFormatPayload format{};
        format.video.width = 16;
        format.video.height = 8;
        format.video.pixelFormat = 11;
        engine_->SetVideoFormat(format);
        engine_->SetTimeRange(0, 100'000'000);
        engine_->SetViewDim(8, 4);
    }
    void TearDown() override {
        if (engine_) engine_->Stop();
        clear_();
    }

    // Delivers `count` frames 100 ms apart and returns the pan and fov each was shown with.
    std::vector<std::pair<double, double>> PlayFrames(int count) {
        engine_->Start(0);
        std::vector<uint32_t> picture(16 * 8, 0);
        std::vector<std::pair<double, double>> shown;
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(engine_->OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()), 16 * 8 * 4,
                                             i * 100 * kTicksPerMs, (i + 1) * 100 * kTicksPerMs),
                      0);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (static_cast<int>(shown.size()) < count && std::chrono::steady_clock::now() < deadline) {
            InlayBuffer* view = engine_->TakeCurrentViewSample();
            ReleaseInlayBuffer(engine_->TakeCurrentPreSample());
            if (view != nullptr) shown.emplace_back(view->pan, view->fov);
            ReleaseInlayBuffer(view);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return shown;
    }

    std::vector<Keyframe> SavedKeyframes(const char* field) {
        const std::string path = ::testing::TempDir() + "gesture-path.json";
        EXPECT_EQ(save_(path.c_str()), S_OK);
        std::ifstream file(path);
        const nlohmann::json json = nlohmann::json::parse(file);
        std::remove(path.c_str());
        std::vector<Keyframe> keyframes;
        for (const auto& keyframe : json.at("keyframes")) {
            if (keyframe.contains(field)) keyframes.push_back({keyframe.at("time"), keyframe.at(field)});
        }
        return keyframes;
    }

    ClearPanoramaPathFn clear_ = nullptr;
    PanoramaPathFileFn save_ = nullptr;
    std::unique_ptr<RenderEngine> engine_;
};

TEST_F(GestureRecording, PanGestureAppliesOneValuePerFrameAndKeepsTheTurningPoints) {
    engine_->StartPan();
    for (double pan : {10.0, 20.0, 30.0, 20.0, 10.0}) engine_->AddPan(pan, 5.0);
    const auto shown = PlayFrames(5);
    ASSERT_EQ(shown.size(), 5u);
    EXPECT_EQ(shown[0].first, 10.0);
    EXPECT_EQ(shown[2].first, 30.0);
    EXPECT_EQ(shown[4].first, 10.0);
    engine_->EndPan();
    const auto keyframes = SavedKeyframes("pan");
    ASSERT_EQ(keyframes.size(), 3u);
    EXPECT_DOUBLE_EQ(keyframes[0].time, 0.0);
    EXPECT_EQ(keyframes[0].value, 10.0);
    EXPECT_DOUBLE_EQ(keyframes[1].time, 0.2);
    EXPECT_EQ(keyframes[1].value, 30.0);
    EXPECT_DOUBLE_EQ(keyframes[2].time, 0.4);
    EXPECT_EQ(keyframes[2].value, 10.0);
}

TEST_F(GestureRecording, APauseOfEightRepeatsEndsWithAKeyframe) {
    engine_->StartPan();
    for (int i = 0; i < 9; ++i) engine_->AddPan(5.0, 0.0);
    engine_->AddPan(6.0, 0.0);
    ASSERT_EQ(PlayFrames(10).size(), 10u);
    engine_->EndPan();
    const auto keyframes = SavedKeyframes("pan");
    ASSERT_EQ(keyframes.size(), 3u);
    EXPECT_DOUBLE_EQ(keyframes[0].time, 0.0);  // the first 5
    EXPECT_DOUBLE_EQ(keyframes[1].time, 0.8);  // the ninth 5, where the pause ends
    EXPECT_EQ(keyframes[2].value, 6.0);
}

TEST_F(GestureRecording, ZoomGestureKeepsTheNarrowestFieldBeforeItWidensAgain) {
    engine_->StartZoom();
    for (double fov : {90.0, 80.0, 70.0, 80.0}) engine_->AddZoom(fov);
    const auto shown = PlayFrames(4);
    ASSERT_EQ(shown.size(), 4u);
    EXPECT_EQ(shown[2].second, 70.0);
    engine_->EndZoom();
    const auto keyframes = SavedKeyframes("fov");
    ASSERT_EQ(keyframes.size(), 3u);
    EXPECT_EQ(keyframes[0].value, 90.0);
    EXPECT_EQ(keyframes[1].value, 70.0);
    EXPECT_EQ(keyframes[2].value, 80.0);
}

TEST_F(GestureRecording, OutsideAGestureFramesFollowThePathAndSetViewStoresAKeyframe) {
    engine_->SetView(40.0, 10.0, 100.0);  // stored at the current position, time 0
    const auto shown = PlayFrames(2);
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[1].first, 40.0);
    EXPECT_EQ(shown[1].second, 100.0);
    const auto keyframes = SavedKeyframes("pan");
    ASSERT_EQ(keyframes.size(), 1u);
    EXPECT_EQ(keyframes[0].time, 0.0);
    // Values that are not numbers are refused and change nothing.
    engine_->SetView(std::nan(""), 0.0, 90.0);
    EXPECT_EQ(SavedKeyframes("pan").size(), 1u);
}

}  // namespace
}  // namespace vexel
