#include "samples/pixel_buffers.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "vexel/mapped_pages.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VEXEL_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VEXEL_ASAN 1
#endif
#if defined(VEXEL_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace vexel {

namespace {

constexpr std::align_val_t kPixelAlignment{16};
// Each buffer starts with a 16-byte header holding its size, so a freed one can be reused or
// unmapped; the pixels follow it, 16-byte aligned.
constexpr size_t kHeaderBytes = 16;

// While a buffer waits in the pool, reading or writing it is a use after free: the address
// sanitizer is told so, and catches a sample read after its release.
void SetPoisoned(uint8_t* block, uint32_t size, bool poisoned) {
#if defined(VEXEL_ASAN)
    if (poisoned) {
        ASAN_POISON_MEMORY_REGION(block + kHeaderBytes, size);
    } else {
        ASAN_UNPOISON_MEMORY_REGION(block + kHeaderBytes, size);
    }
#else
    (void)block, (void)size, (void)poisoned;
#endif
}

uint32_t StoredSize(const uint8_t* block) {
    uint32_t size;
    std::memcpy(&size, block, sizeof size);
    return size;
}

bool Pooled(uint32_t size) { return size >= kPooledMinimum; }

// Large buffers are mapped directly, except under the address sanitizer, whose allocator puts
// guard zones around them to catch writes past a picture.
bool Mapped(uint32_t size) {
#if defined(VEXEL_ASAN)
    (void)size;
    return false;
#else
    return Pooled(size);
#endif
}

uint8_t* MakeBlock(uint32_t size) {
    void* block = Mapped(size)
                      ? MapPages(size + kHeaderBytes)
                      : ::operator new[](size + kHeaderBytes, kPixelAlignment, std::nothrow);
    if (block == nullptr) return nullptr;
    auto* bytes = static_cast<uint8_t*>(block);
    std::memcpy(bytes, &size, sizeof size);
    return bytes;
}

void DropBlock(uint8_t* block) {
    const uint32_t size = StoredSize(block);
    SetPoisoned(block, size, false);  // the next owner of this memory starts clean
    if (Mapped(size)) {
        UnmapPages(block, size + kHeaderBytes);
    } else {
        ::operator delete[](block, kPixelAlignment);
    }
}

// Constant-initialised and trivially destroyed: loading and unloading the library run no code.
// Free buffers in the order they were given back, oldest first.
struct BufferPool {
    std::mutex lock;
    uint8_t* blocks[kPooledBuffers] = {};
    size_t count = 0;
    uint64_t made = 0;
};
BufferPool pool;

}  // namespace

uint8_t* AllocatePixels(uint32_t size) {
    if (Pooled(size)) {
        std::lock_guard<std::mutex> guard(pool.lock);
        // The newest of its size: the likeliest to be in the cache still.
        for (size_t i = pool.count; i-- > 0;) {
            uint8_t* block = pool.blocks[i];
            if (StoredSize(block) != size) continue;
            std::move(pool.blocks + i + 1, pool.blocks + pool.count, pool.blocks + i);
            pool.blocks[--pool.count] = nullptr;
            SetPoisoned(block, size, false);
            return block + kHeaderBytes;
        }
        ++pool.made;
    }
    uint8_t* block = MakeBlock(size);
    return block != nullptr ? block + kHeaderBytes : nullptr;
}

void FreePixels(uint8_t* pixels) {
    if (pixels == nullptr) return;
    uint8_t* block = pixels - kHeaderBytes;
    const uint32_t size = StoredSize(block);
    if (Pooled(size)) {
        SetPoisoned(block, size, true);
        std::lock_guard<std::mutex> guard(pool.lock);
        if (pool.count < kPooledBuffers) {
            pool.blocks[pool.count++] = block;
            return;
        }
        // Full: the oldest buffer goes, the newest takes the last place.
        std::swap(block, pool.blocks[0]);
        std::rotate(pool.blocks, pool.blocks + 1, pool.blocks + kPooledBuffers);
    }
    DropBlock(block);
}

void ReleasePooledPixels(PoolRelease what) {
    uint8_t* dropped[kPooledBuffers] = {};
    size_t count = 0;
    {
        std::lock_guard<std::mutex> guard(pool.lock);
        // Newest first: the first buffer of a size is the one kept.
        size_t kept = 0;
        uint8_t* keep[kPooledBuffers] = {};
        for (size_t i = pool.count; i-- > 0;) {
            uint8_t* block = pool.blocks[i];
            const bool sizeKept = std::any_of(keep, keep + kept, [&](const uint8_t* k) {
                return StoredSize(k) == StoredSize(block);
            });
            if (what == PoolRelease::kKeepOneOfEachSize && !sizeKept) {
                keep[kept++] = block;
            } else {
                dropped[count++] = block;
            }
        }
        // Back in the pool's order, oldest first.
        std::reverse_copy(keep, keep + kept, pool.blocks);
        std::fill(pool.blocks + kept, pool.blocks + kPooledBuffers, nullptr);
        pool.count = kept;
    }
    for (size_t i = 0; i < count; ++i) DropBlock(dropped[i]);
}

PixelPoolCounts PixelPoolCountsForTesting() {
    std::lock_guard<std::mutex> guard(pool.lock);
    return {pool.made, pool.count};
}

}  // namespace vexel
