#include "pushed_sample.h"

#include <limits>
#include <new>

#include "frame_picture.h"

namespace vexel::decodehost {

int32_t PushedSample::QueryInterface(const GUID* id, void** out) {
    const HRESULT checked = CheckQuery(id, out);
    if (checked != S_OK) return checked;
    // Only a picture libyuv converts at the stream's size can be converted later into any buffer;
    // the others keep going through the reader's converter.
    if (*id != IID_PictureSource || frame_ == nullptr || !converter_->ConvertsDirectly(*frame_))
        return E_NOINTERFACE;
    FramePtr held(av_frame_clone(frame_));
    if (!held) return E_OUTOFMEMORY;
    FramePicture* picture = nullptr;
    try {
        picture = NewObject<FramePicture>(std::move(held));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    *out = static_cast<IPictureSource*>(picture);  // with the reference NewObject gave
    return S_OK;
}

int32_t PushedSample::GetBuffer(BufferDesc* buffer) {
    if (buffer == nullptr) return E_INVALIDARG;
    if (data_ == nullptr && frame_ != nullptr) {
        const int32_t converted = Convert();
        if (converted != S_OK) return converted;
    }
    buffer->data = data_;
    buffer->size = size_;
    return S_OK;
}

int32_t PushedSample::Convert() {
    try {
        buffer_->resize(converter_->bytes());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    if (buffer_->empty() || buffer_->size() > std::numeric_limits<uint32_t>::max() ||
        !converter_->Convert(frame_, buffer_->data())) {
        return E_FAIL;
    }
    data_ = buffer_->data();
    size_ = static_cast<uint32_t>(buffer_->size());
    return S_OK;
}

int32_t PushedSample::GetInfo(SampleInfo* info) {
    if (info == nullptr || info->header.size < sizeof(SampleInfo) ||
        info->header.key != KEY_SampleInfo) {
        return E_INVALIDARG;
    }
    info->startTime = start_;
    info->stopTime = stop_;
    info->mediaKind = mediaKind_;
    return S_OK;
}

}  // namespace vexel::decodehost
