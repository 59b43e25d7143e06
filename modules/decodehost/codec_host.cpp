// The module's entry point and the CodecHost object, which makes readers.
#include "vexel/codec_host.h"

#include "ffmpeg_log.h"
#include "media_reader.h"
#include "vexel/com_object.h"

namespace vexel::decodehost {

namespace {

class Host final : public ComObject<CodecHost> {
public:
    int32_t QueryInterface(const GUID* id, void** out) override {
        return id == nullptr || out == nullptr ? E_INVALIDARG : E_NOINTERFACE;
    }
    int32_t Reserved1() override { return S_OK; }
    int32_t Reserved2() override { return S_OK; }
    int32_t CreateReader(MediaReader** out) override {
        if (out == nullptr) return E_INVALIDARG;
        *out = NewObject<Reader>();
        return S_OK;
    }
};

}  // namespace

}  // namespace vexel::decodehost

extern "C" __attribute__((visibility("default"))) int32_t CreateCodecHost(CodecHost** out) {
    if (out == nullptr) return E_INVALIDARG;
    vexel::decodehost::RouteFfmpegLog();
    *out = vexel::NewObject<vexel::decodehost::Host>();
    return S_OK;
}
