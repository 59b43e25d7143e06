// The video stream of a generated clip with its decoder, for the tests that drive the module's
// parts directly.
#pragma once

#include <memory>

#include "decodehost_test_support.h"
#include "stream_decoder.h"

namespace vexel::decodehost_test {

struct VideoStream {
    std::unique_ptr<decodehost::MediaFile> file;
    std::unique_ptr<decodehost::StreamDecoder> decoder;  // null when the clip cannot be decoded
};

inline VideoStream OpenVideo(const char* clip) {
    VideoStream opened;
    int error = 0;
    opened.file = decodehost::MediaFile::Open(
        Clip(clip).c_str(), [] { return false; }, &error);
    if (!opened.file) return opened;
    AVFormatContext* context = opened.file->context();
    opened.decoder = decodehost::StreamDecoder::Open(
        *opened.file, av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0));
    return opened;
}

}  // namespace vexel::decodehost_test
