#include "overlay.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace view {

namespace {

constexpr int kMargin = 10;
constexpr int kLine = 18;  // a text line of the font at scale 2, with its spacing
constexpr int kBarHeight = 10;
constexpr uint32_t kBackground = 0xA0000000u;  // black, partly transparent
constexpr uint32_t kBarEmpty = 0xFF505050u;
constexpr uint32_t kBarPlayed = 0xFFD0D0D0u;
constexpr uint32_t kFreezeMark = 0xFF20C0F0u;
constexpr uint32_t kPlayhead = 0xFFFF4040u;
constexpr uint32_t kText = 0xFFFFFFFFu;

std::string Format(const char* format, double a, double b = 0.0, double c = 0.0) {
    char text[96];
    std::snprintf(text, sizeof text, format, a, b, c);
    return text;
}

int Column(const Rect& bar, double seconds, double duration) {
    return bar.x + static_cast<int>(std::lround(std::clamp(seconds / duration, 0.0, 1.0) * bar.w));
}

}  // namespace

int OverlayHeight() { return kMargin + 2 * kLine + kBarHeight + kMargin; }

Rect TimeBarRect(int windowWidth, int windowHeight) {
    return {kMargin, windowHeight - kMargin - kBarHeight, std::max(windowWidth - 2 * kMargin, 1),
            kBarHeight};
}

double TimeAtColumn(const Rect& bar, int x, double duration) {
    return std::clamp(static_cast<double>(x - bar.x) / bar.w, 0.0, 1.0) * std::max(duration, 0.0);
}

void DrawOverlay(const OverlayInfo& info, int width, mediakit::Canvas* canvas) {
    const int height = OverlayHeight();
    if (canvas->width != width || canvas->height != height)
        *canvas = mediakit::Canvas(width, height);
    std::fill(canvas->pixels.begin(), canvas->pixels.end(), kBackground);

    std::string first =
        Format("%.2f / %.2f S", info.time, info.duration) +
        Format("    PAN %.1f  TILT %.1f  FOV %.1f", info.view.pan, info.view.tilt, info.view.fov);
    std::string second =
        Format("%.1f FPS  LATE %.0f  ", info.fps, static_cast<double>(info.lateFrames)) +
        (info.muted ? std::string("MUTED") : Format("VOL %.1f DB", info.volume / 100.0));
    if (info.paused) second += "  PAUSED";
    if (info.followingPath) second += "  PATH";
    if (!info.message.empty()) second += "  " + info.message;
    for (char& c : second) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    // Small windows get the font at its own size, so that the lines still fit.
    const int scale = mediakit::TextWidth(first, 2) + 2 * kMargin <= width ? 2 : 1;
    mediakit::DrawText(*canvas, kMargin, kMargin, first, scale, kText);
    mediakit::DrawText(*canvas, kMargin, kMargin + kLine, second, scale, kText);

    const Rect bar = TimeBarRect(width, height);
    const double duration = std::max(info.duration, 1e-9);
    canvas->FillRect(bar.x, bar.y, bar.w, bar.h, kBarEmpty);
    canvas->FillRect(bar.x, bar.y, Column(bar, info.time, duration) - bar.x, bar.h, kBarPlayed);
    for (const Stretch& freeze : info.freezes) {
        const int x0 = Column(bar, freeze.start, duration),
                  x1 = Column(bar, freeze.start + freeze.length, duration);
        canvas->FillRect(x0, bar.y + bar.h / 2, std::max(x1 - x0, 2), bar.h - bar.h / 2,
                         kFreezeMark);
    }
    canvas->FillRect(Column(bar, info.time, duration) - 1, bar.y - 3, 3, bar.h + 6, kPlayhead);
}

}  // namespace view
