// The render engine's picture path: a delivered sample made into a 32-bit top-row-first panorama
// (rows reversed, or converted from YUY2), fisheye pictures unwrapped, then queued.
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>

#include "common/log.h"
#include "engine/flip_rows.h"
#include "engine/render_engine.h"
#include "vexel/status.h"

namespace vexel {

namespace {

std::atomic<bool> loggedNoConverter{false};
std::atomic<bool> loggedShort{false};
std::atomic<bool> loggedNoUnwrap{false};
std::atomic<bool> loggedGeometry{false};
std::atomic<bool> loggedMemory{false};

// trunc(scale * fraction) as a 32-bit integer; false when it does not fit.
bool Scaled(uint32_t scale, double fraction, int32_t& out) {
    const double value = std::trunc(static_cast<double>(scale) * fraction);
    if (!(value > std::numeric_limits<int32_t>::min() &&
          value < std::numeric_limits<int32_t>::max()))
        return false;
    out = static_cast<int32_t>(value);
    return true;
}

}  // namespace

int32_t RenderEngine::OnVideoSample(const uint8_t* data, uint32_t size, int64_t startTime,
                                    int64_t stopTime) {
    const State state = state_.load();
    if (state == State::kStopped || state == State::kSeekFrameShown || state == State::kEnded) {
        return ERR_SAMPLE_REFUSED;
    }
    // Wait for room before a new picture is made, so no picture is held while waiting.
    if (!decodedQueue_.WaitForRoom([this] { return Stopping(); })) return ERR_SAMPLE_REFUSED;

    // A picture that cannot be made is dropped with a line the first time; delivery goes on.
    auto frame = std::make_unique<FrameRecord>();
    if (!ConvertToRgb32(data, size, *frame)) return kOk;
    if ((fisheyeMode_ == 2 || fisheyeMode_ == 3) && !Unwrap(*frame)) return kOk;
    const ViewAngles view = view_.Current();
    frame->pan = view.pan;
    frame->tilt = view.tilt;
    frame->fov = view.fov;
    frame->time = startTime;
    frame->stopTime = stopTime;
    return PushDecodedFrame(std::move(frame)) ? kOk : ERR_SAMPLE_REFUSED;
}

bool RenderEngine::ConvertToRgb32(const uint8_t* data, uint32_t size, FrameRecord& frame) {
    const uint32_t width = sourceWidth_, height = sourceHeight_;
    const bool packed32 = sourceFormat_ == kPixelFormatBgra32;
    // What a delivered picture must hold: whole 32-bit rows, or YUY2 rows of pixel pairs.
    const uint64_t rowBytes = packed32 ? uint64_t{width} * 4 : (uint64_t{width} + 1) / 2 * 4;
    const uint64_t pictureBytes = uint64_t{width} * height * 4;
    if (width == 0 || height == 0 || pictureBytes > kMaxSampleBytes || data == nullptr ||
        size < rowBytes * height) {
        LogOnce(loggedShort,
                "vexel: a video sample of %u bytes does not hold a %ux%u picture; dropped\n", size,
                width, height);
        return false;
    }

    uint32_t outputSize = static_cast<uint32_t>(pictureBytes);
    PixelBuffer picture;
    if (packed32) {
        picture.reset(AllocatePixels(outputSize));
        if (picture) FlipRows32(data, picture.get(), width, height);
    } else {
        if (!pixelConvert_.Available()) {
            LogOnce(loggedNoConverter, "vexel: %s is missing; pictures in format %u are dropped\n",
                    kPixelConvertModule, sourceFormat_);
            return false;
        }
        PixelBufferDesc destination{};
        destination.format = kPixelFormatBgra32;
        destination.width = width;
        destination.height = height;
        outputSize = pixelConvert_.CalculateBufferSize(destination);
        if (outputSize < pictureBytes) {
            LogOnce(loggedShort, "vexel: %ux%u pictures cannot be converted; dropped\n", width,
                    height);
            return false;
        }
        picture.reset(AllocatePixels(outputSize));
        if (picture) {
            destination.stride = width * 4;
            destination.flag1 = 1;
            destination.data = picture.get();
            pixelConvert_.CalculatePlanePointer(destination);
            PixelBufferDesc source{};
            source.format = kPixelFormatYuy2;
            source.width = width;
            source.height = height;
            source.stride = width * 2;
            source.flag1 = 1;
            source.data = const_cast<uint8_t*>(data);  // read only
            pixelConvert_.ConvertBuffers(source, destination);
        }
    }
    if (!picture) {
        LogOnce(loggedMemory, "vexel: out of memory for a video frame; dropped\n");
        return false;
    }
    frame.pixels = std::move(picture);
    frame.width = width;
    frame.height = height;
    frame.size = outputSize;
    return true;
}

bool RenderEngine::Unwrap(FrameRecord& frame) {
    const bool dual = fisheyeMode_ == 3;
    const UnwrapFn unwrap = UnwrapFunction(dual);
    LensGeometry lens;
    if (unwrap == nullptr || !PanoramaLens::GetGeometry(dual, lens)) {
        LogOnce(loggedNoUnwrap, "vexel: %s or %s is missing; fisheye pictures are dropped\n",
                kSphereUnwrapModule, kLensParamsModule);
        return false;
    }
    const uint32_t width = frame.width, height = frame.height;
    UnwrapSource source{};
    source.height = height;
    source.width = width;
    source.size = frame.size;
    source.pixels = frame.pixels.get();
    source.lensAngle = dual ? 190.0f : 240.0f;
    bool valid = Scaled(height, lens.radius, source.radius);
    if (dual) {
        valid = valid && Scaled(height, lens.leftCenterX, source.leftRow) &&
                Scaled(width, lens.leftCenterY, source.leftColumn) &&
                Scaled(height, lens.rightCenterX, source.rightRow) &&
                Scaled(width, lens.rightCenterY, source.rightColumn);
    } else {
        valid = valid && Scaled(height, lens.leftCenterX, source.centerRow) &&
                Scaled(width, lens.leftCenterY, source.centerColumn);
    }
    // One lens gives a 4R x 2R panorama; two give one of the source's size.
    const int64_t radius = source.radius;
    UnwrapTarget target{};
    target.width = dual ? width : static_cast<uint32_t>(4 * radius);
    target.height = dual ? height : static_cast<uint32_t>(2 * radius);
    if (!valid || (!dual && (radius < 1 || 4 * radius > kMaxPictureSide))) {
        LogOnce(loggedGeometry, "vexel: the lens geometry does not fit a %ux%u picture; dropped\n",
                width, height);
        return false;
    }
    const uint32_t targetBytes = target.width * target.height * 4;
    target.size =
        dual ? target.width * target.height : targetBytes;  // the dual unwrap takes a pixel count
    PixelBuffer unwrapped(AllocatePixels(targetBytes));
    if (!unwrapped) {
        LogOnce(loggedMemory, "vexel: out of memory for a video frame; dropped\n");
        return false;
    }
    target.pixels = unwrapped.get();
    unwrap(&source, &target);
    frame.pixels = std::move(unwrapped);
    frame.width = target.width;
    frame.height = target.height;
    frame.size = targetBytes;
    return true;
}

}  // namespace vexel
