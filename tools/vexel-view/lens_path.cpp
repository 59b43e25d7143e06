#include "lens_path.h"

#include <dlfcn.h>

namespace view {

bool LensPath::Bind() {
    // RTLD_NOLOAD: only the instance the player loaded has the path it records into.
    void* module = dlopen(kLensParamsModule, RTLD_NOW | RTLD_NOLOAD);
    if (module == nullptr) return false;
    save_ = reinterpret_cast<PanoramaPathFileFn>(dlsym(module, kSavePanoramaPathSymbol));
    load_ = reinterpret_cast<PanoramaPathFileFn>(dlsym(module, kLoadPanoramaPathSymbol));
    clear_ = reinterpret_cast<ClearPanoramaPathFn>(dlsym(module, kClearPanoramaPathSymbol));
    viewAt_ = reinterpret_cast<GetPanoramaAngleFn>(dlsym(module, kGetPanoramaAngleSymbol));
    // The player keeps the module loaded for the life of the process; this reference goes.
    dlclose(module);
    if (save_ == nullptr || load_ == nullptr || clear_ == nullptr || viewAt_ == nullptr)
        *this = LensPath();
    return bound();
}

int32_t LensPath::Save(const std::string& file) const {
    return save_ ? save_(file.c_str()) : E_POINTER;
}

int32_t LensPath::Load(const std::string& file) const {
    return load_ ? load_(file.c_str()) : E_POINTER;
}

void LensPath::Clear() const {
    if (clear_) clear_();
}

bool LensPath::ViewAt(double seconds, double* pan, double* tilt, double* fov) const {
    return viewAt_ != nullptr && viewAt_(seconds, pan, tilt, fov) >= 0;
}

const char* DescribeResult(int32_t result) {
    switch (result) {
        case S_OK:
            return "done";
        case E_FAIL:
            return "cannot read or write the file";
        case E_INVALID_DATA:
            return "not a view path file";
        case E_OUTOFMEMORY:
            return "out of memory";
        case E_POINTER:
            return "no lens module";
        default:
            return "failed";
    }
}

}  // namespace view
