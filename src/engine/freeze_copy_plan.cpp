#include "engine/freeze_copy_plan.h"

#include <cmath>

namespace vexel {

FreezeCopyPlan::FreezeCopyPlan(Ticks mediaTime, const TimeFreezeList& freezes, double frameRate, bool seek)
    : frameRate_(frameRate) {
    const FreezeShift found = freezes.ShiftAt(static_cast<float>(ToMs(mediaTime)));
    time_ = Truncate(TicksF(mediaTime) + MsToTicksF(static_cast<double>(found.shift)));
    if (seek || !(found.lastDuration > 0.0) || !(frameRate > 0.0) || !std::isfinite(frameRate)) return;

    const double frameMs = 1000.0 / frameRate;
    const double freezeEndMs = static_cast<double>(found.shift) + found.lastTime;
    // The first frame less than one frame interval after the end of the last freeze.
    if (frameMs - (ToMs(time_) - freezeEndMs) > 0.1) {
        copies_ = static_cast<int64_t>(found.lastDuration / 1000.0 * frameRate);
        freezeStartMs_ = freezeEndMs - found.lastDuration;
    }
}

Ticks FreezeCopyPlan::CopyTime(int64_t i) const {
    return Truncate(MsToTicksF(static_cast<double>(i) * 1000.0 / frameRate_ + freezeStartMs_));
}

}  // namespace vexel
