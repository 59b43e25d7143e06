// Run-time loading of sibling modules by plain file name (searched as the dynamic loader does:
// LD_LIBRARY_PATH, then the calling library's RUNPATH, then the system directories).
//
// Threads: loading and lookups are safe on any thread. A ModuleHandle object is used by one thread
// at a time.
#pragma once

namespace vexel {

// The loaded module, or null when it cannot be loaded.
void* LoadModule(const char* fileName);
// Address of an exported symbol, or null when the module or the symbol is missing.
void* FindSymbol(void* module, const char* symbol);
void FreeModule(void* module);

// Owns one load of a module and closes it when destroyed, unless it was kept loaded.
class ModuleHandle {
public:
    ModuleHandle() = default;
    explicit ModuleHandle(const char* fileName) : module_(LoadModule(fileName)) {}
    ~ModuleHandle() { Reset(); }

    ModuleHandle(const ModuleHandle&) = delete;
    ModuleHandle& operator=(const ModuleHandle&) = delete;
    ModuleHandle(ModuleHandle&& other) noexcept : module_(other.module_) { other.module_ = nullptr; }
    ModuleHandle& operator=(ModuleHandle&& other) noexcept;

    explicit operator bool() const { return module_ != nullptr; }

    void* Symbol(const char* symbol) const { return FindSymbol(module_, symbol); }

    // The symbol as a function pointer of type Fn, or null.
    template <class Fn>
    Fn Function(const char* symbol) const {
        return reinterpret_cast<Fn>(Symbol(symbol));
    }

    // Closes the module now.
    void Reset();

    // Leaves the module loaded for the rest of the process and forgets it.
    void KeepLoaded() { module_ = nullptr; }

private:
    void* module_ = nullptr;
};

}  // namespace vexel
