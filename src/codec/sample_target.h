// SampleTarget: what the render sinks hand decoded samples to. The render engine implements it.
//
// Threads: every operation runs on a codec host delivery thread (one per stream), called by the
// sinks. OnVideoSample and OnAudioSample may block while the engine's queues are full or the sound
// has not started; they must return once the engine is stopping.
#pragma once

#include <cstdint>

#include "vexel/counted_ref.h"
#include "vexel/picture_source.h"
#include "vexel/status.h"

namespace vexel {

struct SampleTarget {
    // A decoded picture: `size` bytes at `data`, start and stop in 100-ns ticks. The data is valid
    // only during the call. 0, or ERR_SAMPLE_REFUSED when the engine takes no more samples.
    virtual int32_t OnVideoSample(const uint8_t* data, uint32_t size, int64_t startTime,
                                  int64_t stopTime) = 0;
    // Whether OnVideoPicture takes pictures that convert themselves: the sink then asks each video
    // sample for IPictureSource and reads the buffer of those that do not offer it.
    virtual bool TakesPictureSources() const { return false; }
    // A decoded picture the target keeps and converts when it needs the pixels; start and stop as
    // OnVideoSample.
    virtual int32_t OnVideoPicture(CountedRef<IPictureSource> /*picture*/, int64_t /*startTime*/,
                                   int64_t /*stopTime*/) {
        return ERR_SAMPLE_REFUSED;
    }
    // A decoded block of PCM; as OnVideoSample.
    virtual int32_t OnAudioSample(const uint8_t* data, uint32_t size, int64_t startTime,
                                  int64_t stopTime) = 0;
    // The reader has delivered its last sample.
    virtual void OnVideoEndOfStream() = 0;
    virtual void OnAudioEndOfStream() = 0;

protected:
    ~SampleTarget() = default;
};

}  // namespace vexel
