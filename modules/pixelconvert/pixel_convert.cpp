// libPixelConvert.so: YUY2 (BT.709, limited range) or BGRA32 pictures to BGRA32, over libyuv.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/row.h>  // the layout of YuvConstants
#include <new>
#include <vector>

#include "vexel/conversion.h"

namespace {

// Bytes of one packed row; 0 for an unknown format.
uint64_t RowBytes(uint32_t format, uint32_t width) {
    switch (format) {
        case kPixelFormatYuy2:
            return (uint64_t{width} + 1) / 2 * 4;
        case kPixelFormatBgra32:
            return uint64_t{width} * 4;
        default:
            return 0;
    }
}

bool ValidSize(uint32_t width, uint32_t height) {
    return width >= 1 && height >= 1 && width <= kMaxPictureSide && height <= kMaxPictureSide;
}

// A description whose picture can be read or written whole.
int32_t CheckPicture(const PixelBufferDesc& desc) {
    if (desc.data == nullptr) return E_POINTER;
    const uint64_t rowBytes = RowBytes(desc.format, desc.width);
    if (rowBytes == 0 || !ValidSize(desc.width, desc.height)) return E_INVALIDARG;
    // libyuv takes int strides; 2^31 bytes per row is far beyond any accepted width.
    if (desc.stride < rowBytes || desc.stride > INT32_MAX) return E_INVALIDARG;
    return S_OK;
}

// libyuv's BT.709 table caps the U-to-blue coefficient at 2.0 (128/64) unless the library was built
// for unlimited data, which leaves saturated blues and yellows some 12 levels off. The exact 2.112
// (135/64) only saturates where the result clips to 255 anyway; with it every 8-bit input lands
// within one level of the matrix.
const libyuv::YuvConstants* Bt709Constants() {
    alignas(64) static const libyuv::YuvConstants constants = [] {
        libyuv::YuvConstants c;
        std::memcpy(&c, &libyuv::kYuvH709Constants, sizeof c);
        for (size_t i = 0; i < sizeof c.kUVToB; i += 2)
            c.kUVToB[i] = 135;  // (U, V) pairs; V adds no blue
        return c;
    }();
    return &constants;
}

// YUY2 has no direct converter with a selectable matrix, so it goes through a few rows of planar
// 4:2:2 at a time; the strip stays in cache between the two passes.
int32_t Yuy2ToBgra(const PixelBufferDesc& source, const PixelBufferDesc& destination) {
    constexpr uint32_t kStripRows = 16;
    const int width = static_cast<int>(source.width);
    const int chromaWidth = (width + 1) / 2;
    std::vector<uint8_t> strip;
    try {
        strip.resize(size_t{kStripRows} * (static_cast<size_t>(width) + 2 * chromaWidth));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    uint8_t* y = strip.data();
    uint8_t* u = y + size_t{kStripRows} * width;
    uint8_t* v = u + size_t{kStripRows} * chromaWidth;
    for (uint32_t row = 0; row < source.height; row += kStripRows) {
        const int rows = static_cast<int>(std::min(kStripRows, source.height - row));
        const uint8_t* in = source.data + size_t{row} * source.stride;
        uint8_t* out = destination.data + size_t{row} * destination.stride;
        if (libyuv::YUY2ToI422(in, static_cast<int>(source.stride), y, width, u, chromaWidth, v,
                               chromaWidth, width, rows) != 0 ||
            libyuv::I422ToARGBMatrix(y, width, u, chromaWidth, v, chromaWidth, out,
                                     static_cast<int>(destination.stride), Bt709Constants(), width,
                                     rows) != 0) {
            return E_INVALIDARG;
        }
    }
    return S_OK;
}

}  // namespace

extern "C" {

uint32_t CalculateBufferSize(const PixelBufferDesc* desc) {
    if (desc == nullptr || !ValidSize(desc->width, desc->height)) return 0;
    // At most 16384 x 4 x 16384 = 2^30 bytes, so the result fits.
    return static_cast<uint32_t>(RowBytes(desc->format, desc->width) * desc->height);
}

int32_t CalculatePlanePointer(PixelBufferDesc* desc) {
    if (desc == nullptr) return E_POINTER;
    if (RowBytes(desc->format, desc->width) == 0) return E_INVALIDARG;
    // Both formats are packed: one plane.
    desc->planes[0] = desc->data;
    desc->planes[1] = nullptr;
    return desc->data == nullptr ? E_POINTER : S_OK;
}

int32_t ConvertBuffers(const PixelBufferDesc* source, const PixelBufferDesc* destination) {
    if (source == nullptr || destination == nullptr) return E_POINTER;
    for (const PixelBufferDesc* desc : {source, destination}) {
        if (const int32_t status = CheckPicture(*desc); status != S_OK) return status;
    }
    if (destination->format != kPixelFormatBgra32 || source->width != destination->width ||
        source->height != destination->height) {
        return E_INVALIDARG;
    }
    if (source->format == kPixelFormatYuy2) return Yuy2ToBgra(*source, *destination);
    const int status =
        libyuv::ARGBCopy(source->data, static_cast<int>(source->stride), destination->data,
                         static_cast<int>(destination->stride), static_cast<int>(source->width),
                         static_cast<int>(source->height));
    return status == 0 ? S_OK : E_INVALIDARG;
}

}  // extern "C"
