// Sends FFmpeg's log through the diagnostics setting of VEXEL_LOG (include/vexel/log_setting.h):
// its messages go where the library's go, and only those at the chosen level or above (by default
// errors only). FFmpeg's log callback is global to the process, so this is done once, when the
// first codec host is made; any thread.
#pragma once

namespace vexel::decodehost {

void RouteFfmpegLog();

}  // namespace vexel::decodehost
