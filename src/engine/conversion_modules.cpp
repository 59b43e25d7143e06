#include "engine/conversion_modules.h"

#include <mutex>

namespace vexel {

PixelConvertModule::PixelConvertModule() : module_(kPixelConvertModule) {
    if (!module_) return;
    auto bufferSize = module_.Function<CalculateBufferSizeFn>(kCalculateBufferSizeSymbol);
    auto planePointer = module_.Function<CalculatePlanePointerFn>(kCalculatePlanePointerSymbol);
    auto convert = module_.Function<ConvertBuffersFn>(kConvertBuffersSymbol);
    if (bufferSize && planePointer && convert) {
        bufferSize_ = bufferSize;
        planePointer_ = planePointer;
        convert_ = convert;
    }
}

UnwrapFn UnwrapFunction(bool dual) {
    static std::once_flag loadOnce[2];
    static UnwrapFn functions[2] = {nullptr, nullptr};
    const int index = dual ? 1 : 0;
    std::call_once(loadOnce[index], [&] {
        ModuleHandle module(kSphereUnwrapModule);
        functions[index] = module.Function<UnwrapFn>(dual ? kDualFisheyeSymbol : kSingleFisheyeSymbol);
        module.KeepLoaded();  // one more load of the same module; it is never unloaded
    });
    return functions[index];
}

}  // namespace vexel
