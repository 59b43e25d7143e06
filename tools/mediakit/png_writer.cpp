#include "png_writer.h"

#include <cstdio>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace mediakit {

bool WritePng(const std::string& path, const Canvas& canvas, std::string* error) {
    auto fail = [&](const char* what) {
        if (error != nullptr) *error = std::string(what) + " (" + path + ")";
        return false;
    };
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (codec == nullptr) return fail("no PNG encoder in this libavcodec");

    std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> context(
        avcodec_alloc_context3(codec), [](AVCodecContext* c) { avcodec_free_context(&c); });
    std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(),
                                                       [](AVFrame* f) { av_frame_free(&f); });
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                          [](AVPacket* p) { av_packet_free(&p); });
    if (!context || !frame || !packet) return fail("out of memory");
    context->width = canvas.width;
    context->height = canvas.height;
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = {1, 1};
    if (avcodec_open2(context.get(), codec, nullptr) < 0)
        return fail("cannot open the PNG encoder");

    frame->format = AV_PIX_FMT_RGB24;
    frame->width = canvas.width;
    frame->height = canvas.height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) return fail("out of memory");
    for (int y = 0; y < canvas.height; ++y) {
        const uint32_t* in = canvas.row(y);
        uint8_t* out = frame->data[0] + static_cast<size_t>(y) * frame->linesize[0];
        for (int x = 0; x < canvas.width; ++x) {
            out[3 * x] = static_cast<uint8_t>(in[x] >> 16);
            out[3 * x + 1] = static_cast<uint8_t>(in[x] >> 8);
            out[3 * x + 2] = static_cast<uint8_t>(in[x]);
        }
    }
    frame->pts = 0;
    if (avcodec_send_frame(context.get(), frame.get()) < 0 ||
        avcodec_send_frame(context.get(), nullptr) < 0 ||
        avcodec_receive_packet(context.get(), packet.get()) < 0) {
        return fail("PNG encoding failed");
    }

    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return fail("cannot create the file");
    const bool written = std::fwrite(packet->data, 1, static_cast<size_t>(packet->size), file) ==
                         static_cast<size_t>(packet->size);
    return (std::fclose(file) == 0 && written) || fail("cannot write the file");
}

}  // namespace mediakit
