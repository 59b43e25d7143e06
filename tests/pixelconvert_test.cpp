// libPixelConvert.so through its exports: buffer sizes, YUY2 (BT.709, limited range) to BGRA
// against the matrix formula with padded rows, and refusal of bad records.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "sibling_module.h"

namespace vexel {
namespace {

using testing::ModuleFunction;

// The conversion works with 6-bit coefficients and lands within one level of the exact formula. A
// wrong matrix (BT.601, or a blue coefficient capped at 2.0) is off by 10 to 30 levels on saturated
// colours.
constexpr int kFormulaTolerance = 1;

struct Rgb {
    int r, g, b;
};

// BT.709 limited range, exact, clamped to 0..255.
Rgb Bt709(int y, int cb, int cr) {
    const double l = 1.164383 * (y - 16);
    const auto clamp = [](double v) {
        return static_cast<int>(std::lround(std::clamp(v, 0.0, 255.0)));
    };
    return {clamp(l + 1.792741 * (cr - 128)),
            clamp(l - 0.213249 * (cb - 128) - 0.532909 * (cr - 128)),
            clamp(l + 2.112402 * (cb - 128))};
}

class PixelConvertTest : public ::testing::Test {
protected:
    static PixelBufferDesc Desc(uint32_t format, uint32_t width, uint32_t height, uint32_t stride,
                                uint8_t* data) {
        return {format, 0, width, height, 0, {}, stride, 1, {}, data, {}};
    }

