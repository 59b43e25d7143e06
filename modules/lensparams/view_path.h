// The view path: keyframes of direction (pan, tilt) and of field of view, each kind on a track of
// its own keyed by time in seconds, read back with smooth interpolation.
//
// Reading between two keyframes uses a monotone cubic (Fritsch-Carlson tangents): it never
// overshoots the keyframes around it, eases to rest at a direction reversal, and eases in and out
// of the first and last keyframe, where the value then holds. Pan is an angle: from one keyframe to
// the next it goes the shorter way round (interpolated pans may lie outside +-180). At a
// keyframe's own time its stored values come back exactly.
//
// Threads: every member may be called from any thread; one lock guards both tracks.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <vector>

namespace vexel::lens {

template <size_t N>
struct Key {
    double time;
    std::array<double, N> values;
    bool operator==(const Key&) const = default;
};
using DirectionKey = Key<2>;  // pan, tilt
using ZoomKey = Key<1>;       // fov

// Keys in strictly increasing time.
template <size_t N>
class Track {
public:
    // circular[c]: channel c is an angle in degrees that takes the shorter way round.
    explicit Track(std::array<bool, N> circular) : circular_(circular) {}

    bool Empty() const { return keys_.empty(); }
    size_t Size() const { return keys_.size(); }
    const std::vector<Key<N>>& Keys() const { return keys_; }
    void Assign(std::vector<Key<N>> keys) { keys_ = std::move(keys); }
    void Clear() { keys_.clear(); }
    bool Has(double time) const;

    // Adds the key, or replaces the values of the key at the same time.
    void Set(const Key<N>& key);
    // The values at a time (not NaN); the track must not be empty.
    std::array<double, N> At(double time) const;

private:
    // The first key at or after a time.
    typename std::vector<Key<N>>::const_iterator Find(double time) const;
    double Interpolate(size_t segment, size_t channel, double time) const;

    std::array<bool, N> circular_;
    std::vector<Key<N>> keys_;
};

// Both tracks of one path, for saving and loading.
struct PathKeys {
    std::vector<DirectionKey> directions;
    std::vector<ZoomKey> zooms;
};

class ViewPath {
public:
    // Keys each track holds at most; beyond it new times are refused.
    static constexpr size_t kMaxKeys = 1'000'000;

    // False (nothing stored) when the track is full and the time is new.
    bool SetDirection(double time, double pan, double tilt);
    bool SetZoom(double time, double fov);
    bool SetAngle(double time, double pan, double tilt, double fov);  // both or neither

    // Each output is written only when its track has keys; true when something was written.
    bool Read(double time, double* pan, double* tilt, double* fov) const;

    void Clear();
    PathKeys Snapshot() const;
    void Replace(PathKeys keys);

private:
    bool Fits(const auto& track, double time) const;

    mutable std::mutex lock_;
    Track<2> directions_{{true, false}};
    Track<1> zooms_{{false}};
};

}  // namespace vexel::lens
