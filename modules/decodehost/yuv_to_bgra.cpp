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

// One libyuv conversion: `frame` into `out` in matrix `m`, `h` rows (negative: bottom-up).
using ConvertFn = bool (*)(const AVFrame& frame, uint8_t* out, int stride,
                           const libyuv::YuvConstants* m, int h);

// The 16-bit functions count their strides in samples.
template <auto Fn>
bool Planar16(const AVFrame& f, uint8_t* out, int stride, const libyuv::YuvConstants* m, int h) {
    return Fn(Plane16(f, 0), f.linesize[0] / 2, Plane16(f, 1), f.linesize[1] / 2, Plane16(f, 2),
              f.linesize[2] / 2, out, stride, m, f.width, h) == 0;
}
template <auto Fn>
bool SemiPlanar16(const AVFrame& f, uint8_t* out, int stride, const libyuv::YuvConstants* m,
                  int h) {
    return Fn(Plane16(f, 0), f.linesize[0] / 2, Plane16(f, 1), f.linesize[1] / 2, out, stride, m,
              f.width, h) == 0;
}
template <auto Fn>
bool Planar8(const AVFrame& f, uint8_t* out, int stride, const libyuv::YuvConstants* m, int h) {
    return Fn(f.data[0], f.linesize[0], f.data[1], f.linesize[1], f.data[2], f.linesize[2], out,
              stride, m, f.width, h) == 0;
}
template <auto Fn>
bool SemiPlanar8(const AVFrame& f, uint8_t* out, int stride, const libyuv::YuvConstants* m, int h) {
    return Fn(f.data[0], f.linesize[0], f.data[1], f.linesize[1], out, stride, m, f.width, h) == 0;
}

ConvertFn Converter(int format) {
    switch (format) {
        case AV_PIX_FMT_YUV420P:
        case AV_PIX_FMT_YUVJ420P:
            return Planar8<libyuv::I420ToARGBMatrix>;
        case AV_PIX_FMT_YUV422P:
        case AV_PIX_FMT_YUVJ422P:
            return Planar8<libyuv::I422ToARGBMatrix>;
        case AV_PIX_FMT_YUV444P:
        case AV_PIX_FMT_YUVJ444P:
            return Planar8<libyuv::I444ToARGBMatrix>;
        case AV_PIX_FMT_NV12:
            return SemiPlanar8<libyuv::NV12ToARGBMatrix>;
        case AV_PIX_FMT_NV21:
            return SemiPlanar8<libyuv::NV21ToARGBMatrix>;
        case AV_PIX_FMT_YUV420P10LE:
            return Planar16<libyuv::I010ToARGBMatrix>;
        case AV_PIX_FMT_YUV422P10LE:
            return Planar16<libyuv::I210ToARGBMatrix>;
        case AV_PIX_FMT_YUV444P10LE:
            return Planar16<libyuv::I410ToARGBMatrix>;
        case AV_PIX_FMT_YUV420P12LE:
            return Planar16<libyuv::I012ToARGBMatrix>;
        case AV_PIX_FMT_P010LE:
            return SemiPlanar16<libyuv::P010ToARGBMatrix>;
        case AV_PIX_FMT_P210LE:
            return SemiPlanar16<libyuv::P210ToARGBMatrix>;
        default:
            return nullptr;
    }
}

const libyuv::YuvConstants* Matrix(const AVFrame& frame) {
    return Matrix(frame, frame.color_range == AVCOL_RANGE_JPEG || IsFullRangeFormat(frame.format));
}

}  // namespace

bool YuvToBgraHandles(const AVFrame& frame) {
    return Converter(frame.format) != nullptr && Matrix(frame) != nullptr;
}

bool YuvToBgra(const AVFrame& frame, uint8_t* out, int stride, bool bottomUp) {
    const ConvertFn convert = Converter(frame.format);
    const libyuv::YuvConstants* m = Matrix(frame);
    if (convert == nullptr || m == nullptr) return false;
    // A negative height writes the rows bottom-up.
    return convert(frame, out, stride, m, bottomUp ? -frame.height : frame.height);
}

}  // namespace vexel::decodehost
