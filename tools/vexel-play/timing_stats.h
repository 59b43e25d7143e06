// TimingStats: how punctually the presented frames reached the host. Lateness is the wall-clock
// time a frame was picked up minus the time it was due: its media time after the first frame's,
// counted from when the first frame was picked up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace play {

class TimingStats {
public:
    explicit TimingStats(double frameMs) : frameMs_(frameMs) {}

    // One presented frame, `latenessMs` after it was due, at media time `ticks`.
    void Add(double latenessMs, int64_t ticks);

    size_t presented() const { return lateness_.size(); }
    // Frames more than half a frame late: shown nearer the next frame's time than their own.
    size_t late() const;
    // Frames never seen: gaps in the media times of the presented frames.
    size_t skipped() const { return skipped_; }
    double meanMs() const;
    double percentileMs(double p) const;
    double maxMs() const;
    double frameMs() const { return frameMs_; }

private:
    double frameMs_;
    std::vector<double> lateness_;
    int64_t lastTicks_ = -1;
    size_t skipped_ = 0;
};

}  // namespace play
