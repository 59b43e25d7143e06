// libSphereUnwrap.so: fisheye pictures rendered from a known scene with the lens model, unwrapped,
// and compared with the scene; the seam blend; refusal of bad records; the mapping cache under
// concurrent use; and the SSE4.1 kernels held against the plain ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

#include "sibling_module.h"
#include "unwrap_kernel.h"
#include "unwrap_map.h"

namespace vexel {
namespace {

using testing::ModuleFunction;
constexpr double kPi = std::numbers::pi;

struct Direction {
    double x, y, z;  // right, up, forward (longitude 0)
};

// The scene: a colour that changes smoothly with the direction, every channel well inside 0..255.
std::array<double, 3> SceneColour(Direction d, double offset = 0.0) {
    return {120 + 100 * d.x + offset, 120 + 100 * d.y + offset,
            120 + 100 * d.z + offset};  // B, G, R
}

uint32_t Pack(std::array<double, 3> bgr) {
    uint32_t pixel = 0xFF000000u;
    for (int c = 0; c < 3; ++c) {
        pixel |= static_cast<uint32_t>(std::lround(std::clamp(bgr[c], 0.0, 255.0))) << (8 * c);
    }
    return pixel;
}

int Channel(uint32_t pixel, int c) { return static_cast<int>((pixel >> (8 * c)) & 0xFF); }

// The direction the target's pixel (column, row) shows.
Direction TargetDirection(uint32_t column, uint32_t row, uint32_t width, uint32_t height) {
    const double lon = (column + 0.5) / width * 2 * kPi - kPi;
    const double lat = kPi / 2 - (row + 0.5) / height * kPi;
    return {std::cos(lat) * std::sin(lon), std::sin(lat), std::cos(lat) * std::cos(lon)};
}

struct Lens {
    int32_t row, column;  // centre, pixels
    bool backward;
    double offset;  // added to the scene's colour, to tell the lenses apart
};

// Paints the fisheye picture, pixel by pixel from the centre outwards: the angle from the axis is
// distance / radius x half the lens angle. Each lens paints the columns nearest its centre, past
// its rim too, so sampling at the rim finds the scene rather than a border.
std::vector<uint32_t> RenderFisheye(uint32_t width, uint32_t height, int32_t radius,
                                    double lensAngle, const std::vector<Lens>& lenses) {
    std::vector<uint32_t> picture(size_t{width} * height);
    const double half = lensAngle * kPi / 360;
    for (uint32_t r = 0; r < height; ++r) {
        for (uint32_t c = 0; c < width; ++c) {
            const Lens& lens =
                *std::min_element(lenses.begin(), lenses.end(), [&](const Lens& a, const Lens& b) {
                    return std::abs(c + 0.5 - a.column) < std::abs(c + 0.5 - b.column);
                });
            const double dx = c + 0.5 - lens.column, dy = r + 0.5 - lens.row;
            const double rho = std::hypot(dx, dy);
            const double theta = std::min(rho / radius * half, kPi);
            const double s = rho > 0 ? std::sin(theta) / rho : 0.0;
            const double flip = lens.backward ? -1.0 : 1.0;
            const Direction d{flip * s * dx, -s * dy, flip * std::cos(theta)};
            picture[size_t{r} * width + c] = Pack(SceneColour(d, lens.offset));
        }
    }
    return picture;
}

class SphereUnwrapTest : public ::testing::Test {
protected:
    // The records as the player fills them; size in bytes for one lens, in pixels for two.
    std::vector<uint32_t> Unwrap(const std::vector<uint32_t>& picture, uint32_t width,
                                 uint32_t height, int32_t radius, float lensAngle,
                                 const std::vector<Lens>& lenses, uint32_t targetWidth,
                                 uint32_t targetHeight) {
        const bool one = lenses.size() == 1;
        const Lens &a = lenses[0], &b = lenses.back();
        const auto* pixels = reinterpret_cast<const uint8_t*>(picture.data());
        UnwrapSource source{height, width,     a.row, a.column, radius, width * height * 4,
                            pixels, lensAngle, a.row, a.column, b.row,  b.column};
        std::vector<uint32_t> out(size_t{targetWidth} * targetHeight, 0x12345678u);
        const uint32_t size = targetWidth * targetHeight * (one ? 4 : 1);
        UnwrapTarget target{
            targetHeight, targetWidth, {}, size, reinterpret_cast<uint8_t*>(out.data())};
        EXPECT_EQ((one ? single : dual)(&source, &target), S_OK);
        return out;
    }

