// The contact sheet: one presented panorama picture on top and, below it, the views the player
// renders of it in several directions, each labelled, written as a PNG.
#pragma once

#include <string>

#include "vexelplayer.h"

namespace play {

// `panorama` is a presented panorama sample (not released here); `caption` heads the sheet.
bool WriteContactSheet(const std::string& path, InlayBuffer* panorama, const std::string& caption,
                       std::string* error);

}  // namespace play
