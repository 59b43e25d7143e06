#include "contact_sheet.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "canvas.h"
#include "png_writer.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace play {

namespace {

using mediakit::Canvas;

constexpr int kColumns = 4;
constexpr int kThumbWidth = 320;
constexpr int kThumbHeight = 180;
constexpr int kGap = 8;
constexpr int kTextScale = 2;
constexpr int kLabelHeight = 8 * kTextScale + kGap;
constexpr uint32_t kBackground = mediakit::Rgb(24, 24, 28);
constexpr uint32_t kText = mediakit::Rgb(235, 235, 235);

struct Direction {
    double pan, tilt, fov;
};
constexpr Direction kDirections[] = {
    {0, 0, 90},  {90, 0, 90},  {180, 0, 90}, {-90, 0, 90},
    {0, 60, 90}, {0, -60, 90}, {45, 0, 140}, {0, 0, 40},
};

// The font has capitals only.
std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// Scales a B,G,R,A picture into `out` (already sized).
bool Scale(const uint8_t* pixels, int width, int height, Canvas& out) {
    SwsContext* scaler = sws_getContext(width, height, AV_PIX_FMT_BGRA, out.width, out.height,
                                        AV_PIX_FMT_BGRA, SWS_AREA, nullptr, nullptr, nullptr);
    if (scaler == nullptr) return false;
    const uint8_t* in[1] = {pixels};
    const int inStride[1] = {width * 4};
    uint8_t* dst[1] = {out.bytes()};
    const int outStride[1] = {out.width * 4};
    sws_scale(scaler, in, inStride, 0, height, dst, outStride);
    sws_freeContext(scaler);
    return true;
}

}  // namespace

bool WriteContactSheet(const std::string& path, InlayBuffer* panorama, const std::string& caption,
                       std::string* error) {
    const int width = static_cast<int>(InlayBuffer_GetWidth(panorama));
    const int height = static_cast<int>(InlayBuffer_GetHeight(panorama));
    const uint8_t* pixels = InlayBuffer_GetBuffer(panorama);
    if (pixels == nullptr || width <= 0 || height <= 0) {
        *error = "no panorama picture to show";
        return false;
    }

    const int sheetWidth = kColumns * kThumbWidth + (kColumns + 1) * kGap;
    const int panoramaWidth = sheetWidth - 2 * kGap;
    const int panoramaHeight =
        std::max(1, static_cast<int>(static_cast<int64_t>(panoramaWidth) * height / width));
    const int rows = (static_cast<int>(std::size(kDirections)) + kColumns - 1) / kColumns;
    const int top = kGap + kLabelHeight;
    const int gridTop = top + panoramaHeight + kGap;
    Canvas sheet(sheetWidth, gridTop + rows * (kThumbHeight + kLabelHeight + kGap), kBackground);

    mediakit::DrawText(sheet, kGap, kGap, Upper(caption), kTextScale, kText);
    Canvas scaled(panoramaWidth, panoramaHeight);
    if (!Scale(pixels, width, height, scaled)) {
        *error = "cannot scale the panorama";
        return false;
    }
    sheet.Blit(scaled, kGap, top);

    Canvas view(kThumbWidth, kThumbHeight);
    for (size_t i = 0; i < std::size(kDirections); ++i) {
        const Direction& d = kDirections[i];
        InlayBuffer_SetView(panorama, d.pan, d.tilt, d.fov);
        InlayBuffer_ExtractView(panorama, view.bytes(), kThumbWidth, kThumbHeight);
        const int x = kGap + static_cast<int>(i % kColumns) * (kThumbWidth + kGap);
        const int y =
            gridTop + static_cast<int>(i / kColumns) * (kThumbHeight + kLabelHeight + kGap);
        sheet.Blit(view, x, y);
        char label[64];
        std::snprintf(label, sizeof label, "PAN %.0f TILT %.0f FOV %.0f", d.pan, d.tilt, d.fov);
        mediakit::DrawText(sheet, x, y + kThumbHeight + kGap / 2, label, kTextScale, kText);
    }
    return mediakit::WritePng(path, sheet, error);
}

}  // namespace play
