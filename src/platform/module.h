// SiblingModule: the one way the library binds a sibling module (libDecodeHost.so and the other
// modules beside it). The module is loaded by plain file name, as the dynamic loader searches
// (LD_LIBRARY_PATH, then the calling library's RUNPATH, then the system folders), the first time
// Load finds it; while it is missing every Load tries again and reports the binding's message, if
// it has one. Symbols are looked up in the loaded module.
//
// Lifetime: a binding with static storage keeps its module for the life of the process (its
// constructor is constant and nothing runs at exit); a binding owned by an object frees the module
// when the owner calls Unload.
//
// Threads: Load, Symbol and Function may be called from any thread at once. Unload only when no
// other thread uses the binding or anything from the module.
#pragma once

#include <atomic>
#include <mutex>

namespace vexel {

class SiblingModule {
public:
    // `missingMessage`, when given, is logged (as a format without arguments) at every Load that
    // does not find the module.
    constexpr explicit SiblingModule(const char* fileName, const char* missingMessage = nullptr)
        : fileName_(fileName), missingMessage_(missingMessage) {}
    SiblingModule(const SiblingModule&) = delete;
    SiblingModule& operator=(const SiblingModule&) = delete;

    // True when the module is loaded, now or before.
    bool Load();
    // Frees the module; a later Load loads it again.
    void Unload();

    bool Loaded() const { return handle() != nullptr; }
    // Address of an exported symbol; null while the module or the symbol is missing.
    void* Symbol(const char* symbol) const;
    template <class Fn>
    Fn Function(const char* symbol) const {
        return reinterpret_cast<Fn>(Symbol(symbol));
    }

private:
    void* handle() const { return module_.load(std::memory_order_acquire); }

    const char* const fileName_;
    const char* const missingMessage_;
    std::mutex loading_;
    std::atomic<void*> module_{nullptr};
};

}  // namespace vexel
