#include "path_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/stat.h>

#include "vexel/conversion.h"

namespace vexel::lens {

namespace {

using nlohmann::json;

constexpr char kFormat[] = "vexel-view-path";
constexpr int kVersion = 1;
// A path file with a million keyframes of both kinds stays well below this.
constexpr off_t kMaxFileBytes = 256 << 20;

std::optional<double> FiniteNumber(const json& object, const char* name) {
    const auto it = object.find(name);
    if (it == object.end() || !it->is_number()) return std::nullopt;
    const double value = it->get<double>();
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace

std::string PathToJson(const PathKeys& keys) {
    json frames = json::array();
    auto direction = keys.directions.begin();
    auto zoom = keys.zooms.begin();
    // Merge the two tracks in time order.
    while (direction != keys.directions.end() || zoom != keys.zooms.end()) {
        const bool takeDirection =
            zoom == keys.zooms.end() ||
            (direction != keys.directions.end() && direction->time <= zoom->time);
        const bool takeZoom = zoom != keys.zooms.end() &&
                              (direction == keys.directions.end() || zoom->time <= direction->time);
        json frame = {{"time", takeDirection ? direction->time : zoom->time}};
        if (takeDirection) {
            frame["pan"] = direction->values[0];
            frame["tilt"] = direction->values[1];
            ++direction;
        }
        if (takeZoom) {
            frame["fov"] = zoom->values[0];
            ++zoom;
        }
        frames.push_back(std::move(frame));
    }
    const json root = {
        {"format", kFormat}, {"version", kVersion}, {"keyframes", std::move(frames)}};
    return root.dump(2) + "\n";
}

bool PathFromJson(std::string_view text, PathKeys& keys) {
    const json root = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!root.is_object()) return false;  // also the result of a parse error
    const auto format = root.find("format");
    const auto version = root.find("version");
    const auto frames = root.find("keyframes");
    if (format == root.end() || *format != kFormat || version == root.end() ||
        !version->is_number_integer() || *version != kVersion || frames == root.end() ||
        !frames->is_array() || frames->size() > 2 * ViewPath::kMaxKeys) {
        return false;
    }
    PathKeys loaded;
    double previous = -INFINITY;
    for (const json& frame : *frames) {
        if (!frame.is_object()) return false;
        const auto time = FiniteNumber(frame, "time");
        if (!time || *time <= previous) return false;
        previous = *time;
        const bool hasPan = frame.contains("pan"), hasTilt = frame.contains("tilt"),
                   hasFov = frame.contains("fov");
        if (hasPan != hasTilt || (!hasPan && !hasFov)) return false;
        if (hasPan) {
            const auto pan = FiniteNumber(frame, "pan"), tilt = FiniteNumber(frame, "tilt");
            if (!pan || !tilt) return false;
            loaded.directions.push_back({*time, {*pan, *tilt}});
        }
        if (hasFov) {
            const auto fov = FiniteNumber(frame, "fov");
            if (!fov) return false;
            loaded.zooms.push_back({*time, {*fov}});
        }
    }
    if (loaded.directions.size() > ViewPath::kMaxKeys || loaded.zooms.size() > ViewPath::kMaxKeys)
        return false;
    keys = std::move(loaded);
    return true;
}

int32_t ReadTextFile(const char* path, std::string& text) {
    // Only regular files: a FIFO would block and a device might never end.
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return E_FAIL;
    struct stat info {};
    int32_t status = E_FAIL;
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kMaxFileBytes) {
        text.resize(static_cast<size_t>(info.st_size));
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t got = read(fd, text.data() + done, text.size() - done);
            if (got <= 0) break;
            done += static_cast<size_t>(got);
        }
        text.resize(
            done);  // a file that shrank meanwhile is read as it is now, and judged by its text
        status = S_OK;
    }
    close(fd);
    return status;
}

int32_t WriteTextFile(const char* path, std::string_view text) {
    std::string temporary = std::string(path) + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return E_FAIL;
    bool ok = fchmod(fd, 0644) == 0;
    for (size_t done = 0; ok && done < text.size();) {
        const ssize_t put = write(fd, text.data() + done, text.size() - done);
        ok = put > 0;
        if (ok) done += static_cast<size_t>(put);
    }
    ok = close(fd) == 0 && ok;
    ok = ok && std::rename(temporary.c_str(), path) == 0;
    if (!ok) unlink(temporary.c_str());
    return ok ? S_OK : E_FAIL;
}

}  // namespace vexel::lens
