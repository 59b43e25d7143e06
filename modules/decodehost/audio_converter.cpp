#include "audio_converter.h"

namespace vexel::decodehost {

bool AudioConverter::Configure(const AVFrame* frame) {
    if (context_ && frame->format == inFormat_ && frame->sample_rate == inRate_ &&
        av_channel_layout_compare(&frame->ch_layout, &inLayout_) == 0) {
        return true;
    }
    context_.reset();
    av_channel_layout_uninit(&inLayout_);
    if (av_channel_layout_copy(&inLayout_, &frame->ch_layout) < 0) return false;
    inFormat_ = frame->format;
    inRate_ = frame->sample_rate;

    AVChannelLayout inLayout{};
    if (inLayout_.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&inLayout, inLayout_.nb_channels);  // count only: guess
    } else if (av_channel_layout_copy(&inLayout, &inLayout_) < 0) {
        return false;
    }
    AVChannelLayout outLayout{};
    av_channel_layout_default(&outLayout, channels_);
    SwrContext* context = nullptr;
    const int status =
        swr_alloc_set_opts2(&context, &outLayout, AV_SAMPLE_FMT_S16, rate_, &inLayout,
                            static_cast<AVSampleFormat>(inFormat_), inRate_, 0, nullptr);
    av_channel_layout_uninit(&inLayout);
    av_channel_layout_uninit(&outLayout);
    context_.reset(context);
    if (status < 0 || swr_init(context_.get()) < 0) {
        context_.reset();
        return false;
    }
    return true;
}

int AudioConverter::Convert(const AVFrame* frame, std::vector<uint8_t>& out) {
    if (frame->nb_samples <= 0 || frame->sample_rate <= 0 || frame->ch_layout.nb_channels <= 0) {
        return -1;
    }
    if (!Configure(frame)) return -1;
    const int capacity = swr_get_out_samples(context_.get(), frame->nb_samples);
    if (capacity < 0) return -1;
    out.resize(static_cast<size_t>(capacity) * frameBytes());
    uint8_t* planes[1] = {out.data()};
    const int written =
        swr_convert(context_.get(), planes, capacity,
                    const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
    if (written < 0) return -1;
    out.resize(static_cast<size_t>(written) * frameBytes());
    return written;
}

}  // namespace vexel::decodehost
