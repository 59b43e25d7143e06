// Wide string: UTF-16 text with its length, as filter names and error texts are kept.
#pragma once

#include <string>
#include <string_view>

namespace vexel {

using WideString = std::u16string;

// Widens 8-bit text character by character (each byte becomes one UTF-16 unit).
inline WideString Widen(std::string_view text) {
    WideString out;
    out.reserve(text.size());
    for (char c : text) out.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));
    return out;
}

}  // namespace vexel
