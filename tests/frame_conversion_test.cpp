// Delivered pictures through the engine's conversion path: YUY2 through the colour module, and
// fisheye unwrapping with the lens module's geometry. (Row reversal shows in every player test.)
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "engine/render_engine.h"
#include "sibling_module.h"

namespace vexel {
namespace {

InlayBuffer* FirstPresented(RenderEngine& engine) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        ReleaseInlayBuffer(engine.TakeCurrentViewSample());
        if (InlayBuffer* pre = engine.TakeCurrentPreSample()) return pre;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return nullptr;
}

void Configure(RenderEngine& engine, uint32_t width, uint32_t height, uint32_t format,
               uint32_t lensMode) {
    MediaFormatPayload payload{};
    payload.video.width = width;
    payload.video.height = height;
    payload.video.pixelFormat = format;
    engine.SetVideoFormat(payload);
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
    InlayBuffer* pre = FirstPresented(engine);
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
    InlayBuffer* pre = FirstPresented(engine);
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
