#include "timing_stats.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "vexel/ticks.h"

namespace play {

void TimingStats::Add(double latenessMs, int64_t ticks) {
    if (lastTicks_ >= 0 && frameMs_ > 0.0) {
        const double gap = vexel::ToMs(vexel::Ticks(ticks - lastTicks_)) / frameMs_;
        if (gap > 1.5) skipped_ += static_cast<size_t>(std::lround(gap)) - 1;
    }
    lastTicks_ = ticks;
    lateness_.push_back(latenessMs);
}

size_t TimingStats::late() const {
    return static_cast<size_t>(std::count_if(lateness_.begin(), lateness_.end(),
                                             [this](double ms) { return ms > frameMs_ / 2; }));
}

double TimingStats::meanMs() const {
    return lateness_.empty()
               ? 0.0
               : std::accumulate(lateness_.begin(), lateness_.end(), 0.0) / lateness_.size();
}

double TimingStats::percentileMs(double p) const {
    if (lateness_.empty()) return 0.0;
    std::vector<double> sorted = lateness_;
    std::sort(sorted.begin(), sorted.end());
    const size_t index = static_cast<size_t>(std::ceil(p / 100.0 * sorted.size()));
    return sorted[std::clamp<size_t>(index, 1, sorted.size()) - 1];
}

double TimingStats::maxMs() const {
    return lateness_.empty() ? 0.0 : *std::max_element(lateness_.begin(), lateness_.end());
}

}  // namespace play
