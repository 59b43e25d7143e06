#include "png_reader.h"

#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace mediakit {

bool ReadPng(const std::string& path, Canvas* canvas, std::string* error) {
    auto fail = [&](const char* what) {
        if (error != nullptr) *error = std::string(what) + " (" + path + ")";
        return false;
    };
    std::ifstream file(path, std::ios::binary);
    if (!file) return fail("cannot open the file");
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                  std::istreambuf_iterator<char>()};
    if (bytes.empty()) return fail("empty file");

    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_PNG);
    if (codec == nullptr) return fail("no PNG decoder in this libavcodec");
    std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> context(
        avcodec_alloc_context3(codec), [](AVCodecContext* c) { avcodec_free_context(&c); });
    std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(),
                                                       [](AVFrame* f) { av_frame_free(&f); });
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                          [](AVPacket* p) { av_packet_free(&p); });
    if (!context || !frame || !packet ||
        av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) {
        return fail("out of memory");
    }
    std::copy(bytes.begin(), bytes.end(), packet->data);
    if (avcodec_open2(context.get(), codec, nullptr) < 0)
        return fail("cannot open the PNG decoder");
    if (avcodec_send_packet(context.get(), packet.get()) < 0 ||
        avcodec_send_packet(context.get(), nullptr) < 0 ||
        avcodec_receive_frame(context.get(), frame.get()) < 0) {
        return fail("not a PNG picture");
    }

    *canvas = Canvas(frame->width, frame->height);
    SwsContext* converter = sws_getContext(
        frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), frame->width,
        frame->height, AV_PIX_FMT_BGRA, SWS_POINT, nullptr, nullptr, nullptr);
    if (converter == nullptr) return fail("cannot convert the picture's pixel format");
    uint8_t* planes[1] = {canvas->bytes()};
    const int strides[1] = {canvas->width * 4};
    sws_scale(converter, frame->data, frame->linesize, 0, frame->height, planes, strides);
    sws_freeContext(converter);
    return true;
}

}  // namespace mediakit
