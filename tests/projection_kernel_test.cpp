// Every row kernel this processor runs against the plain one, bit for bit: whole views of every
// kind (sizes from 1x1 to 4K, odd widths, the seam, both poles, upside down, partial panoramas,
// tall views, row tables that are not evenly spaced), and the row stepping alone on grid values
// that need more than one wrap.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "projection/row_kernel.h"
#include "projection/view_projector.h"
#include "test_pictures.h"

namespace vexel {
namespace {

// Sanitizer builds draw fewer and smaller views.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRandomViews = 30;
constexpr int64_t kLargestView = 1 << 20;
#else
constexpr int kRandomViews = 300;
constexpr int64_t kLargestView = 1 << 24;
#endif

struct View {
    int32_t w, h;
    double pan, tilt, fov;
};

std::vector<uint32_t> Draw(const RowKernel& kernel, const std::vector<const uint32_t*>& rows,
                           int32_t sourceWidth, const View& view) {
    std::vector<uint32_t> out(static_cast<size_t>(view.w) * view.h, 0x5A5A5A5Au);
    ViewProjector projector(sourceWidth, static_cast<int32_t>(rows.size()));
    projector.UseKernel(kernel);
    projector.SetViewBuffer(out.data(), view.w, view.h);
    RenderDirection(projector, rows.data(), view.pan, view.tilt, view.fov);
    return out;
}

void ExpectKernelsAgree(const std::vector<const uint32_t*>& rows, int32_t sourceWidth,
                        const View& view) {
    const auto kernels = SupportedRowKernels();
    const std::vector<uint32_t> plain = Draw(kernels[0], rows, sourceWidth, view);
    for (size_t k = 1; k < kernels.size(); ++k) {
        const std::vector<uint32_t> other = Draw(kernels[k], rows, sourceWidth, view);
        for (size_t i = 0; i < plain.size(); ++i) {
            ASSERT_EQ(other[i], plain[i])
                << CpuKernelName(kernels[k].level) << ", pixel " << i << " of " << view.w << "x"
                << view.h << ", source " << sourceWidth << "x" << rows.size() << ", pan "
                << view.pan << ", tilt " << view.tilt << ", fov " << view.fov;
        }
    }
}

TEST(ProjectionKernelTest, EveryKernelDrawsThePlainKernelsPixels) {
    RecordProperty("kernels", static_cast<int>(SupportedRowKernels().size()));
    const std::pair<int32_t, int32_t> sources[] = {{3840, 1920}, {1024, 512}, {1001, 500},
                                                   {4096, 1024}, {1000, 300}, {257, 128}};
    std::vector<std::vector<uint32_t>> pictures;
    std::vector<std::vector<const uint32_t*>> rowTables;
    for (const auto& [width, height] : sources) {
        pictures.push_back(testing::NoisePicture(width, height, static_cast<uint32_t>(width)));
        rowTables.push_back(testing::RowPointers(pictures.back(), width, height));
    }

    // Fixed cases: 4K, the seam, both poles, looking back over them, tall and 1-pixel views.
    const View fixed[] = {
        {3840, 2160, 0, 0, 100},   {1920, 1080, 180, 0, 90},  {1920, 1080, -179.9, 80, 100},
        {1920, 1080, 10, 90, 120}, {1280, 720, 33, -90, 150}, {1081, 607, 179, 95, 110},
        {640, 360, -20, -150, 75}, {123, 299, 0, 0, 160},     {1080, 1920, 45, 60, 90},
        {1, 1, 0, 0, 90},          {1, 77, 0, 89, 120},       {77, 1, 180, -89, 165},
        {17, 5, 90, 45, 60}};
    for (const View& view : fixed) {
        if (static_cast<int64_t>(view.w) * view.h > kLargestView) continue;
        ExpectKernelsAgree(rowTables[0], sources[0].first, view);
        if (HasFatalFailure()) return;
    }

    std::mt19937 random(9);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int i = 0; i < kRandomViews; ++i) {
        const size_t source = random() % std::size(sources);
        View view{1 + static_cast<int32_t>(random() % 700),
                  1 + static_cast<int32_t>(random() % 500), -200 + 400 * unit(random),
                  -180 + 360 * unit(random), 30 + 135 * unit(random)};
        if (i % 5 == 0) view.pan = random() % 2 ? 180 : -180;
        if (i % 7 == 0) view.tilt = random() % 2 ? 90 : -90;
        ExpectKernelsAgree(rowTables[source], sources[source].first, view);
        if (HasFatalFailure()) return;
    }

    // Rows bottom-up (a negative stride) and rows in no order at all (no stride: the SIMD kernels
    // sample them one by one).
    std::vector<const uint32_t*> reversed(rowTables[1].rbegin(), rowTables[1].rend());
    std::vector<const uint32_t*> shuffled = rowTables[1];
    std::shuffle(shuffled.begin() + 1, shuffled.end(), random);
    for (const auto* rows : {&reversed, &shuffled}) {
        ExpectKernelsAgree(*rows, 1024, {333, 222, 170, 50, 120});
        ExpectKernelsAgree(*rows, 1024, {333, 222, 0, -70, 120});
    }
}

TEST(ProjectionKernelTest, RowSteppingAgreesWhereUNeedsManyWraps) {
    // Grid values up to one and a half turns out and slopes up to a whole turn per pixel: the SIMD
    // kernels must notice the cells they cannot step in one go.
    const int32_t fullTurn = 256 * 1000;
    std::mt19937 random(10);
    std::uniform_int_distribution<int32_t> u(-3 * fullTurn / 2, 3 * fullTurn / 2 - 1);
    std::uniform_int_distribution<int32_t> v(-fullTurn / 4, fullTurn / 4);
    for (int i = 0; i < 2000; ++i) {
        const int32_t step = 1 + static_cast<int32_t>(random() % 40);
        const int32_t count = 1 + static_cast<int32_t>(random() % 300);
        std::vector<int32_t> gridU(count / step + 2), gridV(gridU.size());
        for (size_t k = 0; k < gridU.size(); ++k) {
            gridU[k] = random() % 4
                           ? (k ? gridU[k - 1] : 0) + (u(random) >> (random() % 12)) % fullTurn
                           : u(random);
            gridV[k] = v(random);
        }
        std::vector<int32_t> plainU(count + kRowPadding), plainV(plainU.size());
        StepRowPlain(gridU.data(), gridV.data(), step, count, fullTurn, plainU.data(),
                     plainV.data());
        for (const RowKernel& kernel : SupportedRowKernels()) {
            std::vector<int32_t> outU(count + kRowPadding), outV(outU.size());
            kernel.stepRow(gridU.data(), gridV.data(), step, count, fullTurn, outU.data(),
                           outV.data());
            for (int32_t x = 0; x < count; ++x) {
                ASSERT_EQ(std::pair(outU[x], outV[x]), std::pair(plainU[x], plainV[x]))
                    << CpuKernelName(kernel.level) << ", step " << step << ", pixel " << x;
            }
        }
    }
}

}  // namespace
}  // namespace vexel
