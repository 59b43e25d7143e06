// ComObject: the one reference count of every COM-style object of the library and its modules
// (media-graph objects, the codec host's objects, the render sinks). The final class lists the
// interfaces it implements and answers QueryInterface itself; AddRef and Release here serve every
// listed interface (interfaces deriving virtually from one base share it). A new object starts with
// no reference; NewObject hands one to its maker.
//
// Threads: AddRef and Release may come from any thread; the count is atomic.
//
// Compiles as C++17 and later.
#ifndef VEXEL_COM_OBJECT_H
#define VEXEL_COM_OBJECT_H

#include <atomic>
#include <cstdint>
#include <utility>

#include "vexel/guid.h"
#include "vexel/status.h"

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

// A new T holding one reference, which the caller owns.
template <class T, class... Args>
T* NewObject(Args&&... args) {
    T* object = new T(std::forward<Args>(args)...);
    object->AddRef();
    return object;
}

// The checks every QueryInterface starts with: S_OK when both pointers are given (and *out is
// cleared), else E_POINTER.
inline HRESULT CheckQuery(const GUID* iid, void** out) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    return iid == nullptr ? E_POINTER : S_OK;
}

// Hands out `self` as interface I with a further reference.
template <class I>
HRESULT ShareInterface(I* self, void** out) {
    self->AddRef();
    *out = self;
    return S_OK;
}

// Makes a T and asks it for `iid`; the object is freed again when it has no such interface.
// E_OUTOFMEMORY when making it throws.
template <class T, class... Args>
HRESULT CreateObject(const GUID* iid, void** out, Args&&... args) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    T* object = nullptr;
    try {
        object = NewObject<T>(std::forward<Args>(args)...);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = object->QueryInterface(iid, out);
    object->Release();
    return hr;
}

}  // namespace vexel

#endif  // VEXEL_COM_OBJECT_H
