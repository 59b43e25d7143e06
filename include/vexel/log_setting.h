// The diagnostics setting of libVexelPlayer.so and its sibling modules, read from the environment
// variable VEXEL_LOG: a list of words separated by commas, each either
//   a destination: "stdout" (the default), "stderr", or "off" (nothing at all is printed), or
//   a level: "error" (the default), "warning", "info" or "debug".
// The library's fixed lines are printed at every level; the level chooses how much of the rest is
// shown (FFmpeg's messages, the audio fallback notice, the library's info and debug lines).
// Unknown words are ignored; of two destinations the later holds. Example: VEXEL_LOG=stderr,info.
//
// Header-only, so that the library and every module read the setting the same way without linking
// each other. The setting is read once per module, at its first diagnostic; any thread.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vexel {

enum class LogLevel : int { Error = 1, Warning = 2, Info = 3, Debug = 4 };

struct LogSetting {
    std::FILE* stream = stdout;  // null: silent
    LogLevel level = LogLevel::Error;

    // Whether a message of `messageLevel` is printed.
    bool Shows(LogLevel messageLevel) const { return stream != nullptr && messageLevel <= level; }
};

inline LogSetting ParseLogSetting(const char* text) {
    struct Word {
        const char* name;
        void (*apply)(LogSetting&);
    };
    static constexpr Word kWords[] = {
        {"stdout", [](LogSetting& s) { s.stream = stdout; }},
        {"stderr", [](LogSetting& s) { s.stream = stderr; }},
        {"off", [](LogSetting& s) { s.stream = nullptr; }},
        {"error", [](LogSetting& s) { s.level = LogLevel::Error; }},
        {"warning", [](LogSetting& s) { s.level = LogLevel::Warning; }},
        {"info", [](LogSetting& s) { s.level = LogLevel::Info; }},
        {"debug", [](LogSetting& s) { s.level = LogLevel::Debug; }},
    };
    LogSetting setting;
    for (const char* word = text; word != nullptr && *word != '\0';) {
        const size_t length = std::strcspn(word, ",");
        for (const Word& known : kWords) {
            if (std::strlen(known.name) == length && std::strncmp(word, known.name, length) == 0) {
                known.apply(setting);
            }
        }
        word += length;
        if (*word == ',') ++word;
    }
    return setting;
}

// This module's setting, read from VEXEL_LOG at the first call.
inline const LogSetting& CurrentLogSetting() {
    static const LogSetting setting = ParseLogSetting(std::getenv("VEXEL_LOG"));
    return setting;
}

}  // namespace vexel
