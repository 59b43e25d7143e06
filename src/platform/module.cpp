#include "platform/module.h"

#include <dlfcn.h>

namespace vexel {

void* LoadModule(const char* fileName) {
    if (fileName == nullptr || fileName[0] == '\0') return nullptr;
    return dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
}

void* FindSymbol(void* module, const char* symbol) {
    if (module == nullptr || symbol == nullptr) return nullptr;
    return dlsym(module, symbol);
}

void FreeModule(void* module) {
    if (module != nullptr) dlclose(module);
}

ModuleHandle& ModuleHandle::operator=(ModuleHandle&& other) noexcept {
    if (this != &other) {
        Reset();
        module_ = other.module_;
        other.module_ = nullptr;
    }
    return *this;
}

void ModuleHandle::Reset() {
    FreeModule(module_);
    module_ = nullptr;
}

}  // namespace vexel
