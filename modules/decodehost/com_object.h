// ComObject: reference counting shared by every object of the codec host. The final class lists
// the interfaces it implements (each derives virtually from IVexelBase, so they share one count)
// and answers QueryInterface itself.
//
// Threads: AddRef and Release may come from any thread; the count is atomic.
#pragma once

#include <atomic>
#include <cstdint>

#include "vexel/codec_host.h"

namespace decodehost {

inline constexpr int32_t kOk = 0;
inline constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);
inline constexpr int32_t kNoInterface = static_cast<int32_t>(0x80004002u);
inline constexpr int32_t kInvalidArgument = static_cast<int32_t>(0x80070057u);
inline constexpr int32_t kNotReady = static_cast<int32_t>(0x80070015u);  // busy or not set up
inline constexpr int32_t kSampleRefused = static_cast<int32_t>(0xA2100010u);

template <class... Interfaces>
class ComObject : public Interfaces... {
public:
    ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    uint32_t AddRef() override { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }

    uint32_t Release() override {
        const uint32_t count = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) delete this;
        return count;
    }

protected:
    virtual ~ComObject() = default;

    // Hands out `self` with a further reference.
    template <class T>
    int32_t Answer(T* self, void** out) {
        AddRef();
        *out = self;
        return kOk;
    }

private:
    std::atomic<uint32_t> count_{1};  // the creator's reference
};

}  // namespace decodehost
