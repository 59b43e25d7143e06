// FFmpeg's v360 filter as the peer of the projector benchmarks: a buffer source, v360 (equirect to
// flat, bilinear) and a buffer sink in one graph. Header-only, so both benchmark programs share it.
#pragma once

#include <cmath>
#include <cstdio>

extern "C" {
#include <libavfilter/avfilter.h>
}

struct V360Graph {
    AVFilterGraph* graph = nullptr;
    AVFilterContext* in = nullptr;
    AVFilterContext* out = nullptr;
};

// Null members when the graph cannot be built. `threads` 0 lets FFmpeg choose.
inline V360Graph MakeV360Graph(int sourceWidth, int sourceHeight, int pixelFormat,
                               AVRational timeBase, int viewWidth, int viewHeight, double fov,
                               double pitch, int threads) {
    V360Graph g;
    g.graph = avfilter_graph_alloc();
    if (g.graph == nullptr) return g;
    g.graph->nb_threads = threads;
    char source[256], projection[256];
    std::snprintf(source, sizeof source,
                  "video_size=%dx%d:pix_fmt=%d:time_base=%d/%d:pixel_aspect=1/1", sourceWidth,
                  sourceHeight, pixelFormat, timeBase.num, timeBase.den);
    const double verticalFov =
        2 * std::atan(std::tan(fov * M_PI / 360) * viewHeight / viewWidth) * 180 / M_PI;
    std::snprintf(projection, sizeof projection,
                  "input=e:output=flat:interp=linear:w=%d:h=%d:h_fov=%.4f:v_fov=%.4f:pitch=%.1f",
                  viewWidth, viewHeight, fov, verticalFov, pitch);
    AVFilterContext* v360 = nullptr;
    if (avfilter_graph_create_filter(&g.in, avfilter_get_by_name("buffer"), "in", source, nullptr,
                                     g.graph) < 0 ||
        avfilter_graph_create_filter(&v360, avfilter_get_by_name("v360"), "v360", projection,
                                     nullptr, g.graph) < 0 ||
        avfilter_graph_create_filter(&g.out, avfilter_get_by_name("buffersink"), "out", nullptr,
                                     nullptr, g.graph) < 0 ||
        avfilter_link(g.in, 0, v360, 0) < 0 || avfilter_link(v360, 0, g.out, 0) < 0 ||
        avfilter_graph_config(g.graph, nullptr) < 0) {
        g.in = g.out = nullptr;
    }
    return g;
}
