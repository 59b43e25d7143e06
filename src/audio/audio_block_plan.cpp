#include "audio/audio_block_plan.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "vexel/tick_math.h"
#include "vexel/ticks.h"

namespace vexel {

namespace {

constexpr double kTicksPerMsF = kTicksPerMs;
// The largest split block: what a signed 32-bit byte count holds.
constexpr int64_t kMaxBytes = std::numeric_limits<int32_t>::max();

int64_t Clamp(int64_t value, int64_t low, int64_t high) {
    return std::min(std::max(value, low), high);
}

uint32_t WholeFrames(int64_t bytes, uint32_t frameBytes) {
    return static_cast<uint32_t>(bytes - bytes % frameBytes);
}

}  // namespace

AudioBlockPlan::AudioBlockPlan(const AudioBlockInput& in)
    : size_(in.size), bytesPerMs_(in.bytesPerMs) {
    mappedStart_ = TruncateTicks(static_cast<double>(in.shiftStart) * kTicksPerMsF +
                                 static_cast<double>(in.start));
    duration_ = TruncateTicks(static_cast<double>(in.stop) - static_cast<double>(in.start));
    mappedStop_ = TruncateTicks(static_cast<double>(mappedStart_) + static_cast<double>(duration_));
    total_ = in.size;

    // Only a freeze that begins after the block's start and at or before its stop splits it.
    if (!(in.lastStop > in.lastStart) || in.size == 0 || in.bytesPerMs == 0 ||
        !std::isfinite(in.lastDuration)) {
        return;
    }
    split_ = true;
    const uint32_t frame = std::max<uint32_t>(in.frameBytes, 1);
    const auto bytesPerMs = static_cast<float>(in.bytesPerMs);
    // Where the freeze begins on the shifted timeline, and the block's bytes either side of it.
    const double freezeAt = static_cast<double>(in.shiftStop) + in.lastStop - in.lastDuration;
    const auto headRaw =
        TruncateTicks(bytesPerMs * static_cast<float>(freezeAt - mappedStart_ / kTicksPerMsF));
    const auto tailRaw =
        TruncateTicks(bytesPerMs * static_cast<float>(mappedStop_ / kTicksPerMsF - freezeAt));
    head_ = WholeFrames(Clamp(headRaw, 0, in.size), frame);
    tail_ = WholeFrames(Clamp(tailRaw, 0, in.size - head_), frame);
    const double silenceRaw = std::trunc(std::max(in.lastDuration, 0.0)) * in.bytesPerMs;
    silence_ = WholeFrames(Clamp(TruncateTicks(silenceRaw), 0, kMaxBytes - in.size), frame);
    const int64_t totalRaw = TruncateTicks(in.bytesPerMs * in.lastDuration + in.size);
    total_ = WholeFrames(Clamp(totalRaw, int64_t{head_} + silence_ + tail_, kMaxBytes), frame);
    total_ = std::max(total_, head_ + silence_ + tail_);
    pieceCount_ = total_ / in.size + (total_ % in.size != 0 ? 1 : 0);
}

AudioPiece AudioBlockPlan::Piece(uint32_t index) const {
    AudioPiece piece;
    const uint32_t whole = size_ == 0 ? 0 : total_ / size_;  // an empty block is one empty piece
    const __int128 start =
        static_cast<__int128>(mappedStart_) + static_cast<__int128>(index) * duration_;
    piece.start = static_cast<int64_t>(std::clamp<__int128>(
        start, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()));
    piece.offset = static_cast<uint32_t>(std::min<uint64_t>(uint64_t{index} * size_, total_));
    if (index < whole) {
        piece.size = size_;
        piece.stop =
            TruncateTicks(static_cast<double>(piece.start) + static_cast<double>(duration_));
    } else {
        // What is left after the last whole piece, as long as its bytes last.
        piece.size = total_ - piece.offset;
        piece.stop =
            TruncateTicks(static_cast<float>(piece.start) +
                          (static_cast<float>(total_) - static_cast<float>(piece.offset)) /
                              static_cast<float>(bytesPerMs_) * static_cast<float>(kTicksPerMsF));
    }
    return piece;
}

void AudioBlockPlan::Fill(const uint8_t* block, const AudioPiece& piece, uint8_t* out,
                          uint8_t silenceByte) const {
    // The split block: [0, head) block bytes, silence, [tailAt, tailAt + tail) the block from head
    // on, silence to the end.
    const uint64_t tailAt = uint64_t{head_} + silence_;
    const uint64_t begin = piece.offset, end = uint64_t{piece.offset} + piece.size;
    std::memset(out, silenceByte, piece.size);
    auto copy = [&](uint64_t from, uint64_t to,
                    const uint8_t* source) {  // [from, to) of the split block
        const uint64_t a = std::max(from, begin), b = std::min(to, end);
        if (a < b) std::memcpy(out + (a - begin), source + (a - from), static_cast<size_t>(b - a));
    };
    copy(0, head_, block);
    copy(tailAt, tailAt + tail_, block + head_);
}

}  // namespace vexel
