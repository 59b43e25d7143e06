// Samples through the exported functions: sizes, copies and refused views (null arguments are
// checked for every export by the dlopen host; views as the projection draws them).
#include "samples/inlay_buffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "vexelplayer.h"

namespace {

struct SampleDeleter {
    void operator()(InlayBuffer* sample) const { InlayBuffer_Release(sample); }
};
using SamplePtr = std::unique_ptr<InlayBuffer, SampleDeleter>;

SamplePtr MakeSample(int32_t width, int32_t height) {
    return SamplePtr(InlayBuffer_CreateSample(width, height));
}

// Unusable sizes give an empty sample, and views of unusable size are refused before anything is
// written.
TEST(InlayBufferTest, UnusableSizesGiveAnEmptySampleAndNoView) {
    const int32_t sizes[][2] = {
        {0, 5},
        {4, -1},
        {65536, 65536},  // 16 GiB: width * height * 4 wraps to 0 in 32 bits
        {INT32_MAX, INT32_MAX},
        {16385, 16384},  // just over 1 GiB
    };
    for (const auto& size : sizes) {
        SCOPED_TRACE(testing::Message() << size[0] << " x " << size[1]);
        SamplePtr sample = MakeSample(size[0], size[1]);
        ASSERT_NE(sample, nullptr);
        EXPECT_EQ(InlayBuffer_GetBuffer(sample.get()), nullptr);
        EXPECT_EQ(InlayBuffer_GetWidth(sample.get()), 0u);
        EXPECT_EQ(InlayBuffer_GetHeight(sample.get()), 0u);
        EXPECT_EQ(sample->size, 0u);

        uint8_t destination[4] = {9, 9, 9, 9};
        EXPECT_EQ(InlayBuffer_ReadBuffer(sample.get(), destination), destination);
        InlayBuffer_ExtractView(sample.get(), destination, 1, 1);
        EXPECT_EQ(destination[0], 9);
    }

    SamplePtr panorama = MakeSample(64, 32);
    InlayBuffer_SetView(panorama.get(), 0.0, 0.0, 90.0);
    const std::vector<uint32_t> untouched(16, 0x12345678u);
    std::vector<uint32_t> destination = untouched;
    auto* bytes = reinterpret_cast<uint8_t*>(destination.data());
    InlayBuffer_ExtractView(panorama.get(), bytes, 0, 4);
    InlayBuffer_ExtractView(panorama.get(), bytes, 4, 0);
    InlayBuffer_ExtractView(panorama.get(), bytes, 65536, 65536);  // bytes past 32 bits
    InlayBuffer_ExtractView(panorama.get(), bytes, UINT32_MAX, 1);
    EXPECT_EQ(destination, untouched);
}

TEST(InlayBufferTest, ReadBufferCopiesThePictureAndNoMore) {
    SamplePtr sample = MakeSample(4, 2);
    uint8_t* pixels = InlayBuffer_GetBuffer(sample.get());
    for (int i = 0; i < 32; ++i) pixels[i] = uint8_t(i + 1);

    std::vector<uint8_t> destination(40, 0xEE);
    EXPECT_EQ(InlayBuffer_ReadBuffer(sample.get(), destination.data()), destination.data());
    EXPECT_EQ(std::memcmp(destination.data(), pixels, 32), 0);
    EXPECT_EQ(destination[32], 0xEE) << "copied past the picture's size";
}

}  // namespace
