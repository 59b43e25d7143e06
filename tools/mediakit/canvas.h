// Canvas: a picture of 32-bit pixels (bytes B, G, R, A in memory, rows top-down, no padding), the
// format the player hands out, with the few drawing operations the tools need.
//
// Threads: a canvas is used by one thread at a time.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace mediakit {

// 0xAARRGGBB, which lies in memory as B, G, R, A.
constexpr uint32_t Rgb(uint8_t r, uint8_t g, uint8_t b) {
    return 0xFF000000u | uint32_t{r} << 16 | uint32_t{g} << 8 | b;
}
inline constexpr uint32_t kBlack = Rgb(0, 0, 0);
inline constexpr uint32_t kWhite = Rgb(255, 255, 255);

struct Canvas {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> pixels;

    Canvas() = default;
    Canvas(int w, int h, uint32_t fill = kBlack)
        : width(w), height(h), pixels(static_cast<size_t>(w) * h, fill) {}

    uint32_t* row(int y) { return pixels.data() + static_cast<size_t>(y) * width; }
    const uint32_t* row(int y) const { return pixels.data() + static_cast<size_t>(y) * width; }
    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(pixels.data()); }
    const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(pixels.data()); }

    // Drawing clips to the canvas.
    void FillRect(int x, int y, int w, int h, uint32_t color);
    // Columns wrap round (x modulo width), as on a panorama.
    void FillCircleWrapped(int cx, int cy, int radius, uint32_t color);
    void Blit(const Canvas& source, int x, int y);
};

// Text in a 5 x 7 pixel font, each font pixel drawn as scale x scale. Upper-case letters, digits
// and ": . , - + / % ( ) = x *"; other characters show as blanks. The cell of a character is
// 6 x 8 font pixels.
void DrawText(Canvas& canvas, int x, int y, std::string_view text, int scale, uint32_t color);
int TextWidth(std::string_view text, int scale);
inline int TextHeight(int scale) { return 7 * scale; }

}  // namespace mediakit
