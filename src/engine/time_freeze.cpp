#include "engine/time_freeze.h"

#include <algorithm>
#include <cmath>

#include "vexel/ticks.h"

namespace vexel {

namespace {

bool InBounds(double ms) { return ms >= 0.0 && ms <= TimeFreezeList::kMaxMs; }  // false for NaN

// Rounds to whole milliseconds; false when the value lies outside the bounds.
bool WholeMilliseconds(double value, double& out) {
    if (!InBounds(value)) return false;
    out = std::min(std::floor(value + 0.5), TimeFreezeList::kMaxMs);
    return true;
}

}  // namespace

void TimeFreezeList::Set(const double* times, const double* durations, int32_t count) {
    std::vector<FreezeSegment> segments;
    if (times != nullptr && durations != nullptr && count > 0) {
        segments.reserve(std::min(static_cast<size_t>(count), kMaxSegments));
        for (int32_t i = 0; i < count && segments.size() < kMaxSegments; ++i) {
            FreezeSegment segment;
            if (WholeMilliseconds(times[i], segment.time) &&
                WholeMilliseconds(durations[i], segment.duration)) {
                segments.push_back(segment);
            }
        }
        std::stable_sort(
            segments.begin(), segments.end(),
            [](const FreezeSegment& a, const FreezeSegment& b) { return a.time < b.time; });
    }
    std::lock_guard<std::mutex> guard(lock_);
    segments_.swap(segments);
}

int32_t TimeFreezeList::Get(double* times, double* durations, int32_t capacity) const {
    std::lock_guard<std::mutex> guard(lock_);
    const auto count = static_cast<int32_t>(std::min<size_t>(segments_.size(), INT32_MAX));
    if (capacity < count || times == nullptr || durations == nullptr) return count;
    for (int32_t i = 0; i < count; ++i) {
        times[i] = segments_[i].time;
        durations[i] = segments_[i].duration;
    }
    return count;
}

FreezeShift TimeFreezeList::ShiftAt(float timeMs) const {
    std::lock_guard<std::mutex> guard(lock_);
    return ShiftAtLocked(timeMs);
}

FreezeShift TimeFreezeList::ShiftAtLocked(float timeMs) const {
    FreezeShift result;
    for (const FreezeSegment& segment : segments_) {
        if (segment.time > timeMs) break;
        result.lastTime = segment.time;
        result.lastDuration = segment.duration;
        result.shift = result.shift + static_cast<float>(segment.duration);
    }
    return result;
}

int64_t TimeFreezeList::MapPlayTime(int64_t position) const {
    std::lock_guard<std::mutex> guard(lock_);
    if (segments_.empty()) return position;

    const float t = static_cast<float>(ToMs(Ticks(position)));
    float shift = 0.0f, limit = t;
    double lastTime = 0.0, lastDuration = 0.0;
    for (const FreezeSegment& segment : segments_) {
        if (segment.time + shift > limit) break;
        lastTime = segment.time;
        lastDuration = segment.duration;
        shift = shift + static_cast<float>(segment.duration);
        limit = limit + static_cast<float>(segment.duration);
    }
    const double s = shift;
    float media;
    if (s + lastTime - lastDuration > t) {  // before the last passed freeze starts to show
        media = static_cast<float>(t - (s - lastDuration));
    } else if (t > s + lastTime) {  // after it ends
        media = t - shift;
    } else {  // inside it: its media time
        media = static_cast<float>(t - (s - lastDuration) - (t - lastTime - s + lastDuration));
    }
    const double ticks = MsToTicksF(static_cast<double>(media)).count();
    if (!(std::fabs(ticks) < 9.2e18)) return position;
    return static_cast<int64_t>(ticks);
}

double TimeFreezeList::TotalMs() const {
    std::lock_guard<std::mutex> guard(lock_);
    double total = 0.0;
    for (const FreezeSegment& segment : segments_) total += segment.duration;
    return total;
}

double TimeFreezeList::Insert(double time, double duration) {
    if (!InBounds(time) || !InBounds(duration)) return time;
    std::lock_guard<std::mutex> guard(lock_);
    if (segments_.size() >= kMaxSegments) return time;
    const FreezeShift found = ShiftAtLocked(static_cast<float>(time));
    double media;
    if (found.lastTime <= time && time <= found.lastTime + found.lastDuration) {
        media = found.lastTime;  // inside that freeze: counted from its media time
    } else if (time > found.shift + found.lastTime) {
        media = time - found.shift;
    } else {
        media = time - (found.shift - found.lastDuration);
    }
    auto at = std::find_if(segments_.begin(), segments_.end(),
                           [media](const FreezeSegment& s) { return s.time >= media; });
    segments_.insert(at, FreezeSegment{media, duration});
    // Two freezes at the same media time become one.
    for (size_t i = 0; i + 1 < segments_.size(); ++i) {
        if (std::fabs(segments_[i + 1].time - segments_[i].time) < 0.01) {
            segments_[i + 1].duration =
                std::min(segments_[i + 1].duration + segments_[i].duration, kMaxMs);
            segments_.erase(segments_.begin() + static_cast<ptrdiff_t>(i));
            break;
        }
    }
    return media;
}

}  // namespace vexel
