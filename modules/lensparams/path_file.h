// The view path as a JSON file:
//   {"format": "vexel-view-path", "version": 1, "keyframes": [{"time": 0, "pan": 10, "tilt": 0,
//    "fov": 90}, {"time": 2.5, "fov": 60}, ...]}
// Keyframes in strictly increasing time; a direction keyframe and a field-of-view keyframe at the
// same time share one entry. Unknown members are ignored.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "view_path.h"

namespace vexel::lens {

std::string PathToJson(const PathKeys& keys);
// False for text that is not such a path (malformed JSON, wrong types, a non-finite number, times
// out of order or repeated, pan without tilt, too many keyframes).
bool PathFromJson(std::string_view text, PathKeys& keys);

// Whole-file I/O; a file is replaced through a temporary beside it, so a reader never sees half of
// one. Results are S_OK, E_FAIL or E_OUTOFMEMORY.
int32_t ReadTextFile(const char* path, std::string& text);
int32_t WriteTextFile(const char* path, std::string_view text);

}  // namespace vexel::lens
