// Writes a canvas as a PNG file through libavcodec's PNG encoder.
#pragma once

#include <string>

#include "canvas.h"

namespace mediakit {

// False with a message in *error when the file cannot be written.
bool WritePng(const std::string& path, const Canvas& canvas, std::string* error);

}  // namespace mediakit
