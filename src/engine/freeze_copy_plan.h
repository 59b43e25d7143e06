// FreezeCopyPlan: where a decoded frame goes on the presentation timeline, and the copies of it
// that fill a time freeze starting less than one frame interval before it. A frame is shown later
// by all the frozen time before it; the first frame after a freeze begins is repeated once per
// frame interval from the presentation time at which the freeze begins. Seek previews make no
// copies.
//
// Threads: a value computed on the delivery thread; no lock, no shared state.
#pragma once

#include <cstdint>

#include "engine/time_freeze.h"
#include "vexel/ticks.h"

namespace vexel {

class FreezeCopyPlan {
public:
    FreezeCopyPlan(Ticks mediaTime, const TimeFreezeList& freezes, double frameRate, bool seek);

    Ticks Time() const { return time_; }  // presentation time of the frame
    int64_t CopyCount() const { return copies_; }
    Ticks CopyTime(int64_t i) const;  // presentation time of copy i, 0 <= i < CopyCount()

private:
    Ticks time_;
    int64_t copies_ = 0;
    double frameRate_ = 0.0;
    double freezeStartMs_ = 0.0;
};

}  // namespace vexel
