// PcmTimeline: the audio renderer's queue of timed PCM. Each block is placed at the sample frame
// its stream time names; reading plays the frames in order from the current position, with silence
// where no block lies. A block that starts within a couple of milliseconds of where the queued data
// ends is laid right after it, so rounding in the stamps never leaves a click; what lies before the
// play position (a block that came too late) or under data already queued is cut away, so the
// sound never drifts from its stamps.
//
// Threads: none of its own; the renderer guards it with its lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "vexel/media_graph.h"

namespace vexel {

class PcmTimeline {
public:
    // `format` is a checked PCM format (non-zero rate and block alignment).
    explicit PcmTimeline(const WAVEFORMATEX& format);

    // Queues the whole frames of `size` bytes for stream time `start` (100 ns). Throws
    // std::bad_alloc when memory runs out.
    void Add(const uint8_t* data, uint32_t size, int64_t start);
    // Writes the next `frames` frames to `out` and moves the play position on.
    void Read(uint8_t* out, uint32_t frames);
    // Empties the queue and returns to stream time 0.
    void Clear();

    size_t QueuedBytes() const { return queuedBytes_; }
    int64_t Position() const { return position_; }  // frames played since stream time 0
    uint8_t SilenceByte() const { return silence_; }
    uint32_t FrameBytes() const { return frameBytes_; }

    // Frames closer than this to the end of the queued data join it.
    int64_t SnapFrames() const { return snapFrames_; }
    // Stream time (100 ns) to the nearest frame, saturated.
    int64_t FrameAt(int64_t time) const;

private:
    struct Block {
        int64_t frame;  // first frame
        std::vector<uint8_t> bytes;
        int64_t End(uint32_t frameBytes) const {
            return frame + static_cast<int64_t>(bytes.size() / frameBytes);
        }
    };

    uint32_t rate_;
    uint32_t frameBytes_;
    uint8_t silence_;
    int64_t snapFrames_;
    std::deque<Block> blocks_;
    size_t queuedBytes_ = 0;
    int64_t position_ = 0;
    int64_t end_ = 0;  // frame after the last queued block
};

}  // namespace vexel
