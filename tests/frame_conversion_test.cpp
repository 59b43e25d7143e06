// Delivered pictures through the engine's conversion path: YUY2 through the colour module, and
// fisheye unwrapping with the lens module's geometry. (Row reversal shows in every player test.)
#include <gtest/gtest.h>

#include <vector>

#include "engine_test_support.h"
#include "sibling_module.h"

namespace vexel {
namespace {

// The pixels of the first panorama an engine presents of `picture`, delivered in `format` and
// unwrapped by `lensMode`; none when nothing came.
std::vector<uint32_t> Present(uint32_t width, uint32_t height, uint32_t format, uint32_t lensMode,
                              const void* picture, uint32_t size) {
    RenderEngine engine;
    engine.SetVideoFormat(testing::PictureFormat(width, height, format));
    engine.SetFisheyeMode(lensMode);
    engine.Start(Ticks(0));
    EXPECT_EQ(engine.OnVideoSample(static_cast<const uint8_t*>(picture), size, 0, 1), 0);
    std::vector<uint32_t> pixels;
    if (InlayBuffer* pre = testing::AwaitPreSample(engine)) {
        const auto* first = reinterpret_cast<const uint32_t*>(pre->pixels);
        pixels.assign(first, first + pre->size / 4);
        ReleaseInlayBuffer(pre);
    }
    engine.Stop();
    return pixels;
}

TEST(EngineConversion, Yuy2PicturesArriveAs32BitTopRowFirst) {
    testing::LoadConversionModule(kPixelConvertModule);  // found by name from now on
    // Top row white (Y 235), bottom row black (Y 16), chroma neutral.
    const uint8_t yuy2[] = {235, 128, 235, 128, 235, 128, 235, 128,
                            16,  128, 16,  128, 16,  128, 16,  128};
    const std::vector<uint32_t> pixels = Present(4, 2, kPixelFormatYuy2, 1, yuy2, sizeof yuy2);
    ASSERT_EQ(pixels.size(), 8u);
    EXPECT_EQ(pixels[0], 0xFFFFFFFFu);
    EXPECT_EQ(pixels[7], 0xFF000000u);
}

TEST(EngineConversion, DualFisheyePicturesAreUnwrappedAtTheirOwnSize) {
    testing::LoadConversionModule(kSphereUnwrapModule);
    testing::LoadConversionModule(kLensParamsModule);
    const std::vector<uint32_t> grey(64 * 32, 0xFF808080u);
    const std::vector<uint32_t> pixels =
        Present(64, 32, kPixelFormatBgra32, 3, grey.data(), 64 * 32 * 4);
    ASSERT_EQ(pixels.size(), 64u * 32);
    // Both lenses see a uniform grey scene: the middle of the panorama is that grey.
    EXPECT_EQ(pixels[16 * 64 + 32] & 0xFFFFFFu, 0x808080u);
}

}  // namespace
}  // namespace vexel
