// The conversion modules as the player meets them: loaded at run time (here by path from the build
// folder, VEXEL_MODULE_DIR) and reached through dlsym. Modules stay loaded for the whole run.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "vexel/conversion.h"

namespace vexel::testing {

inline void* LoadConversionModule(const char* fileName) {
    const std::string path = std::string(VEXEL_MODULE_DIR) + "/" + fileName;
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(module, nullptr) << dlerror();
    return module;
}

// A function of a module; fails the test (and returns null) when it is missing.
template <class Fn>
Fn ModuleFunction(const char* fileName, const char* symbol) {
    void* module = LoadConversionModule(fileName);
    void* address = module != nullptr ? dlsym(module, symbol) : nullptr;
    EXPECT_NE(address, nullptr) << fileName << " lacks " << symbol;
    return reinterpret_cast<Fn>(address);
}

}  // namespace vexel::testing
