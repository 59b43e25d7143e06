#include "media_writer.h"

#include <algorithm>
#include <string>
#include <vector>

#include "stream_side_data.h"
#include "vexel/ticks.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace mediakit {

namespace {

constexpr AVRational kTickBase = {1, static_cast<int>(vexel::kTicksPerSecond)};
constexpr AVRational kVideoBase = {1, 90'000};

std::string AvError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

}  // namespace

struct MediaWriter::State {
    AVFormatContext* format = nullptr;
    AVCodecContext* video = nullptr;
    AVCodecContext* audio = nullptr;
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    SwsContext* scaler = nullptr;
    SwrContext* resampler = nullptr;
    AVAudioFifo* fifo = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    int64_t audioPts = 0;
    int64_t videoStart = 0;  // ticks added to every picture's time
    bool headerWritten = false;
    bool finished = false;
    std::string error;

    ~State() {
        if (format != nullptr) {
            if (!(format->oformat->flags & AVFMT_NOFILE)) avio_closep(&format->pb);
            avformat_free_context(format);
        }
        avcodec_free_context(&video);
        avcodec_free_context(&audio);
        sws_freeContext(scaler);
        swr_free(&resampler);
        if (fifo != nullptr) av_audio_fifo_free(fifo);
        av_frame_free(&frame);
        av_packet_free(&packet);
    }

    bool Fail(const std::string& what, int code = 0) {
        error = code != 0 ? what + ": " + AvError(code) : what;
        return false;
    }

