#include "canvas.h"

#include <algorithm>
#include <cstring>

namespace mediakit {

void Canvas::FillRect(int x, int y, int w, int h, uint32_t color) {
    const int x0 = std::max(x, 0), x1 = std::min(x + w, width);
    const int y0 = std::max(y, 0), y1 = std::min(y + h, height);
    for (int yy = y0; yy < y1; ++yy) std::fill(row(yy) + x0, row(yy) + std::max(x0, x1), color);
}

void Canvas::FillCircleWrapped(int cx, int cy, int radius, uint32_t color) {
    if (width <= 0) return;
    for (int dy = -radius; dy <= radius; ++dy) {
        const int y = cy + dy;
        if (y < 0 || y >= height) continue;
        for (int dx = -radius; dx <= radius; ++dx) {
            if (dx * dx + dy * dy > radius * radius) continue;
            const int x = ((cx + dx) % width + width) % width;
            row(y)[x] = color;
        }
    }
}

void Canvas::Blit(const Canvas& source, int x, int y) {
    for (int sy = 0; sy < source.height; ++sy) {
        const int ty = y + sy;
        if (ty < 0 || ty >= height) continue;
        const int x0 = std::max(x, 0), x1 = std::min(x + source.width, width);
        if (x1 <= x0) continue;
        std::memcpy(row(ty) + x0, source.row(sy) + (x0 - x), static_cast<size_t>(x1 - x0) * 4);
    }
}

}  // namespace mediakit
