#include "stream_decoder.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "decode_priority.h"
#include "tick_math.h"

namespace vexel::decodehost {

namespace {

constexpr int kMaxDecodeThreads = 16;
constexpr int kSeekAttempts = 6;

int DecodeThreads() {
#if defined(__SANITIZE_THREAD__)
    // libavcodec's decoding threads hand pictures over through atomics in code ThreadSanitizer
    // does not see (the library is not instrumented): decode on the delivery thread alone there.
    return 1;
#else
    const unsigned cores = std::thread::hardware_concurrency();
    return std::clamp(static_cast<int>(cores), 1, kMaxDecodeThreads);
#endif
}

}  // namespace

std::atomic<uint64_t> StreamDecoder::pictures_{0};

std::unique_ptr<StreamDecoder> StreamDecoder::Open(MediaFile& file, int index) {
    AVFormatContext* context = file.context();
    if (index < 0 || static_cast<unsigned>(index) >= context->nb_streams) return nullptr;
    AVStream* stream = context->streams[index];
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) return nullptr;

    std::unique_ptr<StreamDecoder> decoder(new StreamDecoder(file, stream));
    decoder->codec_.reset(avcodec_alloc_context3(codec));
    decoder->frame_.reset(av_frame_alloc());
    decoder->packet_.reset(av_packet_alloc());
    if (!decoder->codec_ || !decoder->frame_ || !decoder->packet_) return nullptr;
    AVCodecContext* c = decoder->codec_.get();
    if (avcodec_parameters_to_context(c, stream->codecpar) < 0) return nullptr;
    c->pkt_timebase = stream->time_base;
    c->thread_count = DecodeThreads();
    c->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    decoder->framePool_.Attach(c);
    if (OpenCodecForDecoding(c, codec) < 0) return nullptr;
    if (c->codec_type == AVMEDIA_TYPE_VIDEO) {
        decoder->frameRate_ = StreamFrameRate(context, stream);
        if (decoder->frameRate_ > 0.0)
            decoder->frameInterval_ =
                static_cast<int64_t>(vexel::Ticks::period::den / decoder->frameRate_);
    }

    // Only this stream's packets are wanted from the demuxer.
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        context->streams[i]->discard =
            static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    return decoder;
}

void StreamDecoder::Seek(int64_t ticks) {
    const bool readOn = DecodesOnTo(ticks);
    target_ = ticks;
    if (readOn) return;
    // A picture before the first one decoded would start a frame interval earlier: only if that
    // is at or after the target was a wanted picture skipped.
    const int64_t reach = frameInterval_ > 0 ? frameInterval_ - kTimeSlack : kTimeSlack;
    // So the first attempt looks for a keyframe up to there: a keyframe less than a frame after
    // `ticks` is the first wanted picture itself (a seek to a keyframe's time less half a frame
    // would otherwise decode the whole interval before it). A keyframe found by its decoding
    // time may still show a later picture (reordered frames), and some containers seek
    // imprecisely: step further back until the first picture is early enough.
    int64_t at = frameInterval_ > 0 && ticks > 0 ? AddTicks(ticks, reach - 1) : ticks;
    int64_t back = 0;
    for (int attempt = 0; attempt < kSeekAttempts; ++attempt) {
        SeekTo(at);
        if (DecodeFirst() && pendingTicks_ < AddTicks(ticks, reach)) return;
        if (at <= 0) break;
        back = back == 0 ? vexel::Ticks(std::chrono::seconds(1)).count() : back * 2;
        at = SubTicks(ticks, back);
    }
    // Even the start was missed: read from the first byte where the container allows it.
    if (Rewind()) DecodeFirst();
}

bool StreamDecoder::DecodesOnTo(int64_t ticks) {
    // Positioned after the keyframe a seek to `ticks` would land on, and before `ticks`: a seek
    // would decode again the pictures from that keyframe on (stepping forward, a seek after a
    // seek in the same second). Reading on is exact, the pictures come in order, once past the
    // last target: before it, pictures already sent may have been skipped. Not for sound, whose
    // block holding `ticks` may be the one returned already.
    if (codec_->codec_type != AVMEDIA_TYPE_VIDEO || fresh_ || inputEnded_ || havePending_ ||
        returned_ < 0 || returned_ < SubTicks(target_, kTimeSlack) ||
        returned_ >= SubTicks(ticks, kTimeSlack))
        return false;
    const int here = av_index_search_timestamp(
        stream_, file_.FromTicks(returned_, stream_->time_base), AVSEEK_FLAG_BACKWARD);
    const int there = av_index_search_timestamp(stream_, file_.FromTicks(ticks, stream_->time_base),
                                                AVSEEK_FLAG_BACKWARD);
    return here >= 0 && here == there;
}

