// Interface references and a pin enumerator for the module's objects.
//
// Threads: a Ref is used by one thread at a time; the objects count references with
// vexel::ComObject, safe on any thread.
#pragma once

#include <cstdint>
#include <utility>

#include "vexel/com_object.h"
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

// Enumerates one pin.
class SinglePinEnum final : public vexel::ComObject<IEnumPins> {
public:
    explicit SinglePinEnum(IPin* pin) : pin_(pin) {}

    HRESULT QueryInterface(const GUID* iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        if (iid == nullptr) return E_POINTER;
        if (*iid == IID_IUnknown || *iid == IID_IEnumPins) return vexel::ShareInterface<IEnumPins>(this, out);
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
