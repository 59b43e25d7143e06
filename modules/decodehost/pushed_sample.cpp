#include "pushed_sample.h"

namespace decodehost {

int32_t PushedSample::QueryInterface(const GUID*, void** out) {
    if (out == nullptr) return kInvalidArgument;
    return kNoInterface;  // the sample is reached only through the pointer handed to Push
}

int32_t PushedSample::GetBuffer(BufferDesc* buffer) {
    if (buffer == nullptr) return kInvalidArgument;
    buffer->data = data_;
    buffer->size = size_;
    return kOk;
}

int32_t PushedSample::GetInfo(SampleInfo* info) {
    if (info == nullptr || info->header.size < sizeof(SampleInfo) || info->header.key != KEY_SampleInfo) {
        return kInvalidArgument;
    }
    info->startTime = start_;
    info->stopTime = stop_;
    info->mediaKind = mediaKind_;
    return kOk;
}

}  // namespace decodehost
