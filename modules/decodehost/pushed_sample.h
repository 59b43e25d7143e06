// PushedSample: the IPushSample handed to a sink's Push, valid only during that call. A sound
// block points into the reader's buffer. A picture is converted into the reader's buffer only
// when the sink asks for it through GetBuffer; a sink may instead ask for IID_PictureSource, which
// the sample answers with a FramePicture of its own (frame_picture.h) when libyuv converts the
// picture at the stream's size, so the reader's 32-bit buffer is never filled.
//
// Threads: a PushedSample is made, pushed and released on the reader's delivery thread; the sink
// calls it during Push (it may count references on it from its own thread then).
#pragma once

#include <cstdint>
#include <vector>

#include "av_ptr.h"
#include "vexel/codec_host.h"
#include "vexel/com_object.h"
#include "video_converter.h"

namespace vexel::decodehost {

class PushedSample final : public ComObject<IPushSample> {
public:
    // A sound block of `size` bytes at `data`.
    PushedSample(void* data, uint32_t size, int64_t start, int64_t stop)
        : data_(data), size_(size), start_(start), stop_(stop), mediaKind_(kMediaKindAudio) {}
    // A decoded picture, converted by `converter` into `buffer` when GetBuffer asks for it.
    PushedSample(const AVFrame* frame, VideoConverter* converter, std::vector<uint8_t>* buffer,
                 int64_t start, int64_t stop)
        : frame_(frame),
          converter_(converter),
          buffer_(buffer),
          start_(start),
          stop_(stop),
          mediaKind_(kMediaKindVideo) {}

    int32_t QueryInterface(const GUID* id, void** out) override;
    int32_t GetBuffer(BufferDesc* buffer) override;
    int32_t BufferAcquired() override { return S_OK; }
    int32_t GetInfo(SampleInfo* info) override;

private:
    int32_t Convert();  // fills the reader's buffer with the picture

    void* data_ = nullptr;  // null until a picture is converted
    uint32_t size_ = 0;
    const AVFrame* frame_ = nullptr;
    VideoConverter* converter_ = nullptr;
    std::vector<uint8_t>* buffer_ = nullptr;
    int64_t start_;
    int64_t stop_;
    uint32_t mediaKind_;
};

}  // namespace vexel::decodehost
