#include "engine/frame_record.h"

#include <cstring>
#include <new>

namespace vexel {

namespace {

PixelBuffer CopyPixels(const PixelBuffer& pixels, uint32_t size) {
    if (!pixels) return nullptr;
    PixelBuffer copy(AllocatePixels(size));
    if (!copy) throw std::bad_alloc();
    std::memcpy(copy.get(), pixels.get(), size);
    return copy;
}

}  // namespace

std::unique_ptr<FrameRecord> FrameRecord::Clone() const {
    auto copy = std::make_unique<FrameRecord>();
    copy->pixels = CopyPixels(pixels, size);
    copy->source = source;
    copy->width = width;
    copy->height = height;
    copy->size = size;
    copy->viewPixels = CopyPixels(viewPixels, viewSize);
    copy->viewWidth = viewWidth;
    copy->viewHeight = viewHeight;
    copy->viewSize = viewSize;
    copy->pan = pan;
    copy->tilt = tilt;
    copy->fov = fov;
    copy->seek = seek;
    copy->time = time;
    copy->stopTime = stopTime;
    copy->streamTime = streamTime;
    return copy;
}

bool FrameRecord::WritePicture() {
    if (!source) return pixels != nullptr;
    PixelBuffer picture(AllocatePixels(size));
    const bool written =
        picture && source->WriteTopDown(picture.get(), width * 4, width, height) >= 0;
    source.reset();
    if (written) pixels = std::move(picture);
    return written;
}

InlayBuffer* MakeSample(PixelBuffer pixels, uint32_t width, uint32_t height, uint32_t size,
                        const FrameRecord& frame) {
    auto* sample = new InlayBuffer{};
    sample->pixels = pixels.release();
    sample->width = width;
    sample->height = height;
    sample->size = size;
    sample->pan = frame.pan;
    sample->tilt = frame.tilt;
    sample->fov = frame.fov;
    sample->seek = frame.seek;
    sample->time = frame.time;
    sample->stopTime = frame.stopTime;
    return sample;
}

}  // namespace vexel
