#include "pushed_sample.h"

namespace vexel::decodehost {

int32_t PushedSample::QueryInterface(const GUID*, void** out) {
    if (out == nullptr) return E_INVALIDARG;
    return E_NOINTERFACE;  // the sample is reached only through the pointer handed to Push
}

int32_t PushedSample::GetBuffer(BufferDesc* buffer) {
    if (buffer == nullptr) return E_INVALIDARG;
    buffer->data = data_;
    buffer->size = size_;
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
