// The reader's delivery thread: decodes the selected stream span by span and pushes the samples.
#include <pthread.h>

#include <algorithm>
#include <limits>

#include "decode_priority.h"
#include "media_reader.h"
#include "pushed_sample.h"
#include "tick_math.h"

namespace vexel::decodehost {

namespace {

int64_t SamplesToTicks(int64_t samples, int rate) {
    return av_rescale(samples, vexel::Ticks::period::den, rate);
}
int64_t TicksToSamples(int64_t ticks, int rate) {
    return av_rescale(ticks, rate, vexel::Ticks::period::den);
}

}  // namespace

void Reader::DeliveryLoop() {
    pthread_setname_np(pthread_self(), "vexel-decode");
    LowerThreadForDecoding();
    uint64_t done = 0;
    for (;;) {
        Span span;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [&] {
                return quit_.load() ||
                       (state_.load() == kRunning && next_.id != done && next_.id == span_.load());
            });
            if (quit_.load()) return;
            span = next_;
            spanActive_ = true;
        }
        bool failed = false;
        try {
            DeliverSpan(span);
        } catch (...) {  // out of memory: this span ends, the reader stays usable
            failed = true;
        }
        done = span.id;
        std::lock_guard<std::mutex> lock(mutex_);
        spanActive_ = false;
        if (failed && !Abandoned(span.id)) state_.store(kEnded);
    }
}

void Reader::DeliverSpan(const Span& span) {
    const bool isVideo = video_ != nullptr;
    const int64_t stop = span.stop > 0 ? span.stop : std::numeric_limits<int64_t>::max();
    watched_.store(span.id);
    decoder_->Seek(span.current);
    if (audio_) audio_->Reset();

    for (;;) {
        if (Abandoned(span.id)) return;
        int64_t start = 0;
        AVFrame* frame = decoder_->Next(&start);
        if (frame == nullptr || start >= SubTicks(stop, kTimeSlack)) break;

        Block block;
        const bool ready = isVideo ? PrepareVideo(frame, start, span, block)
                                   : PrepareAudio(frame, start, span, block);
        if (ready && !CallSink(span.id, &block)) return;
        // A picture lasting to the stop is the span's last: the decoder is not asked for one
        // more (a seek's span holds one picture, and the next seek would wait for that decode).
        if (ready && isVideo && block.stop >= SubTicks(stop, kTimeSlack)) break;
    }
    CallSink(span.id, nullptr);
}

bool Reader::PrepareVideo(AVFrame* frame, int64_t start, const Span& span, Block& block) {
    if (start < SubTicks(span.current, kTimeSlack)) return false;  // before the target
    // Converted only when the sink asks for the picture (PushedSample).
    block.picture = frame;
    block.start = start;
    block.stop = AddTicks(start, decoder_->frameInterval());
    return true;
}

bool Reader::PrepareAudio(AVFrame* frame, int64_t start, const Span& span, Block& block) {
    const int rate = audio_->rate();
    const int count = audio_->Convert(frame, buffer_);
    if (count <= 0) return false;

    // Keep only the samples inside the span.
    int64_t first = 0, last = count;
    if (start < span.current)
        first = std::min<int64_t>(TicksToSamples(SubTicks(span.current, start), rate), count);
    if (span.stop > 0 && AddTicks(start, SamplesToTicks(count, rate)) > span.stop) {
        last = std::clamp<int64_t>(TicksToSamples(SubTicks(span.stop, start), rate), 0, count);
    }
    if (last <= first) return false;
    const size_t frameBytes = audio_->frameBytes();
    block.data = buffer_.data() + static_cast<size_t>(first) * frameBytes;
    block.size = static_cast<uint32_t>(static_cast<size_t>(last - first) * frameBytes);
    block.start = AddTicks(start, SamplesToTicks(first, rate));
    block.stop = AddTicks(start, SamplesToTicks(last, rate));
    return true;
}

bool Reader::CallSink(uint64_t id, const Block* block) {
    Vexel::IPushStream* sink = nullptr;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [&] { return Abandoned(id) || state_.load() != kPaused; });
        if (Abandoned(id)) return false;
        inCall_ = true;
        sink = sink_;
    }

    int32_t status = S_OK;
    if (sink == nullptr) {
        status = ERR_SAMPLE_REFUSED;
    } else if (block == nullptr) {
        sink->EndOfStream();
    } else {
        auto* sample =
            block->picture != nullptr
                ? NewObject<PushedSample>(block->picture, video_.get(), &buffer_, block->start,
                                          block->stop)
                : NewObject<PushedSample>(block->data, block->size, block->start, block->stop);
        status = sink->Push(sample);
        sample->Release();
    }

    std::lock_guard<std::mutex> lock(mutex_);
    inCall_ = false;
    if (Abandoned(id)) {
        if (state_.load() == kStopping) state_.store(kIdle);
        return false;
    }
    if (block == nullptr || status == ERR_SAMPLE_REFUSED) {
        state_.store(kEnded);
        return false;
    }
    return true;  // other failures drop this sample only
}

}  // namespace vexel::decodehost
