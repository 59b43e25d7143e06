#include "memory_decode.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "audio_converter.h"
#include "media_file.h"
#include "stream_decoder.h"
#include "video_converter.h"

namespace vexel::decodehost {

namespace {

constexpr int kIoBufferBytes = 4096;

// The bytes of the file and the read position, for libavformat's I/O callbacks.
struct MemoryInput {
    const uint8_t* data;
    int64_t size;
    int64_t position = 0;

    static int Read(void* opaque, uint8_t* buffer, int capacity) {
        auto* in = static_cast<MemoryInput*>(opaque);
        const int64_t count = std::min<int64_t>(capacity, in->size - in->position);
        if (count <= 0) return AVERROR_EOF;
        std::memcpy(buffer, in->data + in->position, static_cast<size_t>(count));
        in->position += count;
        return static_cast<int>(count);
    }

    static int64_t Seek(void* opaque, int64_t offset, int whence) {
        auto* in = static_cast<MemoryInput*>(opaque);
        int64_t base = 0;
        switch (whence & ~AVSEEK_FORCE) {
            case AVSEEK_SIZE:
                return in->size;
            case SEEK_SET:
                base = 0;
                break;
            case SEEK_CUR:
                base = in->position;
                break;
            case SEEK_END:
                base = in->size;
                break;
            default:
                return AVERROR(EINVAL);
        }
        if (offset < -base || offset > in->size - base) return AVERROR(EINVAL);
        in->position = base + offset;
        return in->position;
    }
};

struct IoCloser {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};

// Decodes up to `frames` frames from where the decoder stands, converting each; the count.
int DecodePass(StreamDecoder& decoder, VideoConverter* video, AudioConverter* audio, int frames,
               const MediaFile& file, std::vector<uint8_t>& buffer) {
    int decoded = 0;
    int64_t ticks = 0;
    while (decoded < frames && !file.interrupted()) {
        AVFrame* frame = decoder.Next(&ticks);
        if (frame == nullptr) break;
        ++decoded;
        if (video != nullptr) {
            buffer.resize(video->bytes());
            video->Convert(frame, buffer.data());
        } else {
            audio->Convert(frame, buffer);
        }
    }
    return decoded;
}

}  // namespace

DecodeSummary DecodeMemory(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    DecodeSummary summary;
    const auto deadline = std::chrono::steady_clock::now() + limits.time;
    MemoryInput input{data, static_cast<int64_t>(size)};
    auto* ioBuffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    if (ioBuffer == nullptr) return summary;
    std::unique_ptr<AVIOContext, IoCloser> io(avio_alloc_context(
        ioBuffer, kIoBufferBytes, 0, &input, &MemoryInput::Read, nullptr, &MemoryInput::Seek));
    if (!io) {
        av_free(ioBuffer);
        return summary;
    }

    int error = 0;
    std::unique_ptr<MediaFile> file = MediaFile::Open(
        io.get(), [deadline] { return std::chrono::steady_clock::now() > deadline; }, &error);
    if (!file) return summary;
    summary.opened = true;

    std::vector<uint8_t> buffer;
    for (size_t index = 0; index < file->streams().size() && !file->interrupted(); ++index) {
        const StreamEntry& entry = file->streams()[index];
        if (entry.info.kind != kStreamKindVideo && entry.info.kind != kStreamKindAudio) continue;
        auto decoder = StreamDecoder::Open(*file, static_cast<int>(index));
        if (!decoder) continue;
        AVCodecContext* codec = decoder->codec();
        codec->max_pixels = limits.maxPixels;  // checked as each picture is allocated
        std::unique_ptr<VideoConverter> video;
        std::unique_ptr<AudioConverter> audio;
        if (entry.info.kind == kStreamKindVideo) {
            if (codec->width <= 0 || codec->height <= 0 ||
                int64_t{codec->width} * codec->height > limits.maxPixels) {
                continue;
            }
            video = std::make_unique<VideoConverter>(codec->width, codec->height);
        } else {
            if (codec->ch_layout.nb_channels <= 0 || codec->sample_rate <= 0) continue;
            audio =
                std::make_unique<AudioConverter>(codec->ch_layout.nb_channels, codec->sample_rate);
        }
        ++summary.streams;
        // From the start, then from the middle, as a play and a seek would.
        decoder->Seek(0);
        summary.frames +=
            DecodePass(*decoder, video.get(), audio.get(), limits.framesPerPass, *file, buffer);
        decoder->Seek(static_cast<int64_t>(entry.durationTicks / 2));
        if (audio) audio->Reset();
        summary.frames +=
            DecodePass(*decoder, video.get(), audio.get(), limits.framesPerPass, *file, buffer);
    }
    return summary;
}

}  // namespace vexel::decodehost
