// Bilinear blend of four 32-bit pixels, the per-pixel kernel of the view projector.
#pragma once

#include <cstdint>

namespace vexel {

// tl at (x, y), tr at (x+1, y), bl at (x, y+1), br at (x+1, y+1); fx, fy in 0..255. The weights
// (255-fx)(255-fy), fx(255-fy), (255-fx)fy and fx*fy sum to 65025, not 65536, so a uniform 255
// comes out as 253. Each colour byte is its weighted sum shifted right by 16; alpha is always 255.
inline uint32_t BlendBilinear(uint32_t tl, uint32_t tr, uint32_t bl, uint32_t br, uint32_t fx,
                              uint32_t fy) {
    const uint32_t wtl = (255 - fx) * (255 - fy);
    const uint32_t wtr = fx * (255 - fy);
    const uint32_t wbl = (255 - fx) * fy;
    const uint32_t wbr = fx * fy;
    // Blue and red share one 64-bit word (lanes at bits 0 and 32, each sum < 2^24); green alone.
    auto rb = [](uint32_t p) { return (p & 0xFFu) | (static_cast<uint64_t>(p & 0xFF0000u) << 16); };
    auto g = [](uint32_t p) { return (p >> 8) & 0xFFu; };
    const uint64_t sumRB = rb(tl) * wtl + rb(tr) * wtr + rb(bl) * wbl + rb(br) * wbr;
    const uint32_t sumG = g(tl) * wtl + g(tr) * wtr + g(bl) * wbl + g(br) * wbr;
    return 0xFF000000u | (static_cast<uint32_t>(sumRB >> 48) & 0xFFu) << 16 | (sumG >> 16) << 8 |
           (static_cast<uint32_t>(sumRB >> 16) & 0xFFu);
}

}  // namespace vexel
