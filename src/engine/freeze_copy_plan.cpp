#include "engine/freeze_copy_plan.h"

#include <algorithm>
#include <cmath>

#include "vexel/tick_math.h"

namespace vexel {

FreezeCopyPlan::FreezeCopyPlan(Ticks mediaTime, const TimeFreezeList& freezes, double frameRate,
                               bool seek)
    : frameRate_(frameRate) {
    const FreezeShift found = freezes.ShiftAt(static_cast<float>(ToMs(mediaTime)));
    time_ = Ticks(
        TruncateTicks((TicksF(mediaTime) + MsToTicksF(static_cast<double>(found.shift))).count()));
    if (seek || !(found.lastDuration > 0.0) || !(frameRate > 0.0) || !std::isfinite(frameRate))
        return;

    const double frameMs = 1000.0 / frameRate;
    const double freezeEndMs = static_cast<double>(found.shift) + found.lastTime;
    // The first frame less than one frame interval after the end of the last freeze.
    if (frameMs - (ToMs(time_) - freezeEndMs) > 0.1) {
        // At most one copy a millisecond, whatever frame rate a file claims.
        copies_ = static_cast<int64_t>(
            std::min(found.lastDuration / 1000.0 * frameRate, found.lastDuration));
        freezeStartMs_ = freezeEndMs - found.lastDuration;
    }
}

Ticks FreezeCopyPlan::CopyTime(int64_t i) const {
    return Ticks(TruncateTicks(
        MsToTicksF(static_cast<double>(i) * 1000.0 / frameRate_ + freezeStartMs_).count()));
}

}  // namespace vexel
