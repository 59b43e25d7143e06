// Delivered pictures through the engine's conversion path: YUY2 through the colour module, and
// fisheye unwrapping with the lens module's geometry. (Row reversal shows in every player test.)
#include <gtest/gtest.h>

#include <vector>

#include "engine_test_support.h"
#include "sibling_module.h"

namespace vexel {
namespace {

using testing::AwaitPreSample;

void Configure(RenderEngine& engine, uint32_t width, uint32_t height, uint32_t format,
               uint32_t lensMode) {
    engine.SetVideoFormat(testing::PictureFormat(width, height, format));
    engine.SetFisheyeMode(lensMode);
    engine.Start(Ticks(0));
}

TEST(EngineConversion, Yuy2PicturesArriveAs32BitTopRowFirst) {
    testing::LoadConversionModule(kPixelConvertModule);  // found by name from now on
    RenderEngine engine;
    Configure(engine, 4, 2, kPixelFormatYuy2, 1);
    // Top row white (Y 235), bottom row black (Y 16), chroma neutral.
    const uint8_t yuy2[] = {235, 128, 235, 128, 235, 128, 235, 128,
                            16,  128, 16,  128, 16,  128, 16,  128};
    ASSERT_EQ(engine.OnVideoSample(yuy2, sizeof(yuy2), 0, 1), 0);
    InlayBuffer* pre = AwaitPreSample(engine);
    ASSERT_NE(pre, nullptr);
    ASSERT_EQ(pre->width, 4u);
    const auto* pixels = reinterpret_cast<const uint32_t*>(pre->pixels);
    EXPECT_EQ(pixels[0], 0xFFFFFFFFu);
    EXPECT_EQ(pixels[7], 0xFF000000u);
    ReleaseInlayBuffer(pre);
    engine.Stop();
}

TEST(EngineConversion, DualFisheyePicturesAreUnwrappedAtTheirOwnSize) {
    testing::LoadConversionModule(kSphereUnwrapModule);
    testing::LoadConversionModule(kLensParamsModule);
    RenderEngine engine;
    Configure(engine, 64, 32, kPixelFormatBgra32, 3);
    std::vector<uint32_t> picture(64 * 32, 0xFF808080u);
    ASSERT_EQ(
        engine.OnVideoSample(reinterpret_cast<const uint8_t*>(picture.data()), 64 * 32 * 4, 0, 1),
        0);
    InlayBuffer* pre = AwaitPreSample(engine);
    ASSERT_NE(pre, nullptr);
    EXPECT_EQ(pre->width, 64u);
    EXPECT_EQ(pre->height, 32u);
    EXPECT_EQ(pre->size, 64u * 32 * 4);
    // Both lenses see a uniform grey scene: the middle of the panorama is that grey.
    EXPECT_EQ(reinterpret_cast<const uint32_t*>(pre->pixels)[16 * 64 + 32] & 0xFFFFFFu, 0x808080u);
    ReleaseInlayBuffer(pre);
    engine.Stop();
}

}  // namespace
}  // namespace vexel
