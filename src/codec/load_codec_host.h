// LoadCodecHost: the only way into the decoder module (libDecodeHost.so), which is loaded by its
// plain file name on first use and then stays loaded for the life of the process.
//
// Threads: any, at once.
#pragma once

#include "platform/module.h"
#include "vexel/codec_host.h"
#include "vexel/counted_ref.h"

namespace vexel {

inline constexpr char kDecodeHostFileName[] = "libDecodeHost.so";
inline constexpr char kDecodeHostMissing[] = "can not find DecodeHost.dll for intel decode! \n";

// A new codec host holding the one reference CreateCodecHost gave it, or empty when the module or
// its entry point is missing or CreateCodecHost fails. A missing module is reported on standard
// output at every call.
CountedRef<CodecHost> LoadCodecHost();
// The same through `module`, a binding of a decoder module.
CountedRef<CodecHost> LoadCodecHost(SiblingModule& module);

}  // namespace vexel