    bool OpenVideo(const VideoSettings& settings);
    bool TagVideo(const SphericalTag& tag);
    bool OpenAudio(const AudioSettings& settings);
    bool Send(AVCodecContext* codec, AVStream* stream, const AVFrame* input);
    bool EncodeAudio(bool flush);
};

bool MediaWriter::State::OpenVideo(const VideoSettings& s) {
    const AVCodec* codec = avcodec_find_encoder_by_name(s.vp9 ? "libvpx-vp9" : "libx264");
    if (codec == nullptr) codec = avcodec_find_encoder(s.vp9 ? AV_CODEC_ID_VP9 : AV_CODEC_ID_H264);
    if (codec == nullptr)
        return Fail(s.vp9 ? "no VP9 encoder in this libavcodec"
                          : "no H.264 encoder in this libavcodec");
    videoStart = s.startTicks;
    video = avcodec_alloc_context3(codec);
    if (video == nullptr) return Fail("out of memory");
    video->width = s.width;
    video->height = s.height;
    video->pix_fmt = AV_PIX_FMT_YUV420P;
    video->time_base = kVideoBase;
    video->framerate = {s.fps, 1};
    video->gop_size = s.keyframeInterval;
    video->keyint_min = s.keyframeInterval;
    video->thread_count = s.threads;
    video->colorspace = AVCOL_SPC_SMPTE170M;  // what libswscale's default conversion produces
    video->color_range = AVCOL_RANGE_MPEG;
    if (format->oformat->flags & AVFMT_GLOBALHEADER) video->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", s.preset, 0);
    av_dict_set_int(&options, "crf", s.quality, 0);
    av_dict_set(&options, "x264-params", "scenecut=0", 0);  // keyframes exactly every interval
    if (s.vp9) {  // fast, and no hidden reference pictures: one packet a picture
        av_dict_set(&options, "deadline", "realtime", 0);
        av_dict_set(&options, "cpu-used", "8", 0);
        av_dict_set(&options, "lag-in-frames", "0", 0);
        av_dict_set(&options, "b", "0", 0);
    }
    const int status = avcodec_open2(video, codec, &options);
    av_dict_free(&options);
    if (status < 0) return Fail("cannot open the picture encoder", status);

    videoStream = avformat_new_stream(format, nullptr);
    if (videoStream == nullptr) return Fail("out of memory");
    videoStream->time_base = kVideoBase;
    avcodec_parameters_from_context(videoStream->codecpar, video);
    if (!TagVideo(s.tag)) return false;
    scaler = sws_getContext(s.width, s.height, AV_PIX_FMT_BGRA, s.width, s.height,
                            AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
    return scaler != nullptr || Fail("cannot convert pictures to YUV");
}

bool MediaWriter::State::TagVideo(const SphericalTag& tag) {
    if (tag.spherical) {
        size_t size = 0;
        AVSphericalMapping* mapping = av_spherical_alloc(&size);
        if (mapping == nullptr) return Fail("out of memory");
        mapping->projection = AV_SPHERICAL_EQUIRECTANGULAR;
        if (!AddStreamSideData(videoStream, AV_PKT_DATA_SPHERICAL,
                               reinterpret_cast<uint8_t*>(mapping), size)) {
            return Fail("cannot tag the picture track as spherical");
        }
    }
    if (tag.stereo == Stereo::TopBottom || tag.stereo == Stereo::SideBySide) {
        AVStereo3D* stereo = av_stereo3d_alloc();
        if (stereo == nullptr) return Fail("out of memory");
        stereo->type =
            tag.stereo == Stereo::TopBottom ? AV_STEREO3D_TOPBOTTOM : AV_STEREO3D_SIDEBYSIDE;
        if (!AddStreamSideData(videoStream, AV_PKT_DATA_STEREO3D,
                               reinterpret_cast<uint8_t*>(stereo), sizeof *stereo)) {
            return Fail("cannot tag the picture track as stereo");
        }
    }
    // The MP4 writer stores these boxes only when told that unofficial extensions are welcome.
    if (tag.spherical || tag.stereo != Stereo::Mono)
        format->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    return true;
}

bool MediaWriter::State::OpenAudio(const AudioSettings& s) {
    const AVCodec* codec =
        s.opus ? avcodec_find_encoder_by_name("libopus") : avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr)
        return Fail(s.opus ? "no Opus encoder in this libavcodec"
                           : "no AAC encoder in this libavcodec");
    audio = avcodec_alloc_context3(codec);
    if (audio == nullptr) return Fail("out of memory");
    av_channel_layout_default(&audio->ch_layout, s.channels);
    audio->sample_rate = s.rate;
    // Planar floats where the encoder takes them (AAC), interleaved ones otherwise (libopus).
    audio->sample_fmt = AV_SAMPLE_FMT_FLTP;
    if (codec->sample_fmts != nullptr) {
        bool planar = false;
        for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
            planar |= *f == AV_SAMPLE_FMT_FLTP;
        if (!planar) audio->sample_fmt = AV_SAMPLE_FMT_FLT;
    }
    audioPts = av_rescale_q(s.startTicks, kTickBase, {1, s.rate});
    audio->bit_rate = 64000 * s.channels;
    audio->time_base = {1, s.rate};
    if (format->oformat->flags & AVFMT_GLOBALHEADER) audio->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    int status = avcodec_open2(audio, codec, nullptr);
    if (status < 0) return Fail("cannot open the AAC encoder", status);

    audioStream = avformat_new_stream(format, nullptr);
    if (audioStream == nullptr) return Fail("out of memory");
    audioStream->time_base = audio->time_base;
    avcodec_parameters_from_context(audioStream->codecpar, audio);

    status = swr_alloc_set_opts2(&resampler, &audio->ch_layout, audio->sample_fmt, s.rate,
                                 &audio->ch_layout, AV_SAMPLE_FMT_S16, s.rate, 0, nullptr);
    if (status < 0 || swr_init(resampler) < 0) return Fail("cannot convert the sound", status);
    fifo = av_audio_fifo_alloc(audio->sample_fmt, s.channels, audio->frame_size);
    return fifo != nullptr || Fail("out of memory");
}

bool MediaWriter::State::Send(AVCodecContext* codec, AVStream* stream, const AVFrame* input) {
    int status = avcodec_send_frame(codec, input);
    if (status < 0) return Fail("encoding failed", status);
    for (;;) {
        status = avcodec_receive_packet(codec, packet);
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return true;
        if (status < 0) return Fail("encoding failed", status);
        // Without a duration the last picture would fall outside the track's length.
        if (packet->duration == 0 && codec == video) {
            packet->duration = av_rescale_q(1, av_inv_q(video->framerate), video->time_base);
        }
        av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
        packet->stream_index = stream->index;
        status = av_interleaved_write_frame(format, packet);
        if (status < 0) return Fail("writing failed", status);
    }
}

bool MediaWriter::State::EncodeAudio(bool flush) {
    const int frameSize = audio->frame_size > 0 ? audio->frame_size : 1024;
    while (av_audio_fifo_size(fifo) >= frameSize || (flush && av_audio_fifo_size(fifo) > 0)) {
        av_frame_unref(frame);
        frame->nb_samples = std::min(frameSize, av_audio_fifo_size(fifo));
        frame->format = audio->sample_fmt;
        frame->sample_rate = audio->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &audio->ch_layout);
        if (av_frame_get_buffer(frame, 0) < 0) return Fail("out of memory");
        av_audio_fifo_read(fifo, reinterpret_cast<void**>(frame->data), frame->nb_samples);
        frame->pts = audioPts;
        audioPts += frame->nb_samples;
        if (!Send(audio, audioStream, frame)) return false;
    }
    return true;
}

