// Status codes: 32-bit signed, 0 success, 1 success-false, negative failure.
#pragma once

#include <cstdint>

namespace vexel {

constexpr int32_t kOk = 0;
constexpr int32_t kFalse = 1;
constexpr int32_t ERR_NO_STREAM = static_cast<int32_t>(0xA2100002u);       // no usable video stream
constexpr int32_t ERR_NULL_ARGUMENT = static_cast<int32_t>(0xA210000Du);   // a required pointer is null
constexpr int32_t ERR_WRONG_STATE = static_cast<int32_t>(0xA210000Fu);     // not allowed in this state
constexpr int32_t ERR_SAMPLE_REFUSED = static_cast<int32_t>(0xA2100010u);  // engine takes no more samples
constexpr int32_t ERR_NO_INTERFACE = static_cast<int32_t>(0x80000001u);    // interface not offered

inline bool Failed(int32_t status) { return status < 0; }
inline bool Succeeded(int32_t status) { return status >= 0; }

}  // namespace vexel
