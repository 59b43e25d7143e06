// The render engine's picture path: a delivered sample made into a 32-bit top-row-first panorama
// (rows reversed, or converted from YUY2), fisheye pictures unwrapped, then queued; or a picture
// that converts itself queued as it is, for the render thread to convert.
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
    if (!WaitToTakeVideo()) return ERR_SAMPLE_REFUSED;
    // A picture that cannot be made is dropped with a line the first time; delivery goes on.
    auto frame = std::make_unique<FrameRecord>();
    if (!ConvertToRgb32(data, size, *frame)) return kOk;
    if (Unwraps() && !Unwrap(*frame)) return kOk;
    return QueueVideoFrame(std::move(frame), startTime, stopTime);
}

int32_t RenderEngine::OnVideoPicture(CountedRef<IPictureSource> picture, int64_t startTime,
                                     int64_t stopTime) {
    if (!picture) return ERR_SAMPLE_FAULT;
    if (!WaitToTakeVideo()) return ERR_SAMPLE_REFUSED;
    if (!SourcePictureFits(0)) return kOk;
    // Converted by the render thread when it takes the frame (RenderThreadProc).
    auto frame = std::make_unique<FrameRecord>();
    frame->source = std::move(picture);
    frame->width = sourceWidth_;
    frame->height = sourceHeight_;
    frame->size = sourceWidth_ * sourceHeight_ * 4;
    return QueueVideoFrame(std::move(frame), startTime, stopTime);
}

bool RenderEngine::WaitToTakeVideo() {
    const State state = state_.load();
    if (state == State::kStopped || state == State::kSeekFrameShown || state == State::kEnded) {
        return false;
    }
    // Wait for room before a new picture is made, so no picture is held while waiting.
    return decodedQueue_.WaitForRoom([this] { return Stopping(); });
}

int32_t RenderEngine::QueueVideoFrame(std::unique_ptr<FrameRecord> frame, int64_t startTime,
                                      int64_t stopTime) {
    const ViewAngles view = view_.Current();
    frame->pan = view.pan;
    frame->tilt = view.tilt;
    frame->fov = view.fov;
    frame->time = startTime;
    frame->stopTime = stopTime;
    return PushDecodedFrame(std::move(frame)) ? kOk : ERR_SAMPLE_REFUSED;
}

bool RenderEngine::SourcePictureFits(uint64_t rowBytes, const uint8_t* data, uint32_t size) const {
    const uint32_t width = sourceWidth_, height = sourceHeight_;
    const uint64_t pictureBytes = uint64_t{width} * height * 4;
    if (width != 0 && height != 0 && pictureBytes <= kMaxSampleBytes &&
        (rowBytes == 0 || (data != nullptr && size >= rowBytes * height))) {
        return true;
    }
    LogOnce(loggedShort,
            "vexel: a video sample of %u bytes does not hold a %ux%u picture; dropped\n", size,
            width, height);
    return false;
}

bool RenderEngine::ConvertToRgb32(const uint8_t* data, uint32_t size, FrameRecord& frame) {
    const uint32_t width = sourceWidth_, height = sourceHeight_;
    const bool packed32 = sourceFormat_ == kPixelFormatBgra32;
    // What a delivered picture must hold: whole 32-bit rows, or YUY2 rows of pixel pairs.
    const uint64_t rowBytes = packed32 ? uint64_t{width} * 4 : (uint64_t{width} + 1) / 2 * 4;
    const uint64_t pictureBytes = uint64_t{width} * height * 4;
    if (!SourcePictureFits(rowBytes, data, size)) return false;

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
