// Reads a PNG file into a canvas through libavcodec's PNG decoder (any PNG colour type).
#pragma once

#include <string>

#include "canvas.h"

namespace mediakit {

// False with a message in *error when the file cannot be read or is not a PNG picture.
bool ReadPng(const std::string& path, Canvas* canvas, std::string* error);

}  // namespace mediakit