    const char* module = kPixelConvertModule;
    CalculateBufferSizeFn calculateSize =
        ModuleFunction<CalculateBufferSizeFn>(module, kCalculateBufferSizeSymbol);
    ConvertBuffersFn convert = ModuleFunction<ConvertBuffersFn>(module, kConvertBuffersSymbol);
};

TEST_F(PixelConvertTest, BufferSizesFollowFormatAndRefuseBadSizes) {
    PixelBufferDesc desc = Desc(kPixelFormatBgra32, 1920, 960, 0, nullptr);
    EXPECT_EQ(calculateSize(&desc), 1920u * 960 * 4);
    desc.format = kPixelFormatYuy2;
    EXPECT_EQ(calculateSize(&desc), 1920u * 960 * 2);
    desc.width = 5;  // an odd width ends in a half-used pair
    EXPECT_EQ(calculateSize(&desc), 12u * 960);

    EXPECT_EQ(calculateSize(nullptr), 0u);
    for (const auto& [format, width, height] :
         std::vector<std::array<uint32_t, 3>>{{7, 64, 64},
                                              {kPixelFormatBgra32, 0, 64},
                                              {kPixelFormatBgra32, 64, 0},
                                              {kPixelFormatBgra32, kMaxPictureSide + 1, 64},
                                              {kPixelFormatYuy2, 64, 0xFFFFFFFFu}}) {
        desc = Desc(format, width, height, 0, nullptr);
        EXPECT_EQ(calculateSize(&desc), 0u) << format << " " << width << "x" << height;
    }
}

// Every pixel of a varied picture matches the formula: the two lumas of a pair are its own
// (Y0 U Y1 V order), chroma is shared, and a height that is no multiple of the conversion's strip
// of rows is converted to its last row. Odd and even widths both; padded rows on both sides, the
// source's padding never read (it would convert to a bright colour) and the destination's left
// alone.
TEST_F(PixelConvertTest, EveryPixelFollowsTheBt709MatrixAndPaddingIsLeftAlone) {
    for (const uint32_t width : {38u, 17u}) {
        constexpr uint32_t kHeight = 37;
        const uint32_t pairs = (width + 1) / 2, sourceStride = pairs * 4 + 6;
        const uint32_t destinationStride = width * 4 + 8;
        std::vector<uint8_t> yuy2(size_t{sourceStride} * kHeight, 0xEE);
        for (uint32_t row = 0; row < kHeight; ++row) {
            for (uint32_t i = 0; i < pairs * 4; ++i) {
                const size_t at = size_t{row} * sourceStride + i;
                yuy2[at] = static_cast<uint8_t>(16 + (at * 37 + at / 7) % 224);
            }
        }
        std::vector<uint8_t> bgra(size_t{destinationStride} * kHeight, 0x5A);
        PixelBufferDesc source = Desc(kPixelFormatYuy2, width, kHeight, sourceStride, yuy2.data());
        PixelBufferDesc destination =
            Desc(kPixelFormatBgra32, width, kHeight, destinationStride, bgra.data());
        ASSERT_EQ(convert(&source, &destination), S_OK);

        for (uint32_t row = 0; row < kHeight; ++row) {
            for (uint32_t x = 0; x < width; ++x) {
                const uint8_t* pair = &yuy2[row * sourceStride + x / 2 * 4];
                const Rgb e = Bt709(pair[(x % 2) * 2], pair[1], pair[3]);
                const uint8_t* p = &bgra[size_t{row} * destinationStride + x * 4];
                const int error =
                    std::max({std::abs(p[0] - e.b), std::abs(p[1] - e.g), std::abs(p[2] - e.r)});
                ASSERT_TRUE(error <= kFormulaTolerance && p[3] == 255)
                    << width << " wide, pixel " << x << "," << row << ": off by " << error;
            }
            for (uint32_t i = width * 4; i < destinationStride; ++i)
                ASSERT_EQ(bgra[row * destinationStride + i], 0x5A) << "row " << row;
        }
    }
}

TEST_F(PixelConvertTest, BadRecordsAreRefusedAndNothingIsWritten) {
    std::vector<uint8_t> yuy2(64 * 8 * 2, 128);
    std::vector<uint8_t> bgra(64 * 8 * 4, 0x33);
    const PixelBufferDesc goodSource = Desc(kPixelFormatYuy2, 64, 8, 128, yuy2.data());
    const PixelBufferDesc goodDestination = Desc(kPixelFormatBgra32, 64, 8, 256, bgra.data());

    EXPECT_EQ(convert(nullptr, &goodDestination), E_POINTER);
    EXPECT_EQ(convert(&goodSource, nullptr), E_POINTER);
    struct Case {
        const char* what;
        void (*spoil)(PixelBufferDesc& source, PixelBufferDesc& destination);
        int32_t status;
    };
    const std::vector<Case> cases = {
        {"no source picture", [](auto& s, auto&) { s.data = nullptr; }, E_POINTER},
        {"no destination picture", [](auto&, auto& d) { d.data = nullptr; }, E_POINTER},
        {"zero width", [](auto& s, auto& d) { s.width = d.width = 0; }, E_INVALIDARG},
        {"zero height", [](auto& s, auto& d) { s.height = d.height = 0; }, E_INVALIDARG},
        {"absurd height", [](auto& s, auto& d) { s.height = d.height = 0x80000000u; },
         E_INVALIDARG},
        {"sizes differ", [](auto&, auto& d) { d.height = 4; }, E_INVALIDARG},
        {"destination not BGRA", [](auto&, auto& d) { d.format = kPixelFormatYuy2; }, E_INVALIDARG},
        {"unknown source format", [](auto& s, auto&) { s.format = 4; }, E_INVALIDARG},
        {"source stride short", [](auto& s, auto&) { s.stride = 126; }, E_INVALIDARG},
        {"destination stride short", [](auto&, auto& d) { d.stride = 252; }, E_INVALIDARG},
        // The player's stride of width x 2 cannot hold the half pair an odd width ends in.
        {"odd width, player's stride",
         [](auto& s, auto& d) {
             s.width = d.width = 63;
             s.stride = 126;
         },
         E_INVALIDARG},
    };
    for (const Case& c : cases) {
        PixelBufferDesc source = goodSource, destination = goodDestination;
        c.spoil(source, destination);
        EXPECT_EQ(convert(&source, &destination), c.status) << c.what;
        EXPECT_TRUE(std::all_of(bgra.begin(), bgra.end(), [](uint8_t b) { return b == 0x33; }))
            << c.what;
    }
}

}  // namespace
}  // namespace vexel
