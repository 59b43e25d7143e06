// ComObject: the reference count of media-graph objects, in the library's runtime and in modules
// such as the PCM feed filter. The final class lists the interfaces it implements (each derived from
// IUnknown) and answers QueryInterface itself; AddRef and Release here serve every listed interface.
// A new object starts with no reference.
//
// Threads: AddRef and Release may come from any thread; the count is atomic.
#pragma once

#include <atomic>
#include <cstdint>

#include "vexel/media_graph.h"

namespace vexel {

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

private:
    std::atomic<uint32_t> count_{0};
};

// Hands out `self` as interface I with a further reference.
template <class I>
HRESULT ShareInterface(I* self, void** out) {
    self->AddRef();
    *out = self;
    return S_OK;
}

// Asks a newly made object (no reference yet) for `iid`; the object is freed when it has no such
// interface.
template <class Object>
HRESULT QueryNewObject(Object* object, const GUID* iid, void** out) {
    object->AddRef();
    const HRESULT hr = object->QueryInterface(iid, out);
    object->Release();
    return hr;
}

}  // namespace vexel