    UnwrapFn single = ModuleFunction<UnwrapFn>(kSphereUnwrapModule, kSingleFisheyeSymbol);
    UnwrapFn dual = ModuleFunction<UnwrapFn>(kSphereUnwrapModule, kDualFisheyeSymbol);
};

// Bilinear sampling of a smooth scene at 128 pixels of radius: the error is rounding (at most 1
// level per step) plus a little curvature; a wrong orientation or model is off by tens of levels.
constexpr int kLargestError = 2;
constexpr double kMeanError = 0.5;

// One lens of 240 degrees shows the scene within 120 degrees of its axis and black beyond; two
// lenses cover the whole sphere. A change of geometry (and of kind) takes effect at once, and
// going back finds the first one again.
TEST_F(SphereUnwrapTest, RoundTripsMatchTheSceneAsGeometriesAlternate) {
    const std::vector<Lens> one = {{128, 128, false, 0}};
    const std::vector<Lens> wide = {{128, 128, false, 0}, {128, 384, true, 0}};
    const std::vector<Lens> shifted = {{120, 136, false, 0}, {130, 380, true, 0}};
    const double field = 120 * kPi / 180, margin = 0.5 * kPi / 180;
    for (const auto* lenses : {&wide, &one, &shifted, &wide}) {
        const bool oneLens = lenses == &one;
        const int32_t radius = lenses == &shifted ? 110 : 128;
        const uint32_t width = oneLens ? 256 : 512;  // the target is 4R x 2R for one lens
        const double angle = oneLens ? 240 : 190;
        const auto picture = RenderFisheye(width, 256, radius, angle, *lenses);
        const auto target =
            Unwrap(picture, width, 256, radius, static_cast<float>(angle), *lenses, 512, 256);
        int largest = 0;
        double sum = 0;
        size_t count = 0;
        for (uint32_t r = 0; r < 256; ++r) {
            for (uint32_t c = 0; c < 512; ++c) {
                const Direction d = TargetDirection(c, r, 512, 256);
                const uint32_t actual = target[r * 512 + c];
                if (oneLens && std::acos(d.z) > field + margin) {
                    ASSERT_EQ(actual, 0xFF000000u) << "behind the lens: " << c << "," << r;
                }
                if (oneLens && std::acos(d.z) >= field - margin) continue;
                const uint32_t expected = Pack(SceneColour(d));
                ASSERT_EQ(actual >> 24, 0xFFu);
                for (int ch = 0; ch < 3; ++ch) {
                    const int e = std::abs(Channel(expected, ch) - Channel(actual, ch));
                    largest = std::max(largest, e);
                    sum += e;
                }
                ++count;
            }
        }
        EXPECT_LE(largest, kLargestError) << lenses->size() << " lenses, radius " << radius;
        EXPECT_LE(sum / (3.0 * count), kMeanError) << lenses->size() << " lenses";
    }
}

// The back lens sees everything 60 levels brighter. Along the equator the panorama goes from the
// front's colours to the back's through the overlap in small steps, never in one jump.
TEST_F(SphereUnwrapTest, DualLensOverlapBlendsWithoutASeam) {
    constexpr double kOffset = 60;
    const std::vector<Lens> lenses = {{128, 128, false, 0}, {128, 384, true, kOffset}};
    const auto picture = RenderFisheye(512, 256, 128, 190, lenses);
    const auto target = Unwrap(picture, 512, 256, 128, 190.0f, lenses, 512, 256);
    for (const uint32_t row : {100u, 128u, 150u}) {
        std::vector<double> excess(512);  // brightness over the scene, channel average
        for (uint32_t c = 0; c < 512; ++c) {
            const uint32_t expected = Pack(SceneColour(TargetDirection(c, row, 512, 256)));
            double sum = 0;
            for (int ch = 0; ch < 3; ++ch)
                sum += Channel(target[row * 512 + c], ch) - Channel(expected, ch);
            excess[c] = sum / 3;
        }
        EXPECT_NEAR(excess[256], 0, 2) << "front, row " << row;
        EXPECT_NEAR(excess[0], kOffset, 2) << "back, row " << row;
        double largestStep = 0;
        for (uint32_t c = 1; c < 512; ++c)
            largestStep = std::max(largestStep, std::abs(excess[c] - excess[c - 1]));
        EXPECT_LE(largestStep, 12) << "row " << row;  // a hard cut would step by 60
    }
}

TEST_F(SphereUnwrapTest, BadRecordsAreRefusedAndTheTargetLeftAlone) {
    std::vector<uint32_t> picture(64 * 32, 0xFF808080u), out(64 * 32, 0x12345678u);
    const UnwrapSource good{
        32,     64, 16, 16, 16, 64 * 32 * 4, reinterpret_cast<const uint8_t*>(picture.data()),
        190.0f, 16, 16, 16, 48};
    UnwrapTarget goodTarget{32, 64, {}, 64 * 32, reinterpret_cast<uint8_t*>(out.data())};

    for (const UnwrapFn fn : {single, dual}) {
        EXPECT_EQ(fn(nullptr, &goodTarget), E_POINTER);
        EXPECT_EQ(fn(&good, nullptr), E_POINTER);
    }
    struct Case {
        const char* what;
        void (*spoil)(UnwrapSource&, UnwrapTarget&);
        int32_t status;
    };
    const std::vector<Case> cases = {
        {"no source picture", [](auto& s, auto&) { s.pixels = nullptr; }, E_POINTER},
        {"no target picture", [](auto&, auto& t) { t.pixels = nullptr; }, E_POINTER},
        {"zero source width", [](auto& s, auto&) { s.width = 0; }, E_INVALIDARG},
        {"absurd source height", [](auto& s, auto&) { s.height = 0xFFFFFFF0u; }, E_INVALIDARG},
        {"source smaller than its size", [](auto& s, auto&) { s.size -= 4; }, E_INVALIDARG},
        {"zero target height", [](auto&, auto& t) { t.height = 0; }, E_INVALIDARG},
        {"absurd target", [](auto&, auto& t) { t.width = t.height = kMaxPictureSide; },
         E_INVALIDARG},
        {"target smaller than its size", [](auto&, auto& t) { t.size -= 1; }, E_INVALIDARG},
        {"negative radius", [](auto& s, auto&) { s.radius = -5; }, E_INVALIDARG},
        {"angle past a full turn", [](auto& s, auto&) { s.lensAngle = 400.0f; }, E_INVALIDARG},
        {"angle not a number", [](auto& s, auto&) { s.lensAngle = std::nanf(""); }, E_INVALIDARG},
    };
    for (const Case& c : cases) {
        for (const UnwrapFn fn : {single, dual}) {
            UnwrapSource source = good;
            UnwrapTarget target = goodTarget;
            c.spoil(source, target);
            EXPECT_EQ(fn(&source, &target), c.status) << c.what;
            EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint32_t p) {
                return p == 0x12345678u;
            })) << c.what;
        }
    }
    // Centres far outside the picture are no error: nothing is seen there, so all is black.
    UnwrapSource away = good;
    away.leftColumn = away.rightColumn = -100000;
    EXPECT_EQ(dual(&away, &goodTarget), S_OK);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint32_t p) { return p == 0xFF000000u; }));
}

