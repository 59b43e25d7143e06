// Side data of a libavformat stream, read and added the same way across FFmpeg versions: FFmpeg
// 6.1 moved it from the stream into its codec parameters (and 7.0 dropped the old calls).
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavformat/avformat.h>
}

namespace mediakit {

#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100)
#define MEDIAKIT_CODEC_SIDE_DATA 1
#endif

// The stream's side data of `type`, or null.
inline const uint8_t* StreamSideData(const AVStream* stream, AVPacketSideDataType type) {
#ifdef MEDIAKIT_CODEC_SIDE_DATA
    const AVPacketSideData* data = av_packet_side_data_get(
        stream->codecpar->coded_side_data, stream->codecpar->nb_coded_side_data, type);
    return data != nullptr ? data->data : nullptr;
#else
    return av_stream_get_side_data(stream, type, nullptr);
#endif
}

// Attaches `data` (from av_malloc, `size` bytes) to the stream, which takes it over, also on
// failure (false).
inline bool AddStreamSideData(AVStream* stream, AVPacketSideDataType type, uint8_t* data,
                              size_t size) {
#ifdef MEDIAKIT_CODEC_SIDE_DATA
    if (av_packet_side_data_add(&stream->codecpar->coded_side_data,
                                &stream->codecpar->nb_coded_side_data, type, data, size,
                                0) != nullptr) {
        return true;
    }
    av_free(data);
    return false;
#else
    if (av_stream_add_side_data(stream, type, data, size) >= 0) return true;
    av_free(data);
    return false;
#endif
}

}  // namespace mediakit
