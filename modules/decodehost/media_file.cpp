#include "media_file.h"

#include <algorithm>
#include <cstring>

#include "input_policy.h"
#include "tick_math.h"

namespace vexel::decodehost {

namespace {

// Network inputs give up after this long without a connection or data instead of waiting for ever.
constexpr char kNetworkTimeoutMicroseconds[] = "15000000";

uint32_t KindOf(const AVStream* stream) {
    if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) return kStreamKindOther;
    switch (stream->codecpar->codec_type) {
        case AVMEDIA_TYPE_VIDEO:
            return kStreamKindVideo;
        case AVMEDIA_TYPE_AUDIO:
            return kStreamKindAudio;
        default:
            return kStreamKindOther;
    }
}

}  // namespace

double StreamFrameRate(AVFormatContext* context, AVStream* stream) {
    const AVRational rate = av_guess_frame_rate(context, stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
}

std::unique_ptr<MediaFile> MediaFile::Open(const char* path, InterruptCheck interrupted,
                                           int* error) {
    *error = CheckInput(path);
    if (*error < 0) return nullptr;
    return OpenInput(path, nullptr, std::move(interrupted), error);
}

std::unique_ptr<MediaFile> MediaFile::Open(AVIOContext* io, InterruptCheck interrupted,
                                           int* error) {
    return OpenInput("", io, std::move(interrupted), error);
}

std::unique_ptr<MediaFile> MediaFile::OpenInput(const char* path, AVIOContext* io,
                                                InterruptCheck interrupted, int* error) {
    std::unique_ptr<MediaFile> file(new MediaFile());
    file->interrupted_ = std::move(interrupted);
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        *error = AVERROR(ENOMEM);
        return nullptr;
    }
    context->interrupt_callback = {&MediaFile::InterruptCallback, file.get()};
    context->flags |= AVFMT_FLAG_DISCARD_CORRUPT;
    if (io != nullptr) {
        context->pb = io;
        context->flags |= AVFMT_FLAG_CUSTOM_IO;
    }

    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", ProtocolWhitelist().c_str(), 0);
    av_dict_set(&options, "rw_timeout", kNetworkTimeoutMicroseconds, 0);
    av_dict_set(&options, "timeout", kNetworkTimeoutMicroseconds, 0);  // connecting, for tcp
    *error = avformat_open_input(&context, path, nullptr, &options);   // frees context on failure
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
    return static_cast<const MediaFile*>(opaque)->interrupted() ? 1 : 0;
}

int64_t MediaFile::ToTicks(int64_t timestamp, AVRational timeBase) const {
    return SubTicks(av_rescale_q(timestamp, timeBase, kTickBase), originTicks_);
}

int64_t MediaFile::FromTicks(int64_t ticks, AVRational timeBase) const {
    return av_rescale_q(AddTicks(ticks, originTicks_), kTickBase, timeBase);
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
            if (stream->start_time != AV_NOPTS_VALUE)
                duration = AddTicks(duration, ToTicks(stream->start_time, stream->time_base));
        } else if (context->duration != AV_NOPTS_VALUE && context->duration > 0) {
            duration = av_rescale_q(context->duration, AV_TIME_BASE_Q, kTickBase);
            // Matroska's (and WebM's) duration is where the segment ends, counted from time zero
            // rather than from the first time stamp: a file that starts late ends that much sooner.
            if (std::strstr(context->iformat->name, "matroska") != nullptr)
                duration = SubTicks(duration, originTicks_);
        }
        entry.durationTicks = duration > 0 ? static_cast<uint64_t>(duration) : 0;

        if (entry.info.kind == kStreamKindVideo) {
            entry.info.width = static_cast<uint32_t>(std::max(params->width, 0));
            entry.info.height = static_cast<uint32_t>(std::max(params->height, 0));
            entry.info.frameRate = StreamFrameRate(context, stream);
            entry.info.duration =
                vexel::ToSeconds(vexel::TicksF(static_cast<double>(entry.durationTicks)));
        } else if (entry.info.kind == kStreamKindAudio) {
            entry.info.channels = static_cast<uint32_t>(std::max(params->ch_layout.nb_channels, 0));
            entry.info.samplesPerSecond = static_cast<uint32_t>(std::max(params->sample_rate, 0));
            entry.info.bitsPerSample = kPcmBits;
        }
        streams_.push_back(entry);
    }
}

}  // namespace vexel::decodehost
