#include "ffmpeg_log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "vexel/log_setting.h"

extern "C" {
#include <libavutil/log.h>
}

namespace vexel::decodehost {

namespace {

vexel::LogLevel LevelOf(int ffmpegLevel) {
    if (ffmpegLevel <= AV_LOG_ERROR) return vexel::LogLevel::Error;
    if (ffmpegLevel <= AV_LOG_WARNING) return vexel::LogLevel::Warning;
    if (ffmpegLevel <= AV_LOG_INFO) return vexel::LogLevel::Info;
    return vexel::LogLevel::Debug;
}

// FFmpeg's threads log concurrently; the lock keeps lines whole and guards the prefix state, which
// says whether the next piece starts a line (and so gets the "[codec @ 0x...]" prefix).
std::mutex g_lock;
int g_printPrefix = 1;

void Callback(void* context, int level, const char* format, va_list args) {
    const vexel::LogSetting& setting = vexel::CurrentLogSetting();
    if (!setting.Shows(LevelOf(level))) return;
    char line[1024];
    std::lock_guard<std::mutex> guard(g_lock);
    av_log_format_line2(context, level, format, args, line, sizeof line, &g_printPrefix);
    std::fputs(line, setting.stream);
    std::fflush(setting.stream);
}

}  // namespace

void RouteFfmpegLog() {
    static std::once_flag once;
    std::call_once(once, [] {
        // FFmpeg drops messages above its own level before calling back; let debug through when
        // asked.
        if (vexel::CurrentLogSetting().Shows(vexel::LogLevel::Debug))
            av_log_set_level(AV_LOG_DEBUG);
        av_log_set_callback(&Callback);
    });
}

}  // namespace vexel::decodehost
