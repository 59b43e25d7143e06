// Picture buffers: every panorama and view picture of the library, from its making to the release
// of the sample that carries it out, lives in one of these.
//
// A fresh picture buffer costs a page fault for every 4 KiB of it (a 3840x1920 panorama: 7,200),
// more than the copy that fills it, so buffers of 1 MiB and more are kept for reuse when freed:
// steady playback takes every picture from the pool and gives every one back. The pool is bounded
// (kPooledBuffers buffers) and adds nothing to the peak of a steady playback: a buffer is made only
// when the pool has none of its size, so the buffers of one size alive and pooled together never
// exceed the most of that size alive at once. Large buffers are mapped from the system directly
// (outside the address sanitizer), so a buffer given back leaves the process at once instead of
// staying in an allocator's heap.
//
// Threads: any; the pool has its own lock. It belongs to the process, not to a player: samples a
// host holds may outlive the player that made them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexel {

inline constexpr size_t kPooledBuffers = 8;
inline constexpr uint32_t kPooledMinimum = 1 << 20;

// A buffer of `size` bytes, 16-byte aligned, contents undefined; null when the memory is not
// there. A buffer that a record owns must come from here, because ReleaseInlayBuffer frees it
// with FreePixels.
uint8_t* AllocatePixels(uint32_t size);
void FreePixels(uint8_t* pixels);  // null does nothing

// Gives pooled buffers back to the system: all of them when a player closes or the library
// unloads; all but the newest of each size when a player stops, so that a seek or a play after
// the stop does not wait for fresh memory (a 3840x1920 panorama and its view fault in 9,200
// pages).
enum class PoolRelease { kAll, kKeepOneOfEachSize };
void ReleasePooledPixels(PoolRelease what = PoolRelease::kAll);

// Large buffers made fresh since the process started, and those pooled now.
struct PixelPoolCounts {
    uint64_t made = 0;
    size_t pooled = 0;
};
PixelPoolCounts PixelPoolCountsForTesting();

}  // namespace vexel
