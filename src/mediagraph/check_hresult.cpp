#include "mediagraph/check_hresult.h"

#include "mediagraph/com_runtime.h"

namespace vexel {

WideString ErrorText(HRESULT hr) {
    char16_t buffer[MAX_ERROR_TEXT_LEN] = {};
    const uint32_t length = AMGetErrorTextW(hr, buffer, MAX_ERROR_TEXT_LEN);
    return WideString(buffer, length);
}

WideString FilterContext(const char* prefix, const WideString& name) {
    return Widen(prefix) + name + u" )";
}

bool CheckHResult(HRESULT hr, const WideString& context, FailMode mode) {
    if (hr >= 0) return false;
    if (mode != FailReturn) throw new ComException{context, ErrorText(hr)};
    return true;
}

}  // namespace vexel
