// LoadCodecHost: the only way into the decoder module (libDecodeHost.so).
//
// The module is loaded by its plain file name on the first call and then stays loaded for the
// life of the process; its entry point is looked up once, when the module is first found. Both
// steps run once per process even when the first calls race, and later calls reuse their outcome,
// a failed load included.
//
// Threads: LoadCodecHost and CodecHostLibrary::CreateHost may be called from any thread at once.
#pragma once

#include <mutex>

#include "common/counted_ref.h"
#include "vexel/codec_host.h"

namespace vexel {

inline constexpr char kDecodeHostFileName[] = "libDecodeHost.so";

// A new codec host holding the one reference CreateCodecHost gave it, or empty when the module or
// its entry point is missing or CreateCodecHost fails. A missing module is reported on standard
// output at every call.
CountedRef<CodecHost> LoadCodecHost();

// One decoder module, loaded on first use and never unloaded. LoadCodecHost uses the process-wide
// instance for kDecodeHostFileName.
class CodecHostLibrary {
public:
    explicit CodecHostLibrary(const char* fileName) : fileName_(fileName) {}
    CodecHostLibrary(const CodecHostLibrary&) = delete;
    CodecHostLibrary& operator=(const CodecHostLibrary&) = delete;

    CountedRef<CodecHost> CreateHost();

private:
    const char* fileName_;
    std::once_flag loadOnce_;
    bool found_ = false;                   // written once inside loadOnce_
    CreateCodecHostFn create_ = nullptr;  // written once inside loadOnce_
};

}  // namespace vexel
