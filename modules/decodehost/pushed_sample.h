// PushedSample: the IPushSample handed to a sink's Push. It points into the reader's buffer and is
// valid only during that call.
//
// Threads: made, pushed and released on the reader's delivery thread; a sink may count references
// on it from its own thread during Push.
#pragma once

#include <cstdint>

#include "vexel/codec_host.h"
#include "vexel/com_object.h"

namespace vexel::decodehost {

class PushedSample final : public ComObject<IPushSample> {
public:
    PushedSample(void* data, uint32_t size, int64_t start, int64_t stop, uint32_t mediaKind)
        : data_(data), size_(size), start_(start), stop_(stop), mediaKind_(mediaKind) {}

    int32_t QueryInterface(const GUID* id, void** out) override;
    int32_t GetBuffer(BufferDesc* buffer) override;
    int32_t BufferAcquired() override { return S_OK; }
    int32_t GetInfo(SampleInfo* info) override;

private:
    void* data_;
    uint32_t size_;
    int64_t start_;
    int64_t stop_;
    uint32_t mediaKind_;
};

}  // namespace vexel::decodehost
