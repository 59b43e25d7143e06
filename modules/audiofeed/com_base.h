// Reference counting, interface references and a pin enumerator for the module's objects.
//
// Threads: AddRef and Release may come from any thread; the count is atomic. A Ref is used by one
// thread at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "vexel/media_graph.h"

namespace audiofeed {

// Holds one reference on an interface.
template <class T>
class Ref {
public:
    Ref() = default;
    explicit Ref(T* p) : p_(p) {
        if (p_ != nullptr) p_->AddRef();
    }
    Ref(const Ref& other) : Ref(other.p_) {}
    Ref(Ref&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(p_, other.p_);
        return *this;
    }
    ~Ref() {
        if (p_ != nullptr) p_->Release();
    }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    T** put() {
        *this = Ref();
        return &p_;
    }

private:
    T* p_ = nullptr;
};

template <class... Interfaces>
class RefCounted : public Interfaces... {
public:
    RefCounted() = default;
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

    uint32_t AddRef() override { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
    uint32_t Release() override {
        const uint32_t count = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) delete this;
        return count;
    }

protected:
    virtual ~RefCounted() = default;

private:
    std::atomic<uint32_t> count_{0};
};

template <class I>
HRESULT Share(I* self, void** out) {
    self->AddRef();
    *out = self;
    return S_OK;
}

// A new object (no reference yet) asked for `iid`; freed when it has no such interface.
template <class Object>
HRESULT QueryNew(Object* object, const GUID* iid, void** out) {
    object->AddRef();
    const HRESULT hr = object->QueryInterface(iid, out);
    object->Release();
    return hr;
}

// Enumerates one pin.
class SinglePinEnum final : public RefCounted<IEnumPins> {
public:
    explicit SinglePinEnum(IPin* pin) : pin_(pin) {}

    HRESULT QueryInterface(const GUID* iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        if (iid == nullptr) return E_POINTER;
        if (*iid == IID_IUnknown || *iid == IID_IEnumPins) return Share<IEnumPins>(this, out);
        return E_NOINTERFACE;
    }

    HRESULT Next(uint32_t count, IPin** pins, uint32_t* fetched) override {
        if (pins == nullptr) return E_POINTER;
        uint32_t n = 0;
        if (count > 0 && !done_) {
            pin_->AddRef();
            pins[0] = pin_.get();
            done_ = true;
            n = 1;
        }
        if (fetched != nullptr) *fetched = n;
        return n == count ? S_OK : S_FALSE;
    }

    HRESULT Reset() override {
        done_ = false;
        return S_OK;
    }

private:
    Ref<IPin> pin_;
    bool done_ = false;
};

}  // namespace audiofeed
