// TimeFreezeList: the stretches where the picture holds still while the presentation timeline runs
// on. At media time `time` (ms) presentation pauses for `duration` ms, and everything after is
// shown that much later. The lookups work in 32-bit floats, exact for whole milliseconds up to ~4.6
// hours.
//
// Threads: edited from host threads (Set, Insert), read by the delivery threads (ShiftAt) and the
// Player's threads (MapPlayTime, Get); an internal lock keeps edits and lookups apart.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace vexel {

struct FreezeSegment {
    double time;      // media time at which the freeze starts, ms
    double duration;  // ms
};

struct FreezeShift {
    float shift = 0.0f;         // summed durations of the freezes starting at or before the time
    double lastTime = 0.0;      // the last of those freezes, or 0
    double lastDuration = 0.0;  // its duration, or 0
};

class TimeFreezeList {
public:
    // Bounds of every stored time and duration (ms, 0 to 24 hours) and of the segment count; they
    // keep each sum of the lookups and the whole timeline far inside 64-bit ticks.
    static constexpr double kMaxMs = 86'400'000.0;
    static constexpr size_t kMaxSegments = 1024;

    // Replaces the list with whole-millisecond segments, sorted by time (stable) so the lookups,
    // which stop at the first segment beyond the time asked, are right for any input order.
    // Entries that are not finite or lie outside 0..kMaxMs are skipped; of the rest the first
    // kMaxSegments are kept.
    void Set(const double* times, const double* durations, int32_t count);
    // Segment count; the segments are copied only when capacity holds them all.
    int32_t Get(double* times, double* durations, int32_t capacity) const;
    // Inserts a freeze at a presentation time (ms) and returns the media time it was put at. A time
    // or duration outside 0..kMaxMs, or a full list, is refused: the time comes back unchanged.
    double Insert(double time, double duration);
    // The summed durations of all segments (ms), at most kMaxMs * kMaxSegments.
    double TotalMs() const;

    FreezeShift ShiftAt(float timeMs) const;
    // Presentation position to media position, both in 100-ns ticks; unchanged with no segments.
    int64_t MapPlayTime(int64_t position) const;

private:
    FreezeShift ShiftAtLocked(float timeMs) const;

    mutable std::mutex lock_;
    std::vector<FreezeSegment> segments_;
};

}  // namespace vexel
