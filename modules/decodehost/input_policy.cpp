#include "input_policy.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <vector>

extern "C" {
#include <libavutil/error.h>
}

namespace vexel::decodehost {

namespace {

constexpr char kDefaultProtocols[] = "file,http,https";
// Characters of a URL scheme, as libavformat reads them.
constexpr char kSchemeChars[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.";

std::vector<std::string> AllowedProtocols() {
    const char* setting = std::getenv("VEXEL_PROTOCOLS");
    std::string_view list = setting != nullptr ? setting : kDefaultProtocols;
    std::vector<std::string> names;
    while (!list.empty()) {
        const size_t comma = list.find(',');
        const std::string_view name = list.substr(0, comma);
        if (!name.empty()) names.emplace_back(name);
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    }
    return names;
}

bool Allowed(std::string_view protocol) {
    for (const std::string& name : AllowedProtocols()) {
        if (name == protocol) return true;
    }
    return false;
}

}  // namespace

std::string ProtocolWhitelist() {
    std::string whitelist;
    bool http = false, https = false;
    for (const std::string& name : AllowedProtocols()) {
        whitelist += (whitelist.empty() ? "" : ",") + name;
        http = http || name == "http";
        https = https || name == "https";
    }
    // libavformat opens these underneath: http over tcp, https over tls over tcp.
    if (http || https) whitelist += ",tcp";
    if (https) whitelist += ",tls";
    return whitelist;
}

int CheckInput(const char* path) {
    if (path == nullptr || *path == '\0') return AVERROR(EINVAL);
    // libavformat takes the name up to a ':' (or the ',' of nested protocols) as its protocol
    // when it holds only scheme characters; anything else is a local path.
    const size_t schemeLength = std::strspn(path, kSchemeChars);
    const bool url = schemeLength > 0 && (path[schemeLength] == ':' || path[schemeLength] == ',');
    const std::string_view protocol = url ? std::string_view(path, schemeLength) : "file";
    if (!Allowed(protocol)) return AVERROR(EPROTONOSUPPORT);
    if (url && protocol != "file") return 0;  // bounded by the deadline and the interrupt

    const char* local = url ? path + schemeLength + 1 : path;
    struct stat info {};
    if (stat(local, &info) != 0) return AVERROR(errno);
    return S_ISREG(info.st_mode) ? 0 : AVERROR(EINVAL);
}

}  // namespace vexel::decodehost
