// The 43 exported functions. Each one answers a null handle or sample with its fixed null result,
// and no exception ever leaves through the C boundary: anything thrown inside is caught here and
// answered with the same null result.
#include <cstring>
#include <utility>

#include "player/player.h"
#include "samples/inlay_buffer.h"
#include "vexelplayer.h"

using vexel::Player;
using vexel::Ticks;

namespace {

// Runs body(player) for a non-null handle; a null handle, or an exception from body, gives
// nullResult.
template <class Result, class Body>
Result WithPlayer(PlayerHandle handle, Result nullResult, Body&& body) noexcept {
    if (handle == nullptr) return nullResult;
    try {
        return std::forward<Body>(body)(*reinterpret_cast<Player*>(handle));
    } catch (...) {
        return nullResult;
    }
}

template <class Body>
void WithPlayer(PlayerHandle handle, Body&& body) noexcept {
    if (handle == nullptr) return;
    try {
        std::forward<Body>(body)(*reinterpret_cast<Player*>(handle));
    } catch (...) {}
}

// Same for a sample.
template <class Result, class Body>
Result WithSample(InlayBuffer* sample, Result nullResult, Body&& body) noexcept {
    if (sample == nullptr) return nullResult;
    try {
        return std::forward<Body>(body)(*sample);
    } catch (...) {
        return nullResult;
    }
}

template <class Body>
void WithSample(InlayBuffer* sample, Body&& body) noexcept {
    if (sample == nullptr) return;
    try {
        std::forward<Body>(body)(*sample);
    } catch (...) {}
}

}  // namespace

// ---- Player lifecycle and playback ----

PlayerHandle Create(void) {
    try {
        return reinterpret_cast<PlayerHandle>(new Player());
    } catch (...) {
        return nullptr;
    }
}

void Destroy(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { delete &player; });
}

int32_t Open(PlayerHandle handle, const char* utf8Path, uint64_t start, uint64_t end,
             uint32_t fisheyeMode) {
    return WithPlayer(handle, int32_t{-1}, [&](Player& player) {
        return player.Open(utf8Path, start, end, fisheyeMode) == 0 ? int32_t{0} : int32_t{-1};
    });
}

void Close(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.Close(); });
}

void Play(PlayerHandle handle, int64_t time) {
    WithPlayer(handle, [&](Player& player) { player.Play(Ticks(time)); });
}

void Pause(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.Pause(); });
}

void Stop(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.Stop(); });
}

void Seek(PlayerHandle handle, int64_t time) {
    WithPlayer(handle, [&](Player& player) { player.Seek(Ticks(time)); });
}

// ---- Player queries ----

void GetRange(PlayerHandle handle, uint64_t* start, uint64_t* end) {
    WithPlayer(handle, [&](Player& player) { player.GetRange(start, end); });
}

double GetFrameRate(PlayerHandle handle) {
    return WithPlayer(handle, 30.0, [](Player& player) { return player.GetFrameRate(); });
}

uint32_t GetWidth(PlayerHandle handle) {
    return WithPlayer(handle, uint32_t{0}, [](Player& player) { return player.GetWidth(); });
}

uint32_t GetHeight(PlayerHandle handle) {
    return WithPlayer(handle, uint32_t{0}, [](Player& player) { return player.GetHeight(); });
}

int64_t GetCurrentPlayTime(PlayerHandle handle) {
    return WithPlayer(handle, int64_t{0},
                      [](Player& player) { return player.GetCurrentPlayTime().count(); });
}

InlayBuffer* GetCurrentPreSample(PlayerHandle handle) {
    return WithPlayer(handle, static_cast<InlayBuffer*>(nullptr),
                      [](Player& player) { return player.GetCurrentPreSample(); });
}

InlayBuffer* GetCurrentViewSample(PlayerHandle handle) {
    return WithPlayer(handle, static_cast<InlayBuffer*>(nullptr),
                      [](Player& player) { return player.GetCurrentViewSample(); });
}

// ---- Sound ----

void SetVolume(PlayerHandle handle, int32_t volume) {
    WithPlayer(handle, [&](Player& player) { player.SetVolume(volume); });
}

void Mute(PlayerHandle handle, bool mute) {
    WithPlayer(handle, [&](Player& player) { player.Mute(mute); });
}

// ---- View control ----

void SetViewDim(PlayerHandle handle, uint32_t width, uint32_t height) {
    WithPlayer(handle, [&](Player& player) { player.SetViewDim(width, height); });
}

