// Control surface of the scripted codec host, a libDecodeHost.so made for tests. The host plays a
// configurable script instead of decoding files, records the calls made on its readers, and counts
// its live objects and references, so a test can check exactly what the player asked of it.
//
// A test reaches the host through the same module handle the player gets: ScriptedHostControl
// dlopen()s "libDecodeHost.so" by plain name and looks up the extern "C" functions below.
//
// Threads: every function may be called from any thread at any time.
#pragma once

#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// One stream of the scripted file, as GetStreamInfo describes it.
struct ScriptedStream {
    uint32_t kind = 1;                     // 1 video, 0 audio, others are skipped by the player
    uint32_t width = 64;                   // video: pixels; audio: channel count
    uint32_t height = 32;                  // video: pixels; audio: samples per second
    double frameRate = 30.0;               // video: StreamInfo frame rate
    double duration = 1.0;                 // seconds; 0.0 makes the player use streamDuration
    uint64_t streamDuration = 10'000'000;  // ticks
};

struct ScriptedScript {
    uint32_t streamCount = 2;
    ScriptedStream streams[4] = {{1, 64, 32, 30.0, 1.0, 10'000'000},
                                 {0, 2, 8000, 0.0, 1.0, 10'000'000}};

    // Output formats, answered to GetProperty(MediaFormat) by the reader of that stream kind.
    uint32_t videoWidth = 64;
    uint32_t videoHeight = 32;
    uint32_t pixelFormat = 11;  // 32-bit pixels, rows bottom-up
    double videoFrameRate = 30.0;
    uint32_t audioChannels = 2;
    uint32_t audioSamplesPerSecond = 8000;
    uint32_t audioBitsPerSample = 16;

    // Media content: video frame k lies at k * videoInterval for k < videoFrames; audio blocks
    // likewise. A span delivers the units whose start lies in [current, stop).
    int64_t videoInterval = 333'333;
    uint32_t videoFrames = 30;
    int64_t audioInterval = 200'000;  // 20 ms blocks
    uint32_t audioBlocks = 50;

    // Faults.
    bool failCreateHost = false;     // CreateCodecHost answers a negative status
    bool failOpen = false;           // MediaReader::Open answers a negative status, no description
    bool noPlaybackControl = false;  // readers refuse QueryInterface(PlaybackControl)
    bool noPlaybackStatus = false;   // controls refuse QueryInterface(PlaybackStatus)
};

// One call on a reader (or GetStreamInfo on a description), reference counting left out.
// Objects are named by kind and a 1-based number per kind: "reader2", "description1".
struct ScriptedCall {
    char object[24];
    char method[24];
    uint32_t argCount;
    int64_t args[4];
};

// What one reader did with its span deliveries. Readers are numbered as in the log.
struct ScriptedReaderStats {
    int32_t kind;        // kind of the selected stream, -1 before SelectStream
    uint32_t state;      // what GetState reports now (without the busy override)
    int64_t references;  // the reader's reference count now (0 once destroyed)
    uint64_t pushesStarted;
    uint64_t pushesAccepted;   // Push returned a non-negative status
    uint64_t pushesRefused;    // Push returned a negative status
    uint64_t endOfStreams;     // EndOfStream calls on the sink
    uint64_t deliveriesEnded;  // delivery threads that have finished
    uint64_t faults;           // exceptions out of Push
    bool destroyed;
};

extern "C" {
void ScriptedHost_Configure(const ScriptedScript* script);
// Default script, empty log and statistics, naming restarts at 1. Objects still alive keep working.
void ScriptedHost_Reset();
void ScriptedHost_SetBusy(bool busy);
// Copies up to capacity log entries into out; returns the number of entries logged so far.
uint32_t ScriptedHost_ReadLog(ScriptedCall* out, uint32_t capacity);
int64_t ScriptedHost_LiveObjects();
int64_t ScriptedHost_LiveReferences();
// False when no reader has that number.
bool ScriptedHost_ReaderStats(uint32_t reader, ScriptedReaderStats* out);
}

// The same picture the host delivers, as the player should present it (top row first): pixel
// (x, y) of frame k is B = k & 0xFF, G = (k >> 8) & 0xFF, R = y & 0xFF, A = 0xFF.
inline uint32_t ScriptedPixel(uint32_t frame, uint32_t y) {
    return 0xFF000000u | ((y & 0xFFu) << 16) | ((frame >> 8 & 0xFFu) << 8) | (frame & 0xFFu);
}

// Test side: finds the host module and its control functions.
class ScriptedHostControl {
public:
    ScriptedHostControl() {
        module_ = dlopen("libDecodeHost.so", RTLD_NOW);
        if (module_ == nullptr) return;
        configure_ = Find<decltype(configure_)>("ScriptedHost_Configure");
        reset_ = Find<decltype(reset_)>("ScriptedHost_Reset");
        setBusy_ = Find<decltype(setBusy_)>("ScriptedHost_SetBusy");
        readLog_ = Find<decltype(readLog_)>("ScriptedHost_ReadLog");
        liveObjects_ = Find<decltype(liveObjects_)>("ScriptedHost_LiveObjects");
        liveReferences_ = Find<decltype(liveReferences_)>("ScriptedHost_LiveReferences");
        readerStats_ = Find<decltype(readerStats_)>("ScriptedHost_ReaderStats");
    }
    // The module stays loaded: the player keeps it for the life of the process anyway.
    ScriptedHostControl(const ScriptedHostControl&) = delete;
    ScriptedHostControl& operator=(const ScriptedHostControl&) = delete;

    bool ok() const {
        return configure_ && reset_ && setBusy_ && readLog_ && liveObjects_ && liveReferences_ &&
               readerStats_;
    }

    void Configure(const ScriptedScript& script) const { configure_(&script); }
    void Reset() const { reset_(); }
    void SetBusy(bool busy) const { setBusy_(busy); }
    int64_t LiveObjects() const { return liveObjects_(); }
    int64_t LiveReferences() const { return liveReferences_(); }

    std::vector<ScriptedCall> Log() const {
        std::vector<ScriptedCall> calls(readLog_(nullptr, 0) + 64);
        const uint32_t total = readLog_(calls.data(), static_cast<uint32_t>(calls.size()));
        calls.resize(std::min<size_t>(calls.size(), total));
        return calls;
    }

    // Readers made so far (since the last Reset).
    uint32_t ReaderCount() const {
        uint32_t n = 0;
        while (readerStats_(n + 1, nullptr)) ++n;
        return n;
    }

    ScriptedReaderStats Reader(uint32_t number) const {
        ScriptedReaderStats stats{};
        stats.kind = -1;
        readerStats_(number, &stats);
        return stats;
    }

private:
    template <class Fn>
    Fn Find(const char* name) const {
        return reinterpret_cast<Fn>(dlsym(module_, name));
    }

    void* module_ = nullptr;
    void (*configure_)(const ScriptedScript*) = nullptr;
    void (*reset_)() = nullptr;
    void (*setBusy_)(bool) = nullptr;
    uint32_t (*readLog_)(ScriptedCall*, uint32_t) = nullptr;
    int64_t (*liveObjects_)() = nullptr;
    int64_t (*liveReferences_)() = nullptr;
    bool (*readerStats_)(uint32_t, ScriptedReaderStats*) = nullptr;
};
