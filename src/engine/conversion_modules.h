// Bindings to the colour conversion module (loaded with each engine, freed with it) and the fisheye
// unwrapping module (loaded on first use, kept for the life of the process).
//
// Threads: a PixelConvertModule is made and destroyed by the engine's owner and used by the video
// delivery thread. UnwrapFunction may be called from any thread.
#pragma once

#include "platform/module.h"
#include "vexel/conversion.h"

namespace vexel {

class PixelConvertModule {
public:
    PixelConvertModule();
    ~PixelConvertModule() { module_.Unload(); }
    PixelConvertModule(const PixelConvertModule&) = delete;
    PixelConvertModule& operator=(const PixelConvertModule&) = delete;

    // True when the module and its three functions were found.
    bool Available() const { return convert_ != nullptr; }

    uint32_t CalculateBufferSize(const PixelBufferDesc& desc) const { return bufferSize_(&desc); }
    void CalculatePlanePointer(PixelBufferDesc& desc) const { planePointer_(&desc); }
    void ConvertBuffers(const PixelBufferDesc& source, const PixelBufferDesc& destination) const {
        convert_(&source, &destination);
    }

private:
    SiblingModule module_{kPixelConvertModule};
    CalculateBufferSizeFn bufferSize_ = nullptr;
    CalculatePlanePointerFn planePointer_ = nullptr;
    ConvertBuffersFn convert_ = nullptr;
};

// The unwrap function for one or two lenses, or null when the module or function is missing.
UnwrapFn UnwrapFunction(bool dual);

}  // namespace vexel
