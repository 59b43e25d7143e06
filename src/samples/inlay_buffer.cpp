#include "samples/inlay_buffer.h"

#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include "projection/view_projector.h"

namespace vexel {

namespace {

constexpr std::align_val_t kPixelAlignment{16};
// Each buffer starts with a 16-byte header holding its size, so freed buffers can be reused.
constexpr size_t kHeaderBytes = 16;
// Picture buffers are large (a 3840x1920 frame is 29.5 MB) and a fresh one costs thousands of
// page faults, more than the copy that fills it. Two freed large buffers are kept for reuse (a
// player frees one panorama for each it allocates, in bursts). Small ones go to the allocator.
constexpr size_t kPooledBuffers = 2;
constexpr uint32_t kPooledMinimum = 1 << 20;

// Constant-initialised and trivially destroyed: loading and unloading the library run no code.
struct BufferPool {
    std::mutex lock;
    uint8_t* buffers[kPooledBuffers] = {};
};
BufferPool pool;

BufferPool& Pool() { return pool; }

uint32_t StoredSize(const uint8_t* block) {
    uint32_t size;
    std::memcpy(&size, block, sizeof size);
    return size;
}

}  // namespace

uint8_t* AllocatePixels(uint32_t size) {
    {
        BufferPool& pool = Pool();
        std::lock_guard<std::mutex> guard(pool.lock);
        for (uint8_t*& block : pool.buffers) {
            if (block != nullptr && StoredSize(block) == size)
                return std::exchange(block, nullptr) + kHeaderBytes;
        }
    }
    auto* block =
        static_cast<uint8_t*>(::operator new[](size + kHeaderBytes, kPixelAlignment, std::nothrow));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &size, sizeof size);
    return block + kHeaderBytes;
}

void FreePixels(uint8_t* pixels) {
    if (pixels == nullptr) return;
    uint8_t* block = pixels - kHeaderBytes;
    if (StoredSize(block) >= kPooledMinimum) {
        BufferPool& pool = Pool();
        std::lock_guard<std::mutex> guard(pool.lock);
        for (uint8_t*& slot : pool.buffers) {
            if (slot == nullptr) {
                slot = block;
                return;
            }
        }
        std::swap(block, pool.buffers[0]);  // full: the newest buffer takes the first slot
    }
    ::operator delete[](block, kPixelAlignment);
}

void ReleasePooledPixels() {
    uint8_t* blocks[kPooledBuffers] = {};
    {
        std::lock_guard<std::mutex> guard(pool.lock);
        std::swap(blocks, pool.buffers);
    }
    for (uint8_t* block : blocks) {
        if (block != nullptr) ::operator delete[](block, kPixelAlignment);
    }
}

InlayBuffer* CreateInlayBuffer(int32_t width, int32_t height) {
    auto* sample = new InlayBuffer{};
    if (width <= 0 || height <= 0) return sample;
    const uint64_t bytes = uint64_t(width) * uint64_t(height) * 4;
    if (bytes > kMaxSampleBytes) return sample;
    sample->pixels = AllocatePixels(uint32_t(bytes));
    if (sample->pixels == nullptr) return sample;
    sample->width = uint32_t(width);
    sample->height = uint32_t(height);
    sample->size = uint32_t(bytes);
    return sample;
}

void ReleaseInlayBuffer(InlayBuffer* sample) {
    if (sample == nullptr) return;
    FreePixels(sample->pixels);
    delete sample;
}

void RenderSampleView(const InlayBuffer* sample, uint8_t* destination, uint32_t viewWidth,
                      uint32_t viewHeight) {
    if (sample == nullptr || destination == nullptr || sample->pixels == nullptr) return;
    if (sample->width < 1 || sample->height < 1) return;
    // The projector takes signed sizes; a record whose size does not cover its picture is refused
    // rather than read past its end.
    const uint64_t pictureBytes = uint64_t(sample->width) * sample->height * 4;
    if (pictureBytes > sample->size) return;
    if (viewWidth < 1 || viewHeight < 1) return;
    if (uint64_t(viewWidth) * viewHeight * 4 > std::numeric_limits<uint32_t>::max()) return;

    RenderPanoramaView(reinterpret_cast<const uint32_t*>(sample->pixels), int32_t(sample->width),
                       int32_t(sample->height), reinterpret_cast<uint32_t*>(destination),
                       int32_t(viewWidth), int32_t(viewHeight), sample->pan, sample->tilt,
                       sample->fov);
}

}  // namespace vexel
