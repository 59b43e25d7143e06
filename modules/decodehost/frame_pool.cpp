#include "frame_pool.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sys/mman.h>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vexel::decodehost {

namespace {

// Every plane starts on a 64-byte boundary, and is followed by room for the decoders' reads past
// its end (AV_INPUT_BUFFER_PADDING_SIZE bytes, as libavcodec's own buffers have).
constexpr size_t kPlaneAlignment = 64;
constexpr size_t kPlanePadding = AV_INPUT_BUFFER_PADDING_SIZE;

size_t Aligned(size_t bytes) { return (bytes + kPlaneAlignment - 1) & ~(kPlaneAlignment - 1); }

void Unmap(void* opaque, uint8_t* data) { munmap(data, reinterpret_cast<size_t>(opaque)); }

AVBufferRef* Map(size_t bytes) {
    void* data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (data == MAP_FAILED) return nullptr;
    madvise(data, bytes, MADV_HUGEPAGE);  // advice only; nothing changes where it is refused
    AVBufferRef* buffer = av_buffer_create(static_cast<uint8_t*>(data), bytes, Unmap,
                                           reinterpret_cast<void*>(bytes), 0);
    if (buffer == nullptr) munmap(data, bytes);
    return buffer;
}

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

FramePool::~FramePool() { av_buffer_pool_uninit(&pool_); }

void FramePool::Attach(AVCodecContext* codec) {
    if (codec->codec_type != AVMEDIA_TYPE_VIDEO) return;
    codec->opaque = this;
    codec->get_buffer2 = GetBuffer;
}

AVBufferRef* FramePool::Take(size_t bytes) {
    std::lock_guard<std::mutex> guard(lock_);
    if (bytes != bytes_) {  // a new picture size: buffers of the old one go as they come back
        av_buffer_pool_uninit(&pool_);
        pool_ = av_buffer_pool_init(bytes, Map);
        bytes_ = pool_ != nullptr ? bytes : 0;
    }
    return pool_ != nullptr ? av_buffer_pool_get(pool_) : nullptr;
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
