// Decoded pictures to the delivered bottom-up B,G,R,A at 3840x1920, per pixel format: the decoder
// module's converter (libyuv) against libswscale at the same size, the path it replaced (bilinear
// context, limited-range BT.709 details, rows written backwards). One core each.
#include <benchmark/benchmark.h>

#include <vector>

#include "video_converter.h"

namespace {

using vexel::decodehost::FramePtr;
using vexel::decodehost::SwsPtr;
using vexel::decodehost::VideoConverter;

constexpr int kWidth = 3840;
constexpr int kHeight = 1920;

// A mid-grey BT.709 picture with a little texture; the conversion cost does not depend on content.
FramePtr Picture(AVPixelFormat format) {
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->width = kWidth;
    frame->height = kHeight;
    frame->colorspace = AVCOL_SPC_BT709;
    frame->color_range = AVCOL_RANGE_MPEG;
    if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
    for (int p = 0; p < 4 && frame->buf[p] != nullptr; ++p) {
        for (size_t i = 0; i < frame->buf[p]->size; ++i)
            frame->buf[p]->data[i] = static_cast<uint8_t>(96 + i % 61);
    }
    return frame;
}

void BM_Picture_Libyuv(benchmark::State& state) {
    FramePtr frame = Picture(static_cast<AVPixelFormat>(state.range(0)));
    VideoConverter converter(kWidth, kHeight);
    std::vector<uint8_t> out(converter.bytes());
    for (auto _ : state) {
        if (!converter.Convert(frame.get(), out.data())) state.SkipWithError("conversion failed");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(out.size()));
}

void BM_Picture_Swscale(benchmark::State& state) {
    FramePtr frame = Picture(static_cast<AVPixelFormat>(state.range(0)));
    SwsPtr context(sws_getContext(kWidth, kHeight, static_cast<AVPixelFormat>(frame->format),
                                  kWidth, kHeight, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr,
                                  nullptr));
    sws_setColorspaceDetails(context.get(), sws_getCoefficients(SWS_CS_ITU709), 0,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    std::vector<uint8_t> out(static_cast<size_t>(kWidth) * kHeight * 4);
    const int stride = kWidth * 4;
    uint8_t* planes[4] = {out.data() + static_cast<size_t>(kHeight - 1) * stride};
    const int strides[4] = {-stride};
    for (auto _ : state) {
        sws_scale(context.get(), frame->data, frame->linesize, 0, kHeight, planes, strides);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(out.size()));
}

void Formats(benchmark::internal::Benchmark* b) {
    for (AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_YUV422P,
                                 AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_P010LE}) {
        b->Arg(format);
    }
    b->ArgName("pix_fmt")->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_Picture_Libyuv)->Apply(Formats);
BENCHMARK(BM_Picture_Swscale)->Apply(Formats);
