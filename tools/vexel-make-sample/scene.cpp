#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sample {

namespace {

using mediakit::Canvas;
using mediakit::Rgb;

struct Color {
    double r, g, b;
};

Color Mix(Color a, Color b, double t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

Color Hue(double h) {  // h in [0, 1), saturation 0.45, value 0.8
    const double s = 0.45, v = 200.0;
    const double k = h * 6.0;
    const int sector = static_cast<int>(k) % 6;
    const double f = k - std::floor(k);
    const double p = v * (1 - s), q = v * (1 - s * f), t = v * (1 - s * (1 - f));
    switch (sector) {
        case 0:
            return {v, t, p};
        case 1:
            return {q, v, p};
        case 2:
            return {p, v, t};
        case 3:
            return {p, q, v};
        case 4:
            return {t, p, v};
        default:
            return {v, p, q};
    }
}

uint32_t Pack(Color c) {
    auto byte = [](double v) { return static_cast<uint8_t>(std::clamp(v, 0.0, 255.0)); };
    return Rgb(byte(c.r), byte(c.g), byte(c.b));
}

constexpr Color kSky = {110, 160, 235};
constexpr Color kGround = {105, 80, 55};
constexpr uint32_t kMarker = Rgb(230, 30, 30);
constexpr uint32_t kLabel = Rgb(255, 255, 255);
constexpr uint32_t kShadow = Rgb(20, 20, 20);

// Text centred on column x; copies one picture width to either side make it wrap round the seam.
void DrawWrapped(Canvas& c, int x, int y, const char* text, int scale, uint32_t color,
                 bool shadow) {
    x -= mediakit::TextWidth(text, scale) / 2;
    const int offset = std::max(1, scale / 3);
    for (int shift : {0, -c.width, c.width}) {
        if (shadow) mediakit::DrawText(c, x + shift + offset, y + offset, text, scale, kShadow);
        mediakit::DrawText(c, x + shift, y, text, scale, color);
    }
}

}  // namespace

Scene::Scene(int width, int height, int fps, int frames)
    : background_(width, height), fps_(std::max(fps, 1)), frames_(std::max(frames, 1)) {
    DrawBackground();
}

int Scene::ColumnOf(double longitude) const {
    return static_cast<int>(std::lround((longitude + 180.0) / 360.0 * background_.width));
}

int Scene::RowOf(double latitude) const {
    return static_cast<int>(std::lround((90.0 - latitude) / 180.0 * background_.height));
}

void Scene::DrawBackground() {
    Canvas& c = background_;
    const int line = std::max(1, c.width / 1920);
    for (int y = 0; y < c.height; ++y) {
        const double latitude = 90.0 - (y + 0.5) * 180.0 / c.height;
        for (int x = 0; x < c.width; ++x) {
            const double longitude = (x + 0.5) * 360.0 / c.width - 180.0;
            Color color = Hue((longitude + 180.0) / 360.0);
            color = Mix(color, latitude >= 0 ? kSky : kGround, std::abs(latitude) / 90.0 * 0.6);
            c.row(y)[x] = Pack(color);
        }
    }
    // Grid: every 15 degrees, heavier every 90, the horizon heaviest.
    for (int degrees = -180; degrees < 180; degrees += 15) {
        const int width = degrees % 90 == 0 ? 3 * line : line;
        c.FillRect(ColumnOf(degrees) - width / 2, 0, width, c.height, Rgb(40, 40, 40));
    }
    for (int degrees = -75; degrees <= 75; degrees += 15) {
        const int width = degrees == 0 ? 4 * line : (degrees % 45 == 0 ? 2 * line : line);
        c.FillRect(0, RowOf(degrees) - width / 2, c.width, width,
                   degrees == 0 ? kLabel : Rgb(40, 40, 40));
    }

    const int scale = std::max(1, c.height / 120);
    const bool roomy = c.width >= 512;  // tiny test pictures get one set of labels only
    const struct {
        double longitude;
        const char* name;
    } directions[] = {{0, "N 0"},      {45, "NE 45"},    {90, "E 90"},   {135, "SE 135"},
                      {-180, "S 180"}, {-135, "SW 225"}, {-90, "W 270"}, {-45, "NW 315"}};
    for (const auto& d : directions) {
        if (!roomy && d.longitude != 0) continue;
        DrawLabel(d.longitude, 6.0, d.name,
                  static_cast<int>(d.longitude) % 90 == 0 ? scale : std::max(1, scale * 2 / 3),
                  kLabel);
        if (static_cast<int>(d.longitude) % 90 == 0 && roomy) {
            DrawLabel(d.longitude, 60.0, "UP", scale, kLabel);
            DrawLabel(d.longitude, -60.0, "DOWN", scale, kLabel);
        }
    }
}

void Scene::DrawLabel(double longitude, double latitude, const char* text, int scale,
                      uint32_t color) {
    DrawWrapped(background_, ColumnOf(longitude), RowOf(latitude) - mediakit::TextHeight(scale),
                text, scale, color, true);
}

bool Scene::Flashes(int n) const { return n % fps_ < std::max(1, fps_ / 10); }

double Scene::MarkerLongitude(double seconds) const {
    const double duration = static_cast<double>(frames_) / fps_;
    const double turn = std::fmod(seconds / duration, 1.0);
    return turn * 360.0 >= 180.0 ? turn * 360.0 - 360.0 : turn * 360.0;
}

void Scene::Draw(int n, Canvas& out) const {
    out = background_;
    const int w = out.width, h = out.height;
    const double seconds = static_cast<double>(n) / fps_;

    const int radius = std::max(2, h / 24);
    const int column = ColumnOf(MarkerLongitude(seconds));
    out.FillCircleWrapped(column, h / 2, radius + std::max(1, radius / 5), kLabel);
    out.FillCircleWrapped(column, h / 2, radius, kMarker);

    char frame[32], time[32];
    std::snprintf(frame, sizeof frame, "FRAME %d", n);
    std::snprintf(time, sizeof time, "T %.2f S", seconds);
    const int scale = std::max(1, h / 160);
    const int count = w >= 512 ? 4 : 1;
    for (int i = 0; i < count; ++i) {
        const int x = ColumnOf(i * 90.0 - (i >= 2 ? 360.0 : 0.0));
        const int y = RowOf(-22.0);
        DrawWrapped(out, x, y, frame, scale, kLabel, true);
        if (w >= 512) DrawWrapped(out, x, y + 10 * scale, time, scale, kLabel, true);
    }

    if (Flashes(n)) {
        for (uint32_t& pixel : out.pixels) {
            // Halfway to white, channel by channel.
            pixel = 0xFF000000u | (((pixel & 0xFEFEFEu) >> 1) + 0x7F7F7Fu);
        }
    }
}

}  // namespace sample
