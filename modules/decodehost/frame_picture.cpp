#include "frame_picture.h"

#include <limits>

#include "yuv_to_bgra.h"

namespace vexel::decodehost {

int32_t FramePicture::QueryInterface(const GUID* id, void** out) {
    const HRESULT checked = CheckQuery(id, out);
    if (checked != S_OK) return checked;
    return *id == IID_PictureSource ? ShareInterface(static_cast<IPictureSource*>(this), out)
                                    : E_NOINTERFACE;
}

int32_t FramePicture::WriteTopDown(uint8_t* dst, uint32_t stride, uint32_t width, uint32_t height) {
    const AVFrame& frame = *frame_;
    if (dst == nullptr || width != static_cast<uint32_t>(frame.width) ||
        height != static_cast<uint32_t>(frame.height) || stride < uint64_t{width} * 4 ||
        stride > static_cast<uint32_t>(std::numeric_limits<int>::max())) {
        return E_INVALIDARG;
    }
    return YuvToBgra(frame, dst, static_cast<int>(stride), false) ? S_OK : E_FAIL;
}

}  // namespace vexel::decodehost
