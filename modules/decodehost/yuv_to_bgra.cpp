#include "yuv_to_bgra.h"

#include <cmath>
#include <libyuv/convert_argb.h>
#include <libyuv/row.h>

namespace vexel::decodehost {

namespace {

// libyuv caps the blue weight of its limited-range matrices at 2.0 (128 in 1/64ths): saturated
// blues come out up to 13 levels dark in BT.709 and 16 in BT.2020. On x86 the weight is an
// unsigned byte the conversion rows take as it is, so a copy with the exact weight restores them;
// elsewhere those two matrices are left to libswscale.
#if defined(__x86_64__) || defined(__i386__)
libyuv::YuvConstants WithBlueWeight(const libyuv::YuvConstants& base, double kb) {
    libyuv::YuvConstants exact = base;
    const double weight = 2.0 * (1.0 - kb) * 255.0 / 224.0 * 64.0;
    for (size_t i = 0; i < sizeof exact.kUVToB; i += 2)
        exact.kUVToB[i] = static_cast<uint8_t>(std::lround(weight));
    return exact;
}
const libyuv::YuvConstants* Exact709() {
    static const libyuv::YuvConstants matrix = WithBlueWeight(libyuv::kYuvH709Constants, 0.0722);
    return &matrix;
}
const libyuv::YuvConstants* Exact2020() {
    static const libyuv::YuvConstants matrix = WithBlueWeight(libyuv::kYuv2020Constants, 0.0593);
    return &matrix;
}
#else
const libyuv::YuvConstants* Exact709() { return nullptr; }
const libyuv::YuvConstants* Exact2020() { return nullptr; }
#endif

// libyuv's ARGB is B, G, R, A in memory: the delivered format as it is. BT.601's capped weight
// (2.017) is off by under 2 levels and is used as libyuv has it.
const libyuv::YuvConstants* Matrix(const AVFrame& frame, bool fullRange) {
    switch (frame.colorspace) {
        case AVCOL_SPC_UNSPECIFIED:
        case AVCOL_SPC_BT470BG:
        case AVCOL_SPC_SMPTE170M:
            return fullRange ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants;
        case AVCOL_SPC_BT709:
            return fullRange ? &libyuv::kYuvF709Constants : Exact709();
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL:
            return fullRange ? &libyuv::kYuvV2020Constants : Exact2020();
        default:
            return nullptr;  // FCC, SMPTE 240M and the rest: libswscale knows them
    }
}

bool IsFullRangeFormat(int format) {
    return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P ||
           format == AV_PIX_FMT_YUVJ444P;
}

const uint16_t* Plane16(const AVFrame& frame, int plane) {
    return reinterpret_cast<const uint16_t*>(frame.data[plane]);
}

}  // namespace

bool YuvToBottomUpBgra(const AVFrame& frame, uint8_t* out) {
    const bool fullRange = frame.color_range == AVCOL_RANGE_JPEG || IsFullRangeFormat(frame.format);
    const libyuv::YuvConstants* m = Matrix(frame, fullRange);
    if (m == nullptr) return false;

    const uint8_t* const* d = frame.data;
    const int* s = frame.linesize;
    const int w = frame.width;
    const int h = -frame.height;  // a negative height writes the rows bottom-up
    const int stride = w * 4;
    // The 16-bit functions count their strides in samples.
    const int s0 = s[0] / 2, s1 = s[1] / 2, s2 = s[2] / 2;
    switch (frame.format) {
        case AV_PIX_FMT_YUV420P:
        case AV_PIX_FMT_YUVJ420P:
            return libyuv::I420ToARGBMatrix(d[0], s[0], d[1], s[1], d[2], s[2], out, stride, m, w,
                                            h) == 0;
        case AV_PIX_FMT_YUV422P:
        case AV_PIX_FMT_YUVJ422P:
            return libyuv::I422ToARGBMatrix(d[0], s[0], d[1], s[1], d[2], s[2], out, stride, m, w,
                                            h) == 0;
        case AV_PIX_FMT_YUV444P:
        case AV_PIX_FMT_YUVJ444P:
            return libyuv::I444ToARGBMatrix(d[0], s[0], d[1], s[1], d[2], s[2], out, stride, m, w,
                                            h) == 0;
        case AV_PIX_FMT_NV12:
            return libyuv::NV12ToARGBMatrix(d[0], s[0], d[1], s[1], out, stride, m, w, h) == 0;
        case AV_PIX_FMT_NV21:
            return libyuv::NV21ToARGBMatrix(d[0], s[0], d[1], s[1], out, stride, m, w, h) == 0;
        case AV_PIX_FMT_YUV420P10LE:
        case AV_PIX_FMT_YUV422P10LE:
        case AV_PIX_FMT_YUV444P10LE:
        case AV_PIX_FMT_YUV420P12LE: {
            const auto convert = frame.format == AV_PIX_FMT_YUV420P10LE   ? libyuv::I010ToARGBMatrix
                                 : frame.format == AV_PIX_FMT_YUV422P10LE ? libyuv::I210ToARGBMatrix
                                 : frame.format == AV_PIX_FMT_YUV444P10LE
                                     ? libyuv::I410ToARGBMatrix
                                     : libyuv::I012ToARGBMatrix;
            return convert(Plane16(frame, 0), s0, Plane16(frame, 1), s1, Plane16(frame, 2), s2, out,
                           stride, m, w, h) == 0;
        }
        case AV_PIX_FMT_P010LE:
            return libyuv::P010ToARGBMatrix(Plane16(frame, 0), s0, Plane16(frame, 1), s1, out,
                                            stride, m, w, h) == 0;
        case AV_PIX_FMT_P210LE:
            return libyuv::P210ToARGBMatrix(Plane16(frame, 0), s0, Plane16(frame, 1), s1, out,
                                            stride, m, w, h) == 0;
        default:
            return false;
    }
}

}  // namespace vexel::decodehost
