#include "decode_priority.h"

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <system_error>
#include <thread>

namespace vexel::decodehost {

void LowerThreadForDecoding() {
    // On Linux each thread has its own nice value, and 0 names the calling thread.
    errno = 0;
    const int nice = getpriority(PRIO_PROCESS, 0);
    if (errno != 0) return;
    setpriority(PRIO_PROCESS, 0, std::min(nice + kDecodeNiceLevels, 19));
}

int OpenCodecForDecoding(AVCodecContext* codec, const AVCodec* decoder) {
    // A decoder on one thread starts none of its own: it decodes on the lowered delivery thread.
    if (codec->thread_count == 1) return avcodec_open2(codec, decoder, nullptr);
    int result = 0;
    try {
        std::thread([&] {
            LowerThreadForDecoding();
            result = avcodec_open2(codec, decoder, nullptr);
        }).join();
    } catch (const std::system_error&) {  // no thread to spare: open here, at this priority
        result = avcodec_open2(codec, decoder, nullptr);
    }
    return result;
}

}  // namespace vexel::decodehost
