// Scene: the sample's equirectangular picture. A latitude/longitude grid over a colour wheel (sky
// above, ground below), compass labels round the horizon, a red marker that travels once round the
// horizon over the clip, the frame number and time, and a white flash at the start of every second
// (when the sound track beeps).
//
// Longitude 0 (north) is the centre column and grows to the right; latitude 90 is the top row.
//
// Threads: a Scene is built once and then only read; Draw may run on any thread.
#pragma once

#include "canvas.h"

namespace sample {

class Scene {
public:
    Scene(int width, int height, int fps, int frames);

    int width() const { return background_.width; }
    int height() const { return background_.height; }

    // Frame `n` of the clip.
    void Draw(int n, mediakit::Canvas& out) const;

    // Whether frame `n` flashes: the first tenth of each second.
    bool Flashes(int n) const;

    // Longitude of the marker at `seconds`, degrees in [-180, 180).
    double MarkerLongitude(double seconds) const;

private:
    void DrawBackground();
    void DrawLabel(double longitude, double latitude, const char* text, int scale, uint32_t color);
    int ColumnOf(double longitude) const;
    int RowOf(double latitude) const;

    mediakit::Canvas background_;
    int fps_;
    int frames_;
};

}  // namespace sample
