// Large picture memory mapped from the system directly, with huge pages where it offers them: a
// fresh 3840x1920 picture then faults in 15 times instead of 7,200, fewer TLB misses read it, and
// memory given back leaves the process at once instead of staying in an allocator's heap.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <sys/mman.h>

namespace vexel {

// `bytes` of zeroed memory, page aligned; null when the system refuses. Give it back with
// UnmapPages and the same size.
inline void* MapPages(size_t bytes) {
    void* data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (data == MAP_FAILED) return nullptr;
    madvise(data, bytes, MADV_HUGEPAGE);  // advice only; nothing changes where it is refused
    return data;
}

inline void UnmapPages(void* data, size_t bytes) { munmap(data, bytes); }

}  // namespace vexel
