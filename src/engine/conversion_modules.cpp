#include "engine/conversion_modules.h"

namespace vexel {

PixelConvertModule::PixelConvertModule() {
    if (!module_.Load()) return;
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
    constinit static SiblingModule sphereUnwrap(kSphereUnwrapModule);
    if (!sphereUnwrap.Load()) return nullptr;
    return sphereUnwrap.Function<UnwrapFn>(dual ? kDualFisheyeSymbol : kSingleFisheyeSymbol);
}

}  // namespace vexel
