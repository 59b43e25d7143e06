// StampRebase: keeps the stamps of delivered PCM on one running stream across a resume.
//
// After SetStartTime, stamps are stream times as they are. A run that follows a pause without
// SetStartTime goes on with the stream where it stopped, while the player stamps the blocks that
// follow from a new origin (the last presented frame). So after such a run the first block whose
// start breaks with the stop of the block before it (by more than 2 ms) is laid right after that
// block, and the same correction is carried over to every later block until the next start time
// or stop. Blocks that were already on their way with the old stamps line up as they are.
//
// Threads: none of its own; the filter guards it with its lock.
#pragma once

#include <cstdint>
#include <limits>

namespace vexel::audiofeed {

class StampRebase {
public:
    static constexpr int64_t kTolerance = 20'000;  // 100-ns ticks

    // Stamps are taken as they are (a start time was set, or the graph stopped).
    void Restart() {
        offset_ = 0;
        pending_ = false;
        valid_ = false;
    }
    // The graph runs on after a pause: the next break in the stamps is a new origin.
    void ExpectNewOrigin() { pending_ = true; }

    // Moves a block's stamps onto the running stream.
    void Map(int64_t& start, int64_t& stop) {
        if (pending_ && valid_) {
            const int64_t mapped = Add(start, offset_);
            if (mapped > Add(expected_, kTolerance) || mapped < Add(expected_, -kTolerance)) {
                offset_ = Sub(expected_, start);
                pending_ = false;
            }
        }
        start = Add(start, offset_);
        stop = Add(stop, offset_);
        expected_ = stop;
        valid_ = true;
    }

    int64_t Offset() const { return offset_; }

private:
    static int64_t Add(int64_t a, int64_t b) {
        int64_t sum;
        if (!__builtin_add_overflow(a, b, &sum)) return sum;
        return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
    }

    static int64_t Sub(int64_t a, int64_t b) {
        int64_t difference;
        if (!__builtin_sub_overflow(a, b, &difference)) return difference;
        return b < 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
    }

    int64_t offset_ = 0;
    int64_t expected_ = 0;  // where the next block continues the stream
    bool pending_ = false;
    bool valid_ = false;
};

}  // namespace vexel::audiofeed
