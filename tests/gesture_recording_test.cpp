// Gesture recordings thinned to keyframes and committed into the real lens module's view path, read
// back through its JSON file. (The keyframes SetView stores show in the engine's view-change test.)
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engine/panorama_lens.h"
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

// Samples 0.1 s apart, thinned to the keyframes that keep their shape.
TEST_F(GestureRecording, RecordingsKeepTheirEndsTurningPointsAndPauses) {
    using Gesture = PanoramaLens::Gesture;
    const struct {
        Gesture gesture;
        std::vector<double> values;  // pan or fov
        std::vector<Keyframe> kept;
    } cases[] = {
        // A pan keeps its first and last sample and every turning point.
        {Gesture::Pan, {10, 20, 30, 20, 10}, {{0.0, 10}, {0.2, 30}, {0.4, 10}}},
        // A pause of eight repeats ends with a keyframe.
        {Gesture::Pan, {5, 5, 5, 5, 5, 5, 5, 5, 5, 6}, {{0.0, 5}, {0.8, 5}, {0.9, 6}}},
        // A zoom keeps the narrowest field before it widens again.
        {Gesture::Zoom, {90, 80, 70, 80}, {{0.0, 90}, {0.2, 70}, {0.3, 80}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << &c - cases);
        clear_();
        for (size_t i = 0; i < c.values.size(); ++i) {
            if (c.gesture == Gesture::Pan) {
                lens_->RecordPan(i * 0.1, c.values[i], 0.0);
            } else {
                lens_->RecordZoom(i * 0.1, 0.0, 0.0, c.values[i]);
            }
        }
        lens_->Commit(c.gesture);
        lens_->Commit(c.gesture);  // nothing recorded since: nothing more
        const auto kept = SavedKeyframes(c.gesture == Gesture::Pan ? "pan" : "fov");
        ASSERT_EQ(kept.size(), c.kept.size());
        for (size_t i = 0; i < kept.size(); ++i) {
            EXPECT_NEAR(kept[i].time, c.kept[i].time, 1e-9) << i;
            EXPECT_EQ(kept[i].value, c.kept[i].value) << i;
        }
    }
}

}  // namespace
}  // namespace vexel
