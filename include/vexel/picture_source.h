// IPictureSource: a decoded picture that converts itself to 32-bit pixels on demand. Vexel's own
// decoder module offers it on its video samples (QueryInterface on the IPushSample handed to Push)
// when it can convert the picture at the stream's size straight into any buffer; the player then
// keeps the reference and converts the picture only when it draws the frame, into a buffer of its
// own, so the decoded queue holds compact YUV pictures instead of 32-bit ones. Samples that do not
// answer it are read through GetBuffer as every codec host's are.
//
// The object holds its own reference on the decoded picture: it stays valid after Push returns
// and after the reader that made it is gone, until its last Release, which must come before the
// decoder module is unloaded.
//
// Threads: WriteTopDown may be called from any thread, from several at once; the picture is only
// read.
//
// Compiles as C++17 and later.
#ifndef VEXEL_PICTURE_SOURCE_H
#define VEXEL_PICTURE_SOURCE_H

#include <cstdint>

#include "vexel/codec_host.h"

inline constexpr GUID IID_PictureSource = {
    0xC7EAFB29, 0xCBDD, 0x4E8E, {0xB8, 0xAA, 0x75, 0x45, 0xD7, 0x9B, 0xE6, 0x7F}};

struct IPictureSource : virtual IVexelBase {
    // Writes the picture as B, G, R, A bytes, top row first, `stride` bytes from one row to the
    // next. S_OK; E_INVALIDARG when `dst` is null, the size is not the picture's or the stride is
    // shorter than a row; E_FAIL when the conversion fails.
    virtual int32_t WriteTopDown(uint8_t* dst, uint32_t stride, uint32_t width,
                                 uint32_t height) = 0;
};

#endif  // VEXEL_PICTURE_SOURCE_H
