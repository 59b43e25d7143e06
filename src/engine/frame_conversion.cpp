#include "engine/frame_conversion.h"

#include <atomic>
#include <cstring>

#include "common/log.h"
#include "common/status.h"
#include "engine/render_engine.h"

namespace vexel {

namespace {
std::atomic<bool> loggedFormat{false};
std::atomic<bool> loggedShort{false};
std::atomic<bool> loggedFisheye{false};
std::atomic<bool> loggedMemory{false};
}  // namespace

bool FlipRows32(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height) {
    if (source == nullptr || destination == nullptr) return false;
    const size_t rowBytes = size_t{width} * 4;
    for (uint32_t i = 0; i < height; ++i) {
        std::memcpy(destination + i * rowBytes, source + (height - 1 - i) * rowBytes, rowBytes);
    }
    return true;
}

int32_t RenderEngine::OnVideoSample(const uint8_t* data, uint32_t size, int64_t startTime, int64_t stopTime) {
    if (stopRequested_.load() || seekFrameShown_.load()) return ERR_SAMPLE_REFUSED;

    // Frames that cannot be turned into a picture are dropped (and taken: delivery goes on).
    if (sourceFormat_ != kFormatBgra32) {
        LogOnce(loggedFormat, "vexel: pixel format %u cannot be converted yet; its frames are dropped\n",
                sourceFormat_);
        return kOk;
    }
    if (fisheyeMode_ == 2 || fisheyeMode_ == 3) {
        LogOnce(loggedFisheye, "vexel: fisheye unwrapping is not available; fisheye frames are dropped\n");
        return kOk;
    }
    const uint64_t pictureBytes = uint64_t{sourceWidth_} * sourceHeight_ * 4;
    if (pictureBytes == 0 || pictureBytes > kMaxSampleBytes || data == nullptr || size < pictureBytes) {
        LogOnce(loggedShort, "vexel: a video sample of %u bytes does not hold a %ux%u picture; dropped\n",
                size, sourceWidth_, sourceHeight_);
        return kOk;
    }

    auto frame = std::make_unique<FrameRecord>();
    frame->pixels.reset(AllocatePixels(static_cast<uint32_t>(pictureBytes)));
    if (!frame->pixels) {
        LogOnce(loggedMemory, "vexel: out of memory for a video frame; dropped\n");
        return kOk;
    }
    FlipRows32(data, frame->pixels.get(), sourceWidth_, sourceHeight_);
    frame->width = sourceWidth_;
    frame->height = sourceHeight_;
    frame->size = static_cast<uint32_t>(pictureBytes);
    frame->pan = viewPan_.load();
    frame->tilt = viewTilt_.load();
    frame->fov = viewFov_.load();
    frame->time = startTime;
    frame->stopTime = stopTime;
    return PushDecodedFrame(std::move(frame)) ? kOk : ERR_SAMPLE_REFUSED;
}

}  // namespace vexel
