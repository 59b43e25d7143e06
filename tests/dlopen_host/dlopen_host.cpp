// A host that knows libVexelPlayer.so only through dlopen/dlsym, as a real application does:
// every export must resolve by its plain name, and calls with null or unopened arguments must give
// the documented results without crashing. Usage: vexel_dlopen_host path/to/libVexelPlayer.so
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vexelplayer.h"

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
    if (!ok) {
        std::printf("FAIL: %s\n", what);
        ++failures;
    }
}

void* library = nullptr;

// Looks up an export with the type of its declaration in the public header; a missing one ends the
// run (calling through it would crash). decltype keeps the declaration unevaluated, so this program
// never links against the functions themselves. Every one of the 43 exports is called below.
template <class Fn>
Fn Resolve(const char* name) {
    void* address = dlsym(library, name);
    if (address == nullptr) {
        std::printf("FAIL: %s is not exported\n", name);
        std::exit(1);
    }
    return reinterpret_cast<Fn>(address);
}
#define EXPORT(name) Resolve<decltype(&name)>(#name)

void CheckNullHandle() {
    EXPORT(Destroy)(nullptr);
    Check(EXPORT(Open)(nullptr, "x.mp4", 0, 0, 0) == -1, "Open(null) is -1");
    EXPORT(Close)(nullptr);
    EXPORT(Play)(nullptr, 0);
    EXPORT(Pause)(nullptr);
    EXPORT(Stop)(nullptr);
    EXPORT(Seek)(nullptr, 10'000'000);

    uint64_t start = 11, end = 22;
    EXPORT(GetRange)(nullptr, &start, &end);
    Check(start == 11 && end == 22, "GetRange(null) leaves its outputs untouched");
    Check(EXPORT(GetFrameRate)(nullptr) == 30.0, "GetFrameRate(null) is 30.0");
    Check(EXPORT(GetWidth)(nullptr) == 0, "GetWidth(null) is 0");
    Check(EXPORT(GetHeight)(nullptr) == 0, "GetHeight(null) is 0");
    Check(EXPORT(GetCurrentPlayTime)(nullptr) == 0, "GetCurrentPlayTime(null) is 0");
    Check(EXPORT(GetCurrentPreSample)(nullptr) == nullptr, "GetCurrentPreSample(null) is null");
    Check(EXPORT(GetCurrentViewSample)(nullptr) == nullptr, "GetCurrentViewSample(null) is null");

    EXPORT(SetVolume)(nullptr, -10000);
    EXPORT(Mute)(nullptr, true);
    EXPORT(SetViewDim)(nullptr, 640, 360);
    EXPORT(SetView)(nullptr, 10, 20, 90);
    EXPORT(StartPan)(nullptr);
    EXPORT(SetPanStep)(nullptr, 1, 1);
    EXPORT(AddPan)(nullptr, 5, 5);
    EXPORT(EndPan)(nullptr);
    EXPORT(StartZoom)(nullptr);
    EXPORT(AddZoom)(nullptr, 80);
    EXPORT(EndZoom)(nullptr);

    const double times[] = {1000.0}, durations[] = {500.0};
    EXPORT(SetTimeFreeze)(nullptr, times, durations, 1);
    double outTimes[2] = {}, outDurations[2] = {};
    Check(EXPORT(GetTimeFreeze)(nullptr, outTimes, outDurations, 2) == 0,
          "GetTimeFreeze(null) is 0");
    Check(EXPORT(TimeFreeze)(nullptr, 1234.5, 100.0) == 1234.5,
          "TimeFreeze(null) returns its time");
}

void CheckNullSample() {
    uint8_t destination[4] = {1, 2, 3, 4};
    EXPORT(InlayBuffer_Release)(nullptr);
    Check(EXPORT(InlayBuffer_GetBuffer)(nullptr) == nullptr, "GetBuffer(null) is null");
    Check(EXPORT(InlayBuffer_ReadBuffer)(nullptr, destination) == destination,
          "ReadBuffer(null, dest) returns dest");
    Check(EXPORT(InlayBuffer_GetWidth)(nullptr) == 0, "GetWidth(null sample) is 0");
    Check(EXPORT(InlayBuffer_GetHeight)(nullptr) == 0, "GetHeight(null sample) is 0");
    Check(EXPORT(InlayBuffer_GetTime)(nullptr) == 0.0, "GetTime(null) is 0.0");
    Check(EXPORT(InlayBuffer_GetSeek)(nullptr), "GetSeek(null) is true");
    Check(EXPORT(InlayBuffer_GetPan)(nullptr) == 0.0, "GetPan(null) is 0.0");
    Check(EXPORT(InlayBuffer_GetTilt)(nullptr) == 0.0, "GetTilt(null) is 0.0");
    Check(EXPORT(InlayBuffer_GetFov)(nullptr) == 0.0, "GetFov(null) is 0.0");
    EXPORT(InlayBuffer_SetView)(nullptr, 1, 2, 3);
    EXPORT(InlayBuffer_GetView)(nullptr, nullptr, destination);
    EXPORT(InlayBuffer_ExtractView)(nullptr, destination, 1, 1);
    Check(std::memcmp(destination, "\1\2\3\4", 4) == 0, "null-sample calls leave dest untouched");

    InlayBuffer* empty = EXPORT(InlayBuffer_CreateSample)(0, 4);
    Check(empty != nullptr && EXPORT(InlayBuffer_GetBuffer)(empty) == nullptr,
          "a 0 x 4 sample is empty");
    EXPORT(InlayBuffer_Release)(empty);
}

void CheckUnopenedPlayer() {
    PlayerHandle player = EXPORT(Create)();
    Check(player != nullptr, "Create gives a player");
    if (player == nullptr) return;
    Check(EXPORT(GetCurrentPlayTime)(player) == 0, "play time is 0 before Open");
    Check(EXPORT(GetCurrentPreSample)(player) == nullptr, "no pre-sample before Open");
    Check(EXPORT(GetCurrentViewSample)(player) == nullptr, "no view sample before Open");
    double times[1] = {}, durations[1] = {};
    Check(EXPORT(GetTimeFreeze)(player, times, durations, 1) == 0, "no freezes before Open");
    EXPORT(Destroy)(player);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::printf("usage: %s path/to/libVexelPlayer.so\n", argv[0]);
        return 2;
    }
    library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::printf("FAIL: dlopen: %s\n", dlerror());
        return 1;
    }
    CheckNullHandle();
    CheckNullSample();
    CheckUnopenedPlayer();

    dlclose(library);
    if (failures != 0) return 1;
    std::printf("ok: 43 exports resolve and answer null arguments\n");
    return 0;
}
