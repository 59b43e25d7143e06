// DecodeMemory: the codec host's open-and-decode path over a file held in memory, read through a
// custom libavformat I/O context. Each playable stream is decoded from the start and again from
// the middle, its pictures and sound converted as the reader converts them, within caps on time,
// frames and picture size. Made for fuzzing (fuzz/decode_fuzzer.cpp); not exported by the module.
//
// Threads: any thread; calls share nothing.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vexel::decodehost {

struct DecodeLimits {
    std::chrono::milliseconds time{1000};  // for the whole input, opening included
    int framesPerPass = 64;                // decoded frames per stream and pass
    int64_t maxPixels = 1 << 20;           // largest picture decoded or converted
};

struct DecodeSummary {
    bool opened = false;
    int streams = 0;  // video and audio streams decoded
    int frames = 0;   // frames decoded, all passes
};

DecodeSummary DecodeMemory(const uint8_t* data, size_t size, const DecodeLimits& limits);

}  // namespace vexel::decodehost