void SetView(PlayerHandle handle, double pan, double tilt, double fov) {
    WithPlayer(handle, [&](Player& player) { player.SetView(pan, tilt, fov); });
}

void StartPan(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.StartPan(); });
}

void SetPanStep(PlayerHandle handle, double x, double y) {
    WithPlayer(handle, [&](Player& player) { player.SetPanStep(x, y); });
}

void AddPan(PlayerHandle handle, double pan, double tilt) {
    WithPlayer(handle, [&](Player& player) { player.AddPan(pan, tilt); });
}

void EndPan(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.EndPan(); });
}

void StartZoom(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.StartZoom(); });
}

void AddZoom(PlayerHandle handle, double fov) {
    WithPlayer(handle, [&](Player& player) { player.AddZoom(fov); });
}

void EndZoom(PlayerHandle handle) {
    WithPlayer(handle, [](Player& player) { player.EndZoom(); });
}

// ---- Time freeze ----

void SetTimeFreeze(PlayerHandle handle, const double* times, const double* durations,
                   int32_t count) {
    WithPlayer(handle, [&](Player& player) { player.SetTimeFreeze(times, durations, count); });
}

int32_t GetTimeFreeze(PlayerHandle handle, double* times, double* durations, int32_t capacity) {
    return WithPlayer(handle, int32_t{0}, [&](Player& player) {
        return player.GetTimeFreeze(times, durations, capacity);
    });
}

double TimeFreeze(PlayerHandle handle, double time, double duration) {
    return WithPlayer(handle, time,
                      [&](Player& player) { return player.TimeFreeze(time, duration); });
}

// ---- Samples ----

InlayBuffer* InlayBuffer_CreateSample(int32_t width, int32_t height) {
    try {
        return vexel::CreateInlayBuffer(width, height);
    } catch (...) {
        return nullptr;  // not even the record could be allocated
    }
}

void InlayBuffer_Release(InlayBuffer* sample) {
    try {
        vexel::ReleaseInlayBuffer(sample);
    } catch (...) {}
}

uint8_t* InlayBuffer_GetBuffer(InlayBuffer* sample) {
    return WithSample(sample, static_cast<uint8_t*>(nullptr),
                      [](InlayBuffer& s) { return s.pixels; });
}

uint8_t* InlayBuffer_ReadBuffer(InlayBuffer* sample, uint8_t* destination) {
    if (destination == nullptr) return destination;
    return WithSample(sample, destination, [destination](InlayBuffer& s) {
        if (s.pixels != nullptr && s.size > 0) std::memcpy(destination, s.pixels, s.size);
        return destination;
    });
}

uint32_t InlayBuffer_GetWidth(InlayBuffer* sample) {
    return WithSample(sample, uint32_t{0}, [](InlayBuffer& s) { return s.width; });
}

uint32_t InlayBuffer_GetHeight(InlayBuffer* sample) {
    return WithSample(sample, uint32_t{0}, [](InlayBuffer& s) { return s.height; });
}

double InlayBuffer_GetTime(InlayBuffer* sample) {
    return WithSample(sample, 0.0, [](InlayBuffer& s) { return static_cast<double>(s.time); });
}

bool InlayBuffer_GetSeek(InlayBuffer* sample) {
    return WithSample(sample, true, [](InlayBuffer& s) { return s.seek; });
}

double InlayBuffer_GetPan(InlayBuffer* sample) {
    return WithSample(sample, 0.0, [](InlayBuffer& s) { return s.pan; });
}

double InlayBuffer_GetTilt(InlayBuffer* sample) {
    return WithSample(sample, 0.0, [](InlayBuffer& s) { return s.tilt; });
}

double InlayBuffer_GetFov(InlayBuffer* sample) {
    return WithSample(sample, 0.0, [](InlayBuffer& s) { return s.fov; });
}

void InlayBuffer_SetView(InlayBuffer* sample, double pan, double tilt, double fov) {
    WithSample(sample, [=](InlayBuffer& s) {
        s.pan = pan;
        s.tilt = tilt;
        s.fov = fov;
    });
}

void InlayBuffer_GetView(PlayerHandle handle, InlayBuffer* sample, uint8_t* destination) {
    if (sample == nullptr || destination == nullptr) return;
    WithPlayer(handle, [&](Player& player) { player.GetView(sample, destination); });
}

void InlayBuffer_ExtractView(InlayBuffer* sample, uint8_t* destination, uint32_t width,
                             uint32_t height) {
    try {
        vexel::RenderSampleView(sample, destination, width, height);
    } catch (...) {}
}
