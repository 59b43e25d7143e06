// The PCM push source filter of libAudioFeedFilter.so: a media-graph source filter with one output
// pin, into which the player pushes decoded PCM through IPcmFeed.
//
// The module exports `extern "C" HRESULT DllGetClassObject(const GUID*, const GUID*, void**)`,
// which answers an IClassFactory for CLSID_PcmFeedFilter; the factory makes the filter as an
// IBaseFilter, and the filter answers IID_IPcmFeed.
//
// Stamps: Deliver's start and stop are stream times, 0 being the instant the graph runs after
// SetStartTime. A run that follows a pause, without SetStartTime, keeps the running stream: the
// player then stamps from a new origin (the last presented frame), and the filter lays the first
// block whose stamp breaks with the data before it right after that data, carrying the same
// correction over to the blocks that follow, so the sound goes on without a gap or a repeat.
//
// Threads: Deliver and EndOfStream come from the codec host's delivery thread, SetFormat from the
// thread that builds the graph, SetStartTime from the thread that runs it; the graph is run,
// paused and stopped from other threads meanwhile. Deliver blocks while about two seconds of sound
// wait to be played, and returns at once when the graph stops.
//
// Compiles as C++17 and later.
#ifndef VEXEL_PCM_FEED_H
#define VEXEL_PCM_FEED_H

#include <cstdint>

#include "vexel/media_graph.h"

inline constexpr GUID CLSID_PcmFeedFilter = {
    0x3C3882F0, 0x7941, 0x4085, {0xA7, 0x6A, 0xD3, 0x40, 0xED, 0xE9, 0x2D, 0x0C}};
inline constexpr GUID IID_IPcmFeed = {
    0x2C3DA97D, 0x1B39, 0x4943, {0xB9, 0x8B, 0x33, 0x60, 0x8C, 0xD5, 0x36, 0x11}};

struct IPcmFeed : IUnknown {
    // The format of everything delivered; the output pin offers it as its one media type.
    virtual HRESULT SetFormat(const WAVEFORMATEX* format) = 0;
    // No more data follows until the next stop; passed on to the connected input pin.
    virtual HRESULT EndOfStream() = 0;
    // Media position (100 ns) of stream time 0 for the next run from a stopped or paused graph.
    virtual HRESULT SetStartTime(int64_t position) = 0;
    // `size` bytes of PCM for stream times start..stop (100 ns); copied before the call returns.
    // While the graph is stopped the data is dropped (S_FALSE).
    virtual HRESULT Deliver(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) = 0;
};

#endif  // VEXEL_PCM_FEED_H
