// What the codec host agrees to open, decided before libavformat touches the input: local paths
// only when they name a regular file (a FIFO, device or folder could block open(2) or a read for
// ever), and URLs only with an allowed protocol.
//
// The allowed protocols are "file,http,https" unless the environment variable VEXEL_PROTOCOLS
// names others (a comma-separated list of libavformat protocol names). The list also goes to
// libavformat as its protocol whitelist, with the transports the named protocols stand on.
//
// Threads: any thread.
#pragma once

#include <string>

namespace vexel::decodehost {

// The protocol whitelist for libavformat: the allowed protocols and their transports.
std::string ProtocolWhitelist();

// 0 when `path` may be opened, else an AVERROR code (EINVAL for a path that is not a regular
// file, EPROTONOSUPPORT for a protocol not allowed, or the error of stat).
int CheckInput(const char* path);

}  // namespace vexel::decodehost
