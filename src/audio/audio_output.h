// AudioOutput: the sound of one opened file, played through a two-filter media graph: the PCM push
// source filter of libAudioFeedFilter.so ("PCM File Source") connected to the runtime's audio
// renderer ("audio Renderer"). The render engine builds it with CreateFilters and SetFormat, runs,
// pauses and stops it with its clock, and delivers decoded PCM into it.
//
// Threads: CreateFilters and SetFormat on the thread that opens the file, before playback; Run on
// the engine's present thread or the Player's thread; Pause, Stop and SetVolume on the Player's
// threads; Deliver and EndOfStream on the codec host's audio delivery thread. There is no lock of
// its own: the graph serialises run, pause and stop, and the source filter takes Deliver while the
// graph changes state.
#pragma once

#include <cstdint>

#include "mediagraph/e_filter.h"
#include "mediagraph/e_graph_builder.h"
#include "vexel/codec_host.h"
#include "vexel/counted_ref.h"
#include "vexel/pcm_feed.h"

namespace vexel {

// The WAVEFORMATEX handed to the source filter for a decoded audio format: PCM, bits per sample
// capped at 16.
WAVEFORMATEX MakeWaveFormat(const AudioFormatPayload& format);

class AudioOutput {
public:
    AudioOutput() = default;
    ~AudioOutput() = default;  // gives back the feed, then the renderer, the source and the graph
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    // Loads the filter module and builds the graph with both filters; false (with a line on the
    // log) when a filter cannot be made or the source filter has no IPcmFeed. A failure to make
    // the graph manager throws ComException*.
    bool CreateFilters();
    // Hands the format to the source filter and connects the two filters; a failed connection is
    // logged and leaves the output in place. May throw ComException* from the pin search.
    void SetFormat(const AudioFormatPayload& format);

    // Runs the graph; a position other than -1 is first given to the source as its start time.
    HRESULT Run(int64_t position);
    HRESULT Pause();
    HRESULT Stop();
    void SetVolume(int32_t volume);  // hundredths of a decibel; a refusal changes nothing
    void EndOfStream();
    // PCM for stream times start..stop (100 ns, relative to the start position).
    void Deliver(const uint8_t* data, uint32_t size, int64_t start, int64_t stop);

private:
    EGraphBuilder _graph;
    EFilter _source_filter;
    EFilter _audio_render_filter;
    CountedRef<IPcmFeed> _pcm_feed;
};

}  // namespace vexel
