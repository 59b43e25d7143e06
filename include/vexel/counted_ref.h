// CountedRef<T>: holds at most one reference on a reference-counted interface (AddRef / Release).
// Copying takes a further reference, moving hands the reference over, reset and destruction give
// it back. Every interface pointer the library and its modules keep is held this way.
//
// Threads: a CountedRef object is used by one thread at a time; distinct CountedRefs on the same
// interface may live on different threads when the object's own counting allows it.
#pragma once

#include <cstddef>
#include <utility>

#include "vexel/status.h"

namespace vexel {

template <class T>
class CountedRef {
public:
    CountedRef() noexcept = default;
    CountedRef(std::nullptr_t) noexcept {}

    // Takes a further reference on `p`; the caller keeps its own.
    explicit CountedRef(T* p) noexcept : p_(p) {
        if (p_ != nullptr) p_->AddRef();
    }

    CountedRef(const CountedRef& other) noexcept : CountedRef(other.p_) {}
    CountedRef(CountedRef&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}

    ~CountedRef() { reset(); }

    CountedRef& operator=(const CountedRef& other) noexcept {
        CountedRef(other).swap(*this);
        return *this;
    }

    CountedRef& operator=(CountedRef&& other) noexcept {
        CountedRef(std::move(other)).swap(*this);
        return *this;
    }

    CountedRef& operator=(std::nullptr_t) noexcept {
        reset();
        return *this;
    }

    // Holds `p` with a reference the caller already owns (no AddRef).
    static CountedRef Adopt(T* p) noexcept {
        CountedRef ref;
        ref.p_ = p;
        return ref;
    }

    void reset() noexcept {
        if (T* old = std::exchange(p_, nullptr)) old->Release();
    }

    // For an out-parameter of type T**: gives back the held reference first, so whatever the
    // callee stores is adopted.
    T** put() noexcept {
        reset();
        return &p_;
    }

    // Asks `source` for interface `id` and holds the answer, which arrives with its own reference.
    // Returns the status of QueryInterface (ERR_NULL_ARGUMENT without a source); on failure or a
    // null answer this stays empty.
    template <class Source, class Id>
    auto QueryFrom(Source* source, const Id& id) -> decltype(source->QueryInterface(&id, nullptr)) {
        using Status = decltype(source->QueryInterface(&id, nullptr));
        reset();
        if (source == nullptr) return static_cast<Status>(ERR_NULL_ARGUMENT);
        void* out = nullptr;
        auto status = source->QueryInterface(&id, &out);
        if (status >= 0 && out != nullptr) p_ = static_cast<T*>(out);
        return status;
    }

    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    void swap(CountedRef& other) noexcept { std::swap(p_, other.p_); }

private:
    T* p_ = nullptr;
};

}  // namespace vexel