MediaWriter::MediaWriter() : state_(std::make_unique<State>()) {}
MediaWriter::~MediaWriter() = default;

const std::string& MediaWriter::error() const { return state_->error; }

std::string MediaWriter::videoEncoder() const {
    return state_->video != nullptr ? state_->video->codec->name : "";
}

bool MediaWriter::Open(const std::string& path, const VideoSettings& video,
                       const AudioSettings& audio, bool indexFirst) {
    State& s = *state_;
    int status = avformat_alloc_output_context2(&s.format, nullptr, nullptr, path.c_str());
    if (status < 0 || s.format == nullptr)
        return s.Fail("unknown output format for " + path, status);
    s.frame = av_frame_alloc();
    s.packet = av_packet_alloc();
    if (s.frame == nullptr || s.packet == nullptr) return s.Fail("out of memory");
    if (video.width > 0 && !s.OpenVideo(video)) return false;
    if (audio.channels > 0 && !s.OpenAudio(audio)) return false;

    if (!(s.format->oformat->flags & AVFMT_NOFILE)) {
        status = avio_open(&s.format->pb, path.c_str(), AVIO_FLAG_WRITE);
        if (status < 0) return s.Fail("cannot create " + path, status);
    }
    AVDictionary* options = nullptr;
    if (indexFirst) av_dict_set(&options, "movflags", "+faststart", 0);
    status = avformat_write_header(s.format, &options);
    av_dict_free(&options);
    if (status < 0) return s.Fail("cannot write " + path, status);
    s.headerWritten = true;
    return true;
}

bool MediaWriter::WriteVideo(const uint8_t* bgra, int stride, int64_t ticks) {
    State& s = *state_;
    if (s.video == nullptr || !s.headerWritten) return s.Fail("no picture track open");
    av_frame_unref(s.frame);
    s.frame->format = AV_PIX_FMT_YUV420P;
    s.frame->width = s.video->width;
    s.frame->height = s.video->height;
    if (av_frame_get_buffer(s.frame, 0) < 0) return s.Fail("out of memory");
    const uint8_t* planes[1] = {bgra};
    const int strides[1] = {stride};
    sws_scale(s.scaler, planes, strides, 0, s.video->height, s.frame->data, s.frame->linesize);
    s.frame->pts = av_rescale_q(ticks + s.videoStart, kTickBase, kVideoBase);
    return s.Send(s.video, s.videoStream, s.frame);
}

bool MediaWriter::WriteAudio(const int16_t* samples, int count) {
    State& s = *state_;
    if (s.audio == nullptr || !s.headerWritten) return s.Fail("no sound track open");
    std::vector<float> floats(static_cast<size_t>(count) * s.audio->ch_layout.nb_channels);
    const bool planar = av_sample_fmt_is_planar(s.audio->sample_fmt);
    std::vector<uint8_t*> out(planar ? static_cast<size_t>(s.audio->ch_layout.nb_channels) : 1);
    for (size_t c = 0; c < out.size(); ++c)
        out[c] = reinterpret_cast<uint8_t*>(floats.data() + c * count);
    const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(samples)};
    const int converted = swr_convert(s.resampler, out.data(), count, in, count);
    if (converted < 0) return s.Fail("cannot convert the sound", converted);
    if (av_audio_fifo_write(s.fifo, reinterpret_cast<void**>(out.data()), converted) < converted) {
        return s.Fail("out of memory");
    }
    return s.EncodeAudio(false);
}

bool MediaWriter::Finish() {
    State& s = *state_;
    if (!s.headerWritten || s.finished) return s.Fail("nothing to finish");
    s.finished = true;
    if (s.audio != nullptr && (!s.EncodeAudio(true) || !s.Send(s.audio, s.audioStream, nullptr)))
        return false;
    if (s.video != nullptr && !s.Send(s.video, s.videoStream, nullptr)) return false;
    const int status = av_write_trailer(s.format);
    if (status < 0) return s.Fail("cannot finish the file", status);
    return true;
}

}  // namespace mediakit
