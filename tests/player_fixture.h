// Shared ground for the player tests: a player made through the exported interface, the scripted
// codec host behind it, and what the host was asked.
//
// Threads: the fixture runs on the test's thread; the helpers that poll do so with short sleeps and
// a deadline.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "scripted_host/scripted_host_control.h"
#include "vexel/ticks.h"
#include "vexelplayer.h"

namespace player_test {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int64_t kSecond = vexel::kTicksPerSecond;

inline double MsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Polls pred every millisecond until it holds or timeout passes; returns its last answer.
template <class Pred>
bool WaitUntil(Pred pred, milliseconds timeout = milliseconds(3000)) {
    const auto deadline = Clock::now() + timeout;
    while (!pred()) {
        if (Clock::now() >= deadline) return pred();
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

// Frame number shown by a presented picture, or -1 when the picture is not a whole scripted
// frame with its top row first.
inline int64_t FrameOf(InlayBuffer* sample) {
    const uint32_t width = InlayBuffer_GetWidth(sample);
    const uint32_t height = InlayBuffer_GetHeight(sample);
    const uint8_t* pixels = InlayBuffer_GetBuffer(sample);
    if (pixels == nullptr || width == 0 || height == 0) return -1;
    uint32_t first;
    std::memcpy(&first, pixels, 4);
    const uint32_t frame = (first & 0xFFu) | (first >> 8 & 0xFFu) << 8;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            uint32_t pixel;
            std::memcpy(&pixel, pixels + (size_t{y} * width + x) * 4, 4);
            if (pixel != ScriptedPixel(frame, y)) return -1;
        }
    }
    return frame;
}

class PlayerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(host.ok()) << "libDecodeHost.so (scripted) not found: run under ctest, which "
                                  "puts its directory on LD_LIBRARY_PATH";
        host.Reset();
        player = Create();
        ASSERT_NE(player, nullptr);
    }

    void TearDown() override {
        if (!host.ok()) return;
        DestroyPlayer();
        EXPECT_EQ(host.LiveObjects(), 0) << "host objects still alive after Destroy";
        EXPECT_EQ(host.LiveReferences(), 0) << "host references still held after Destroy";
    }

    void DestroyPlayer() {
        if (player != nullptr) Destroy(player);
        player = nullptr;
    }

    // A script of n video frames at fps (both in the stream and the decoded format), with the
    // default audio stream unless withAudio is false. Frame times are exact when fps divides
    // 10,000,000 (10, 25, 50, 100 ...).
    static ScriptedScript Script(uint32_t frames, double fps, bool withAudio = true) {
        ScriptedScript s;
        const auto interval = static_cast<int64_t>(kSecond / fps);
        s.videoInterval = interval;
        s.videoFrames = frames;
        s.videoFrameRate = fps;
        s.streams[0].frameRate = fps;
        s.streams[0].duration = static_cast<double>(interval * frames) / kSecond;
        s.streams[0].streamDuration = static_cast<uint64_t>(interval * frames);
        s.streamCount = withAudio ? 2 : 1;
        s.streams[1].duration = s.streams[0].duration;
        return s;
    }

    int32_t OpenScript(const ScriptedScript& script, uint64_t start = 0, uint64_t end = 0) {
        host.Configure(script);
        return Open(player, "/media/scripted/clip.mp4", start, end, 0);
    }

    size_t LogSize() const { return host.Log().size(); }

    // Number of the latest reader that selected a stream of this kind (0 if none).
    uint32_t ReaderOfKind(int32_t kind) const {
        uint32_t found = 0;
        for (uint32_t n = 1; n <= host.ReaderCount(); ++n) {
            if (host.Reader(n).kind == kind) found = n;
        }
        return found;
    }
    uint32_t VideoReader() const { return ReaderOfKind(1); }
    uint32_t AudioReader() const { return ReaderOfKind(0); }

    // The logged calls with this object and method, from index `from` on.
    std::vector<ScriptedCall> Find(const std::string& object, const std::string& method,
                                   size_t from = 0) const {
        const std::vector<ScriptedCall> log = host.Log();
        std::vector<ScriptedCall> out;
        for (size_t i = from; i < log.size(); ++i) {
            if (ObjectName(log[i].object) == object && method == log[i].method) {
                out.push_back(log[i]);
            }
        }
        return out;
    }

    size_t Count(const std::string& object, const std::string& method, size_t from = 0) const {
        return Find(object, method, from).size();
    }

    // Calls on either reader from index `from` on.
    size_t ReaderCalls(size_t from = 0) const {
        const std::vector<ScriptedCall> log = host.Log();
        size_t count = 0;
        for (size_t i = from; i < log.size(); ++i) {
            const std::string object = ObjectName(log[i].object);
            if (object == "video" || object == "audio") ++count;
        }
        return count;
    }

    // Waits until `object.method` has been logged at least `count` times from index `from` on.
    bool WaitForCall(const std::string& object, const std::string& method, size_t from = 0,
                     size_t count = 1, milliseconds timeout = milliseconds(3000)) const {
        return WaitUntil([&] { return Find(object, method, from).size() >= count; }, timeout);
    }

    ScriptedHostControl host;
    PlayerHandle player = nullptr;

private:
    std::string ObjectName(const char* object) const {
        if (std::strncmp(object, "reader", 6) == 0) {
            const int32_t kind = host.Reader(static_cast<uint32_t>(std::atoi(object + 6))).kind;
            if (kind == 1) return "video";
            if (kind == 0) return "audio";
        }
        return object;
    }
};

}  // namespace player_test
