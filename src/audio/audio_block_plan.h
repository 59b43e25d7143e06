// AudioBlockPlan: how one decoded audio block is delivered when the time-freeze list shifts it and
// a freeze may begin inside it. Without a freeze starting inside, the block goes out whole at its
// shifted times. Otherwise the block is split around a stretch of silence as long as that freeze:
// head bytes, silence, tail bytes, delivered as pieces of the block's own size, each one block
// duration after the previous, the last piece holding what is left.
//
// The split is clamped to the block (0 <= head, head + tail <= size) and cut to whole sample
// frames, so overlapping freezes or stamps that disagree with the byte count cannot reach outside
// the data. Pieces are made on demand from the block, so a long freeze costs no more memory than
// one block.
//
// Threads: pure values; used on the codec host's audio delivery thread.
#pragma once

#include <cstdint>

namespace vexel {

struct AudioBlockInput {
    uint32_t size = 0;  // bytes of the block
    int64_t start = 0;  // media times, 100 ns
    int64_t stop = 0;
    float shiftStart = 0.0f;  // freeze lookup at start: summed durations (ms) ...
    double lastStart = 0.0;   // ... and the time of the last freeze at or before start (ms)
    float shiftStop = 0.0f;   // the same at stop
    double lastStop = 0.0;
    double lastDuration = 0.0;  // duration (ms) of the last freeze at or before stop
    uint32_t bytesPerMs = 0;    // of the decoded stream
    uint32_t frameBytes = 1;    // bytes of one sample frame
};

struct AudioPiece {
    uint32_t offset = 0;  // into the split block (head, silence, tail, trailing silence)
    uint32_t size = 0;
    int64_t start = 0;  // presentation times, 100 ns
    int64_t stop = 0;
};

class AudioBlockPlan {
public:
    explicit AudioBlockPlan(const AudioBlockInput& input);

    bool Split() const { return split_; }  // a freeze begins inside the block
    int64_t MappedStart() const { return mappedStart_; }
    int64_t MappedStop() const { return mappedStop_; }
    uint32_t HeadBytes() const { return head_; }
    uint32_t SilenceBytes() const { return silence_; }
    uint32_t TailBytes() const { return tail_; }
    uint32_t TotalBytes() const { return total_; }

    uint32_t PieceCount() const { return pieceCount_; }
    AudioPiece Piece(uint32_t index) const;
    // Writes piece `piece` of the split `block` to `out` (piece.size bytes), silence as
    // `silenceByte`.
    void Fill(const uint8_t* block, const AudioPiece& piece, uint8_t* out,
              uint8_t silenceByte) const;

private:
    uint32_t size_;
    uint32_t bytesPerMs_;
    bool split_ = false;
    int64_t mappedStart_ = 0;
    int64_t mappedStop_ = 0;
    int64_t duration_ = 0;
    uint32_t head_ = 0;
    uint32_t silence_ = 0;
    uint32_t tail_ = 0;
    uint32_t total_ = 0;
    uint32_t pieceCount_ = 1;
};

}  // namespace vexel
