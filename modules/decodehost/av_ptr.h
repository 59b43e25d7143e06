// Owning pointers for the FFmpeg objects the codec host keeps, and the FFmpeg headers it uses.
//
// Threads: each owner is used by one thread at a time.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace vexel::decodehost {

struct FormatCloser {
    void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
};
struct CodecCloser {
    void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
};
struct FrameFreer {
    void operator()(AVFrame* p) const { av_frame_free(&p); }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsFreer {
    void operator()(SwsContext* p) const { sws_freeContext(p); }
};
struct SwrFreer {
    void operator()(SwrContext* p) const { swr_free(&p); }
};

using FormatPtr = std::unique_ptr<AVFormatContext, FormatCloser>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecCloser>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using SwsPtr = std::unique_ptr<SwsContext, SwsFreer>;
using SwrPtr = std::unique_ptr<SwrContext, SwrFreer>;

}  // namespace vexel::decodehost
