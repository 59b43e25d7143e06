// The codec host opening and decoding a file held in memory: probing, demuxing, decoding from the
// start and from the middle, and converting pictures and sound as the reader does. Each input is
// capped in time, frames and picture size; libavutil refuses single allocations over 256 MiB.
#include <cstddef>
#include <cstdint>

#include "memory_decode.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    av_log_set_level(AV_LOG_QUIET);
    av_max_alloc(256u << 20);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vexel::decodehost::DecodeLimits limits;
    limits.time = std::chrono::milliseconds(2000);
    limits.framesPerPass = 16;
    limits.maxPixels = 1920 * 1080;
    vexel::decodehost::DecodeMemory(data, size, limits);
    return 0;
}
