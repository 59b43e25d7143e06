#include "video_converter.h"

#include "yuv_to_bgra.h"

namespace vexel::decodehost {

namespace {

// The "J" formats are full-range variants of the plain YUV formats; libswscale wants the plain
// format with the range given separately.
AVPixelFormat PlainFormat(AVPixelFormat format, bool* fullRange) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            *fullRange = true;
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            *fullRange = true;
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            *fullRange = true;
            return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P:
            *fullRange = true;
            return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P:
            *fullRange = true;
            return AV_PIX_FMT_YUV411P;
        default:
            return format;
    }
}

int SwsColorspace(AVColorSpace space) {
    switch (space) {
        case AVCOL_SPC_BT709:
            return SWS_CS_ITU709;
        case AVCOL_SPC_FCC:
            return SWS_CS_FCC;
        case AVCOL_SPC_SMPTE240M:
            return SWS_CS_SMPTE240M;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL:
            return SWS_CS_BT2020;
        default:
            return SWS_CS_DEFAULT;  // BT.601, also for untagged pictures
    }
}

}  // namespace

std::atomic<uint64_t> VideoConverter::conversions_{0};

bool VideoConverter::Convert(const AVFrame* frame, uint8_t* out) {
    if (frame->width <= 0 || frame->height <= 0 || frame->format < 0) return false;
    conversions_.fetch_add(1, std::memory_order_relaxed);
    if (ConvertsDirectly(*frame) && YuvToBgra(*frame, out, width_ * 4, true)) return true;
    return Scale(frame, out);
}

bool VideoConverter::ConvertsDirectly(const AVFrame& frame) const {
    return frame.width == width_ && frame.height == height_ && YuvToBgraHandles(frame);
}

bool VideoConverter::Scale(const AVFrame* frame, uint8_t* out) {
    bool fullRange = frame->color_range == AVCOL_RANGE_JPEG;
    const AVPixelFormat source = PlainFormat(static_cast<AVPixelFormat>(frame->format), &fullRange);

    SwsContext* previous = context_.release();
    context_.reset(sws_getCachedContext(previous, frame->width, frame->height, source, width_,
                                        height_, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr,
                                        nullptr));
    if (!context_) return false;

    const int colorspace = SwsColorspace(frame->colorspace);
    if (context_.get() != previous || colorspace != colorspace_ || int{fullRange} != fullRange_) {
        const int* coefficients = sws_getCoefficients(colorspace);
        sws_setColorspaceDetails(context_.get(), coefficients, fullRange ? 1 : 0,
                                 sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
        colorspace_ = colorspace;
        fullRange_ = fullRange ? 1 : 0;
    }

    // Bottom-up rows: start at the last row and step backwards.
    const int stride = width_ * 4;
    uint8_t* planes[4] = {out + static_cast<size_t>(height_ - 1) * stride, nullptr, nullptr,
                          nullptr};
    const int strides[4] = {-stride, 0, 0, 0};
    return sws_scale(context_.get(), frame->data, frame->linesize, 0, frame->height, planes,
                     strides) == height_;
}

}  // namespace vexel::decodehost
