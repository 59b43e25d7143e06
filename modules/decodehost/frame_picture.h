// FramePicture: the IPictureSource over one decoded picture that libyuv converts (yuv_to_bgra.h).
// It keeps its own reference on the decoded frame's buffers, which FFmpeg's buffer pools keep
// alive past the decoder: it outlives the Push, the sample and the reader that made it.
//
// Threads: any (see vexel/picture_source.h); the frame is only read.
#pragma once

#include <cstdint>

#include "av_ptr.h"
#include "vexel/com_object.h"
#include "vexel/picture_source.h"

namespace vexel::decodehost {

class FramePicture final : public ComObject<IPictureSource> {
public:
    explicit FramePicture(FramePtr frame) : frame_(std::move(frame)) {}

    int32_t QueryInterface(const GUID* id, void** out) override;
    int32_t WriteTopDown(uint8_t* dst, uint32_t stride, uint32_t width, uint32_t height) override;

private:
    const FramePtr frame_;
};

}  // namespace vexel::decodehost
