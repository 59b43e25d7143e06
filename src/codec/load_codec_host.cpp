#include "codec/load_codec_host.h"

#include "common/log.h"
#include "platform/module.h"

namespace vexel {

CountedRef<CodecHost> CodecHostLibrary::CreateHost() {
    std::call_once(loadOnce_, [this] {
        ModuleHandle module(fileName_);
        if (!module) return;
        found_ = true;
        create_ = module.Function<CreateCodecHostFn>(kCreateCodecHostSymbol);
        module.KeepLoaded();  // hosts and their objects may outlive every caller
    });

    if (!found_) {
        LogPrintf("can not find DecodeHost.dll for intel decode! \n");
        return {};
    }
    if (create_ == nullptr) return {};

    CodecHost* host = nullptr;
    if (create_(&host) < 0) return {};
    return CountedRef<CodecHost>::Adopt(host);
}

CountedRef<CodecHost> LoadCodecHost() {
    static CodecHostLibrary library(kDecodeHostFileName);
    return library.CreateHost();
}

}  // namespace vexel
