#include "view_path.h"

#include <algorithm>
#include <cmath>

namespace vexel::lens {

namespace {

// The same angle difference taken the shorter way: [-180, 180).
double ShorterArc(double difference) {
    return difference - 360.0 * std::floor((difference + 180.0) / 360.0);
}

// Fritsch-Carlson tangent at a key between two secants of widths h0, h1 and slopes d0, d1: zero at
// a reversal or a plateau, else a weighted harmonic mean that keeps each piece monotone.
double Tangent(double h0, double d0, double h1, double d1) {
    if (d0 * d1 <= 0.0) return 0.0;
    const double w1 = 2.0 * h1 + h0, w2 = h1 + 2.0 * h0;
    return (w1 + w2) / (w1 / d0 + w2 / d1);
}

}  // namespace

template <size_t N>
auto Track<N>::Find(double time) const -> typename std::vector<Key<N>>::const_iterator {
    return std::lower_bound(keys_.begin(), keys_.end(), time,
                            [](const Key<N>& k, double t) { return k.time < t; });
}

template <size_t N>
bool Track<N>::Has(double time) const {
    const auto it = Find(time);
    return it != keys_.end() && it->time == time;
}

template <size_t N>
void Track<N>::Set(const Key<N>& key) {
    const auto it = keys_.begin() + (Find(key.time) - keys_.cbegin());
    if (it != keys_.end() && it->time == key.time) {
        it->values = key.values;
    } else {
        keys_.insert(it, key);
    }
}

template <size_t N>
std::array<double, N> Track<N>::At(double time) const {
    if (time <= keys_.front().time) return keys_.front().values;
    if (time >= keys_.back().time) return keys_.back().values;
    const auto upper = std::upper_bound(keys_.begin(), keys_.end(), time,
                                        [](double t, const Key<N>& k) { return t < k.time; });
    const auto segment = static_cast<size_t>(upper - keys_.begin()) - 1;
    if (keys_[segment].time == time) return keys_[segment].values;
    std::array<double, N> values;
    for (size_t c = 0; c < N; ++c) values[c] = Interpolate(segment, c, time);
    return values;
}

template <size_t N>
double Track<N>::Interpolate(size_t i, size_t c, double time) const {
    const size_t n = keys_.size();
    const auto step = [&](size_t from) {  // value change from key `from` to the next
        const double d = keys_[from + 1].values[c] - keys_[from].values[c];
        return circular_[c] ? ShorterArc(d) : d;
    };
    // Keys i-1 .. i+2 on one unbroken course through key i (for pan: no jumps of 360).
    const double t1 = keys_[i].time, t2 = keys_[i + 1].time, h = t2 - t1;
    const double u1 = keys_[i].values[c], u2 = u1 + step(i);
    const double d = (u2 - u1) / h;
    double m1 = 0.0, m2 = 0.0;  // the first and last key are at rest, as the path holds beyond them
    if (i > 0) {
        const double h0 = t1 - keys_[i - 1].time;
        m1 = Tangent(h0, step(i - 1) / h0, h, d);
    }
    if (i + 2 < n) {
        const double h1 = keys_[i + 2].time - t2;
        m2 = Tangent(h, d, h1, step(i + 1) / h1);
    }
    const double s = (time - t1) / h, s2 = s * s, s3 = s2 * s;
    const double value = (2 * s3 - 3 * s2 + 1) * u1 + (s3 - 2 * s2 + s) * h * m1 +
                         (3 * s2 - 2 * s3) * u2 + (s3 - s2) * h * m2;
    // Keys a hair apart can make the tangents overflow; a straight line is the fallback.
    return std::isfinite(value) ? value : u1 + s * (u2 - u1);
}

template class Track<1>;
template class Track<2>;

bool ViewPath::Fits(const auto& track, double time) const {
    return track.Size() < kMaxKeys || track.Has(time);
}

bool ViewPath::SetDirection(double time, double pan, double tilt) {
    std::lock_guard guard(lock_);
    if (!Fits(directions_, time)) return false;
    directions_.Set({time, {pan, tilt}});
    return true;
}

bool ViewPath::SetZoom(double time, double fov) {
    std::lock_guard guard(lock_);
    if (!Fits(zooms_, time)) return false;
    zooms_.Set({time, {fov}});
    return true;
}

bool ViewPath::SetAngle(double time, double pan, double tilt, double fov) {
    std::lock_guard guard(lock_);
    if (!Fits(directions_, time) || !Fits(zooms_, time)) return false;
    directions_.Set({time, {pan, tilt}});
    zooms_.Set({time, {fov}});
    return true;
}

bool ViewPath::Read(double time, double* pan, double* tilt, double* fov) const {
    std::lock_guard guard(lock_);
    bool written = false;
    if (pan != nullptr && !directions_.Empty()) {
        const auto direction = directions_.At(time);
        *pan = direction[0];
        *tilt = direction[1];
        written = true;
    }
    if (fov != nullptr && !zooms_.Empty()) {
        *fov = zooms_.At(time)[0];
        written = true;
    }
    return written;
}

void ViewPath::Clear() {
    std::lock_guard guard(lock_);
    directions_.Clear();
    zooms_.Clear();
}

PathKeys ViewPath::Snapshot() const {
    std::lock_guard guard(lock_);
    return {directions_.Keys(), zooms_.Keys()};
}

void ViewPath::Replace(PathKeys keys) {
    std::lock_guard guard(lock_);
    directions_.Assign(std::move(keys.directions));
    zooms_.Assign(std::move(keys.zooms));
}

}  // namespace vexel::lens
