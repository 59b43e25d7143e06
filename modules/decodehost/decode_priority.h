// Decoding runs ahead of presentation by a queue of pictures, so it is the work that can wait: the
// threads that decode run a few nice levels below the threads that start them. On two cores a
// decoder filling its queue at full speed otherwise delays the frames the render thread draws
// meanwhile (on a 4K clip, frames 30-80 ms late in the first second of playback).
//
// Threads: any.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vexel::decodehost {

// How many nice levels decoding runs below the thread that starts it: when a presenting thread
// and a decoding one both want a core, the presenting one gets three quarters of it.
inline constexpr int kDecodeNiceLevels = 5;

// Lowers the calling thread by kDecodeNiceLevels. Advice only: where the system refuses, the
// thread runs on at its priority.
void LowerThreadForDecoding();

// avcodec_open2 on a thread lowered for decoding: libavcodec's worker threads start there and keep
// its priority, while the calling thread keeps its own.
int OpenCodecForDecoding(AVCodecContext* codec, const AVCodec* decoder);

}  // namespace vexel::decodehost
