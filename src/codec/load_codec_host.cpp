#include "codec/load_codec_host.h"

namespace vexel {

CountedRef<CodecHost> LoadCodecHost(SiblingModule& module) {
    if (!module.Load()) return {};
    const auto create = module.Function<CreateCodecHostFn>(kCreateCodecHostSymbol);
    CodecHost* host = nullptr;
    if (create == nullptr || create(&host) < 0) return {};
    return CountedRef<CodecHost>::Adopt(host);
}

CountedRef<CodecHost> LoadCodecHost() {
    // Hosts and their objects may outlive every caller: the module is never unloaded.
    constinit static SiblingModule decodeHost(kDecodeHostFileName, kDecodeHostMissing);
    return LoadCodecHost(decodeHost);
}

}  // namespace vexel
