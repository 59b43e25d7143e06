#include "audio/pcm_timeline.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "vexel/ticks.h"

namespace vexel {

PcmTimeline::PcmTimeline(const WAVEFORMATEX& format)
    : rate_(format.nSamplesPerSec),
      frameBytes_(format.nBlockAlign),
      silence_(format.wBitsPerSample == 8 ? 0x80 : 0x00),
      snapFrames_(std::max<int64_t>(1, format.nSamplesPerSec / 500)) {}  // 2 ms

int64_t PcmTimeline::FrameAt(int64_t time) const {
    constexpr int64_t kPerSecond = Ticks::period::den;
    const long double frames =
        (static_cast<long double>(time) * rate_ + kPerSecond / 2) / kPerSecond;
    if (frames >= static_cast<long double>(std::numeric_limits<int64_t>::max() / 2)) {
        return std::numeric_limits<int64_t>::max() / 2;
    }
    if (frames <= static_cast<long double>(std::numeric_limits<int64_t>::min() / 2)) {
        return std::numeric_limits<int64_t>::min() / 2;
    }
    return static_cast<int64_t>(std::floor(frames));
}

void PcmTimeline::Add(const uint8_t* data, uint32_t size, int64_t start) {
    int64_t frames = size / frameBytes_;
    if (data == nullptr || frames == 0) return;
    int64_t frame = FrameAt(start);
    // Rounding in the stamps is absorbed only while data is queued ahead. Once the queue ran dry,
    // a block is placed exactly: what came too late is cut, so the sound keeps its time.
    const int64_t reference = std::max(end_, position_);
    if (end_ > position_ && frame > reference - snapFrames_ && frame < reference + snapFrames_)
        frame = reference;
    int64_t skip = 0;
    if (frame < reference) {  // late, or under queued data: keep only what lies after
        skip = reference - frame;
        if (skip >= frames) return;
        frame = reference;
        frames -= skip;
    }
    const uint8_t* first = data + skip * frameBytes_;
    blocks_.push_back({frame, std::vector<uint8_t>(first, first + frames * frameBytes_)});
    queuedBytes_ += static_cast<size_t>(frames) * frameBytes_;
    end_ = frame + frames;
}

void PcmTimeline::Read(uint8_t* out, uint32_t frames) {
    int64_t cursor = position_;
    const int64_t stop = position_ + frames;
    while (cursor < stop) {
        uint8_t* target = out + (cursor - position_) * frameBytes_;
        if (blocks_.empty() || blocks_.front().frame >= stop) {
            std::memset(target, silence_, static_cast<size_t>(stop - cursor) * frameBytes_);
            break;
        }
        const Block& block = blocks_.front();
        if (block.frame > cursor) {
            std::memset(target, silence_, static_cast<size_t>(block.frame - cursor) * frameBytes_);
            cursor = block.frame;
            continue;
        }
        const int64_t blockEnd = block.End(frameBytes_);
        const int64_t count = std::min(blockEnd, stop) - cursor;
        std::memcpy(target, block.bytes.data() + (cursor - block.frame) * frameBytes_,
                    static_cast<size_t>(count) * frameBytes_);
        cursor += count;
        if (cursor >= blockEnd) {
            queuedBytes_ -= block.bytes.size();
            blocks_.pop_front();
        }
    }
    position_ = stop;
}

void PcmTimeline::Clear() {
    blocks_.clear();
    queuedBytes_ = 0;
    position_ = 0;
    end_ = 0;
}

}  // namespace vexel
