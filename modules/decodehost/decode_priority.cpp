#include "decode_priority.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <system_error>
#include <thread>

namespace vexel::decodehost {

void LowerThreadForDecoding() {
    const pid_t self = gettid();  // on Linux each thread has its own nice value
    errno = 0;
    const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(self));
    if (errno != 0) return;
    setpriority(PRIO_PROCESS, static_cast<id_t>(self), std::min(nice + kDecodeNiceLevels, 19));
}

int OpenCodecForDecoding(AVCodecContext* codec, const AVCodec* decoder) {
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
