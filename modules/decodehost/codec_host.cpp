// The module's entry point and the CodecHost object, which makes readers.
#include "com_object.h"
#include "ffmpeg_log.h"
#include "media_reader.h"

namespace decodehost {

namespace {

class Host final : public ComObject<CodecHost> {
public:
    int32_t QueryInterface(const GUID* id, void** out) override {
        return id == nullptr || out == nullptr ? kInvalidArgument : kNoInterface;
    }
    int32_t Reserved1() override { return kOk; }
    int32_t Reserved2() override { return kOk; }
    int32_t CreateReader(MediaReader** out) override {
        if (out == nullptr) return kInvalidArgument;
        *out = new Reader();
        return kOk;
    }
};

}  // namespace

}  // namespace decodehost

extern "C" __attribute__((visibility("default"))) int32_t CreateCodecHost(CodecHost** out) {
    if (out == nullptr) return decodehost::kInvalidArgument;
    decodehost::RouteFfmpegLog();
    *out = new decodehost::Host();
    return decodehost::kOk;
}