// Several threads unwrapping with different geometries at once (more than the cache keeps) each
// get their own geometry's result.
TEST_F(SphereUnwrapTest, ConcurrentCallsWithDifferentGeometries) {
    constexpr uint32_t kWidth = 128, kHeight = 64;
    std::vector<std::vector<Lens>> geometries;
    std::vector<std::vector<uint32_t>> pictures, expected;
    for (int32_t shift = 0; shift < 4; ++shift) {
        geometries.push_back({{32, 32 + shift, false, 0}, {32, 96 - shift, true, 20}});
        pictures.push_back(RenderFisheye(kWidth, kHeight, 32, 190, geometries.back()));
        expected.push_back(Unwrap(pictures.back(), kWidth, kHeight, 32, 190.0f, geometries.back(),
                                  kWidth, kHeight));
    }
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    for (size_t t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (size_t round = 0; round < 8; ++round) {
                const size_t g = (t + round) % geometries.size();
                if (Unwrap(pictures[g], kWidth, kHeight, 32, 190.0f, geometries[g], kWidth,
                           kHeight) != expected[g]) {
                    ++mismatches;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}

// ---------------------------------------------------------------------------------------------
// The kernels, linked directly.

TEST(UnwrapKernel, Sse41MatchesPlainBitForBit) {
    if (!__builtin_cpu_supports("sse4.1")) GTEST_SKIP() << "no SSE4.1";
    constexpr uint32_t kWidth = 37, kHeight = 23;
    std::mt19937 random(7);
    std::vector<uint32_t> picture(kWidth * kHeight);
    for (auto& p : picture) p = random();
    const unwrap::SourcePicture source{picture.data(), kWidth};
    const auto randomTap = [&] {
        const uint32_t x = random() % (kWidth - 1), y = random() % (kHeight - 1);
        return unwrap::MakeTap(y * kWidth + x, random() % (unwrap::kOne + 1),
                               random() % (unwrap::kOne + 1));
    };
    std::vector<unwrap::Tap> taps(5000);  // more than one chunk of the SSE version
    for (auto& tap : taps)
        tap = random() % 20 == 0 ? unwrap::Tap{unwrap::kNoTap, 0, 0} : randomTap();
    taps[0] = unwrap::MakeTap(0, unwrap::kOne, unwrap::kOne);  // the extremes
    taps[1] = unwrap::MakeTap((kHeight - 2) * kWidth + kWidth - 2, 0, unwrap::kOne);
    std::vector<unwrap::BlendTap> blends;
    for (uint32_t target = 0; target < taps.size(); target += 1 + random() % 4) {
        blends.push_back(
            {target, static_cast<uint32_t>(random() % (unwrap::kOne + 1)), randomTap()});
    }
    std::vector<uint32_t> plain(taps.size()), sse(taps.size());
    unwrap::UnwrapPlain(source, taps.data(), taps.size(), blends.data(), blends.size(),
                        plain.data());
    unwrap::UnwrapSse41(source, taps.data(), taps.size(), blends.data(), blends.size(), sse.data());
    EXPECT_EQ(plain, sse);
}

}  // namespace
}  // namespace vexel