void StreamDecoder::SeekTo(int64_t ticks) {
    if (!(ticks <= 0 && fresh_)) {  // a file just opened is at its start already
        const int64_t target = file_.FromTicks(std::max<int64_t>(ticks, 0), stream_->time_base);
        av_seek_frame(file_.context(), stream_->index, target, AVSEEK_FLAG_BACKWARD);
    }
    Reset(ticks);
}

bool StreamDecoder::Rewind() {
    if (av_seek_frame(file_.context(), -1, 0, AVSEEK_FLAG_BYTE) < 0) return false;
    Reset(0);
    return true;
}

void StreamDecoder::Reset(int64_t ticks) {
    if (!fresh_) avcodec_flush_buffers(codec_.get());
    if (packetHeld_) av_packet_unref(packet_.get());
    packetHeld_ = false;
    havePending_ = false;
    fresh_ = false;
    inputEnded_ = false;
    returned_ = -1;
    nextTicks_ = std::max<int64_t>(ticks, 0);
}

bool StreamDecoder::DecodeFirst() {
    havePending_ = Decode(&pendingTicks_) != nullptr;
    return havePending_;
}

AVFrame* StreamDecoder::Next(int64_t* ticks) {
    fresh_ = false;
    if (havePending_) {
        havePending_ = false;
        *ticks = pendingTicks_;
        returned_ = pendingTicks_;
        return frame_.get();
    }
    AVFrame* frame = Decode(ticks);
    returned_ = frame != nullptr ? *ticks : -1;
    return frame;
}

AVFrame* StreamDecoder::Decode(int64_t* ticks) {
    for (;;) {
        av_frame_unref(frame_.get());
        const int status = avcodec_receive_frame(codec_.get(), frame_.get());
        if (status == 0) {
            if (codec_->codec_type == AVMEDIA_TYPE_VIDEO)
                pictures_.fetch_add(1, std::memory_order_relaxed);
            *ticks = FrameTicks(frame_.get());
            return frame_.get();
        }
        // Drained, or the decoder failed after the input ended.
        if (status == AVERROR_EOF || inputEnded_) return nullptr;
        FeedPacket();  // also after a damaged frame: read on
    }
}

void StreamDecoder::FeedPacket() {
    AVFormatContext* context = file_.context();
    bool retry = packetHeld_;
    for (;;) {
        if (!packetHeld_) {
            const int status = av_read_frame(context, packet_.get());
            if (status == AVERROR(EAGAIN) && !file_.interrupted()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            if (status < 0) {  // end of input, a read error or a truncated file: drain
                avcodec_send_packet(codec_.get(), nullptr);
                inputEnded_ = true;
                return;
            }
            if (packet_->stream_index != stream_->index) {
                av_packet_unref(packet_.get());
                continue;
            }
        }
        SetSkipping();
        const int sent = avcodec_send_packet(codec_.get(), packet_.get());
        // The decoder wants its output taken first; a decoder that still refuses after that
        // loses the packet rather than stalling the stream.
        packetHeld_ = sent == AVERROR(EAGAIN) && !retry;
        if (packetHeld_) return;
        retry = false;
        av_packet_unref(packet_.get());
        if (sent < 0) continue;  // a damaged packet: skip it and read on
        return;
    }
}

void StreamDecoder::SetSkipping() {
    // A picture shown before the target that no other picture refers to is never needed: the
    // decoder drops it unread. The setting follows each packet (frame threads take it along).
    if (codec_->codec_type != AVMEDIA_TYPE_VIDEO) return;
    const int64_t pts = packet_->pts;
    const bool early = pts != AV_NOPTS_VALUE &&
                       file_.ToTicks(pts, stream_->time_base) < SubTicks(target_, kTimeSlack);
    codec_->skip_frame = early ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
}

int64_t StreamDecoder::FrameTicks(const AVFrame* frame) {
    int64_t ticks = nextTicks_;
    if (frame->best_effort_timestamp != AV_NOPTS_VALUE) {
        ticks = file_.ToTicks(frame->best_effort_timestamp, stream_->time_base);
    }
    int64_t length = 0;
    if (codec_->codec_type == AVMEDIA_TYPE_AUDIO && frame->sample_rate > 0) {
        length = av_rescale(frame->nb_samples, vexel::Ticks::period::den, frame->sample_rate);
    } else {
        length = frameInterval_;
    }
    nextTicks_ = AddTicks(ticks, length);
    return ticks;
}

}  // namespace vexel::decodehost
