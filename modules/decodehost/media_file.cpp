#include "media_file.h"

#include <algorithm>

namespace decodehost {

namespace {

// Network inputs give up after this long without data instead of waiting for ever.
constexpr char kReadTimeoutMicroseconds[] = "15000000";

uint32_t KindOf(const AVStream* stream) {
    if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) return kStreamKindOther;
    switch (stream->codecpar->codec_type) {
        case AVMEDIA_TYPE_VIDEO: return kStreamKindVideo;
        case AVMEDIA_TYPE_AUDIO: return kStreamKindAudio;
        default: return kStreamKindOther;
    }
}

}  // namespace

double StreamFrameRate(AVFormatContext* context, AVStream* stream) {
    const AVRational rate = av_guess_frame_rate(context, stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
}

std::unique_ptr<MediaFile> MediaFile::Open(const char* path, const std::atomic<bool>* abort,
                                           int* error) {
    *error = AVERROR(EINVAL);
    if (path == nullptr || *path == '\0') return nullptr;

    std::unique_ptr<MediaFile> file(new MediaFile());
    file->abort_ = abort;
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        *error = AVERROR(ENOMEM);
        return nullptr;
    }
    context->interrupt_callback = {&MediaFile::InterruptCallback, file.get()};
    context->flags |= AVFMT_FLAG_DISCARD_CORRUPT;

    AVDictionary* options = nullptr;
    av_dict_set(&options, "rw_timeout", kReadTimeoutMicroseconds, 0);
    *error = avformat_open_input(&context, path, nullptr, &options);  // frees context on failure
    av_dict_free(&options);
    if (*error < 0) return nullptr;
    file->context_.reset(context);

    *error = avformat_find_stream_info(context, nullptr);
    if (*error < 0) return nullptr;
    file->Describe();
    *error = 0;
    return file;
}

int MediaFile::InterruptCallback(void* opaque) {
    const auto* file = static_cast<const MediaFile*>(opaque);
    return file->abort_ != nullptr && file->abort_->load() ? 1 : 0;
}

int64_t MediaFile::ToTicks(int64_t timestamp, AVRational timeBase) const {
    return av_rescale_q(timestamp, timeBase, kTickBase) - originTicks_;
}

int64_t MediaFile::FromTicks(int64_t ticks, AVRational timeBase) const {
    return av_rescale_q(ticks + originTicks_, kTickBase, timeBase);
}

void MediaFile::Describe() {
    AVFormatContext* context = context_.get();
    if (context->start_time != AV_NOPTS_VALUE) {
        originTicks_ = av_rescale_q(context->start_time, AV_TIME_BASE_Q, kTickBase);
    }
    streams_.clear();
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        AVStream* stream = context->streams[i];
        const AVCodecParameters* params = stream->codecpar;
        StreamEntry entry;
        entry.info.kind = KindOf(stream);

        // The duration counts from the file's start, so the last frame's time lies inside it.
        int64_t duration = 0;
        if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
            duration = av_rescale_q(stream->duration, stream->time_base, kTickBase);
            if (stream->start_time != AV_NOPTS_VALUE) duration += ToTicks(stream->start_time, stream->time_base);
        } else if (context->duration != AV_NOPTS_VALUE && context->duration > 0) {
            duration = av_rescale_q(context->duration, AV_TIME_BASE_Q, kTickBase);
        }
        entry.durationTicks = duration > 0 ? static_cast<uint64_t>(duration) : 0;

        if (entry.info.kind == kStreamKindVideo) {
            entry.info.width = static_cast<uint32_t>(std::max(params->width, 0));
            entry.info.height = static_cast<uint32_t>(std::max(params->height, 0));
            entry.info.frameRate = StreamFrameRate(context, stream);
            entry.info.duration = vexel::ToSeconds(vexel::TicksF(static_cast<double>(entry.durationTicks)));
        } else if (entry.info.kind == kStreamKindAudio) {
            entry.info.channels = static_cast<uint32_t>(std::max(params->ch_layout.nb_channels, 0));
            entry.info.samplesPerSecond = static_cast<uint32_t>(std::max(params->sample_rate, 0));
            entry.info.bitsPerSample = kPcmBits;
        }
        streams_.push_back(entry);
    }
}

}  // namespace decodehost
