#include "platform/module.h"

#include <dlfcn.h>

#include "common/log.h"

namespace vexel {

bool SiblingModule::Load() {
    if (Loaded()) return true;
    std::lock_guard<std::mutex> guard(loading_);
    if (!Loaded() && fileName_ != nullptr && fileName_[0] != '\0') {
        module_.store(dlopen(fileName_, RTLD_NOW | RTLD_LOCAL), std::memory_order_release);
    }
    if (!Loaded() && missingMessage_ != nullptr) LogPrintf("%s", missingMessage_);
    return Loaded();
}

void SiblingModule::Unload() {
    std::lock_guard<std::mutex> guard(loading_);
    if (void* module = module_.exchange(nullptr)) dlclose(module);
}

void* SiblingModule::Symbol(const char* symbol) const {
    void* module = handle();
    return module != nullptr && symbol != nullptr ? dlsym(module, symbol) : nullptr;
}

}  // namespace vexel
