#include "frame_pool.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <mutex>
#include <new>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include "vexel/mapped_pages.h"

namespace vexel::decodehost {

namespace {

// Every plane starts on a 64-byte boundary, and is followed by room for the decoders' reads past
// its end (AV_INPUT_BUFFER_PADDING_SIZE bytes, as libavcodec's own buffers have).
constexpr size_t kPlaneAlignment = 64;
constexpr size_t kPlanePadding = AV_INPUT_BUFFER_PADDING_SIZE;

size_t Aligned(size_t bytes) { return (bytes + kPlaneAlignment - 1) & ~(kPlaneAlignment - 1); }

// Formats whose planes libavcodec lays out in the usual way; others (palettes, hardware frames)
// keep libavcodec's own buffers.
bool Plain(const AVCodecContext* codec, const AVFrame* frame) {
    const AVPixFmtDescriptor* format =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    return (codec->codec->capabilities & AV_CODEC_CAP_DR1) && format != nullptr &&
           !(format->flags &
             (AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM)) &&
           frame->width > 0 && frame->height > 0;
}

}  // namespace

std::atomic<int64_t> FramePool::mapped_{0};

uint8_t* FramePool::Map(size_t bytes) {
    void* data = MapPages(bytes);
    if (data != nullptr) mapped_.fetch_add(1);
    return static_cast<uint8_t*>(data);
}

void FramePool::Unmap(uint8_t* data, size_t bytes) {
    UnmapPages(data, bytes);
    mapped_.fetch_sub(1);
}

// Buffers waiting for reuse, all of `bytes` bytes.
struct FramePool::Idle {
    std::mutex lock;
    uint8_t* buffers[kIdleBuffers] = {};
    size_t count = 0;
    size_t bytes = 0;
    bool open = true;  // false once the pool is gone: buffers coming back are unmapped

    // Unmaps the buffers waiting; called with the lock held.
    void Drop() {
        for (size_t i = 0; i < count; ++i) Unmap(buffers[i], bytes);
        count = 0;
    }
};

// One buffer handed to libavcodec: where it goes back to.
struct FramePool::Lease {
    std::shared_ptr<Idle> idle;
    size_t bytes;
};

FramePool::FramePool() : idle_(std::make_shared<Idle>()) {}

FramePool::~FramePool() {
    std::lock_guard<std::mutex> guard(idle_->lock);
    idle_->Drop();
    idle_->open = false;
}

void FramePool::Attach(AVCodecContext* codec) {
    if (codec->codec_type != AVMEDIA_TYPE_VIDEO) return;
    codec->opaque = this;
    codec->get_buffer2 = GetBuffer;
#if FF_API_THREAD_SAFE_CALLBACKS
    // GetBuffer is safe on any thread. This libavcodec calls it from its frame threads either way
    // and only warns about a callback not marked so.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    codec->thread_safe_callbacks = 1;
#pragma GCC diagnostic pop
#endif
}

AVBufferRef* FramePool::Take(size_t bytes) {
    uint8_t* data = nullptr;
    {
        std::lock_guard<std::mutex> guard(idle_->lock);
        if (bytes != idle_->bytes) {  // a new picture size: the waiting buffers are no use
            idle_->Drop();
            idle_->bytes = bytes;
        }
        if (idle_->count > 0) data = idle_->buffers[--idle_->count];
    }
    if (data == nullptr) data = Map(bytes);
    if (data == nullptr) return nullptr;
    auto* lease = new (std::nothrow) Lease{idle_, bytes};
    AVBufferRef* buffer =
        lease != nullptr ? av_buffer_create(data, bytes, GiveBack, lease, 0) : nullptr;
    if (buffer == nullptr) {
        delete lease;
        Unmap(data, bytes);
    }
    return buffer;
}

void FramePool::GiveBack(void* opaque, uint8_t* data) {
    std::unique_ptr<Lease> lease(static_cast<Lease*>(opaque));
    {
        Idle& idle = *lease->idle;
        std::lock_guard<std::mutex> guard(idle.lock);
        if (idle.open && lease->bytes == idle.bytes && idle.count < kIdleBuffers) {
            idle.buffers[idle.count++] = data;
            return;
        }
    }
    Unmap(data, lease->bytes);
}

int FramePool::GetBuffer(AVCodecContext* codec, AVFrame* frame, int flags) {
    if (!Plain(codec, frame)) return avcodec_default_get_buffer2(codec, frame, flags);
    const auto format = static_cast<AVPixelFormat>(frame->format);

    // The decoder's size with the margins it writes into, and rows as wide as its SIMD needs.
    int width = frame->width, height = frame->height;
    int rowAlignment[AV_NUM_DATA_POINTERS];
    std::fill(std::begin(rowAlignment), std::end(rowAlignment), 1);
    avcodec_align_dimensions2(codec, &width, &height, rowAlignment);
    int linesizes[4];
    for (;;) {
        if (av_image_fill_linesizes(linesizes, format, width) < 0) return AVERROR(EINVAL);
        bool aligned = true;
        for (int i = 0; i < 4; ++i) aligned = aligned && linesizes[i] % rowAlignment[i] == 0;
        if (aligned) break;
        width += width & ~(width - 1);  // the next power-of-two multiple of the lowest set bit
    }
    const ptrdiff_t strides[4] = {linesizes[0], linesizes[1], linesizes[2], linesizes[3]};
    size_t planeBytes[4];
    if (av_image_fill_plane_sizes(planeBytes, format, height, strides) < 0) return AVERROR(EINVAL);
    size_t offsets[4] = {}, total = 0;
    for (int i = 0; i < 4; ++i) {
        offsets[i] = total;
        if (planeBytes[i] > 0) total += Aligned(planeBytes[i] + kPlanePadding);
    }

    FramePool* pool = static_cast<FramePool*>(codec->opaque);
    frame->buf[0] = pool->Take(total);
    if (frame->buf[0] == nullptr) return AVERROR(ENOMEM);
    for (int i = 0; i < 4; ++i) {
        frame->data[i] = planeBytes[i] > 0 ? frame->buf[0]->data + offsets[i] : nullptr;
        frame->linesize[i] = planeBytes[i] > 0 ? linesizes[i] : 0;
    }
    frame->extended_data = frame->data;
    return 0;
}

}  // namespace vexel::decodehost
