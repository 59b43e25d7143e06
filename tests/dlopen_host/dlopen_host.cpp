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

// A failed check is printed as written.
#define CHECK(condition) \
    ((condition) ? void() : (std::printf("FAIL: %s\n", #condition), void(++failures)))

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
    CHECK(EXPORT(Open)(nullptr, "x.mp4", 0, 0, 0) == -1);
    EXPORT(Close)(nullptr);
    EXPORT(Play)(nullptr, 0);
    EXPORT(Pause)(nullptr);
    EXPORT(Stop)(nullptr);
    EXPORT(Seek)(nullptr, 10'000'000);

    uint64_t start = 11, end = 22;
    EXPORT(GetRange)(nullptr, &start, &end);
    CHECK(start == 11 && end == 22);
    CHECK(EXPORT(GetFrameRate)(nullptr) == 30.0);
    CHECK(EXPORT(GetWidth)(nullptr) == 0);
    CHECK(EXPORT(GetHeight)(nullptr) == 0);
    CHECK(EXPORT(GetCurrentPlayTime)(nullptr) == 0);
    CHECK(EXPORT(GetCurrentPreSample)(nullptr) == nullptr);
    CHECK(EXPORT(GetCurrentViewSample)(nullptr) == nullptr);

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
    CHECK(EXPORT(GetTimeFreeze)(nullptr, outTimes, outDurations, 2) == 0);
    CHECK(EXPORT(TimeFreeze)(nullptr, 1234.5, 100.0) == 1234.5);
}

void CheckNullSample() {
    uint8_t destination[4] = {1, 2, 3, 4};
    EXPORT(InlayBuffer_Release)(nullptr);
    CHECK(EXPORT(InlayBuffer_GetBuffer)(nullptr) == nullptr);
    CHECK(EXPORT(InlayBuffer_ReadBuffer)(nullptr, destination) == destination);
    CHECK(EXPORT(InlayBuffer_GetWidth)(nullptr) == 0);
    CHECK(EXPORT(InlayBuffer_GetHeight)(nullptr) == 0);
    CHECK(EXPORT(InlayBuffer_GetTime)(nullptr) == 0.0);
    CHECK(EXPORT(InlayBuffer_GetSeek)(nullptr));
    CHECK(EXPORT(InlayBuffer_GetPan)(nullptr) == 0.0);
    CHECK(EXPORT(InlayBuffer_GetTilt)(nullptr) == 0.0);
    CHECK(EXPORT(InlayBuffer_GetFov)(nullptr) == 0.0);
    EXPORT(InlayBuffer_SetView)(nullptr, 1, 2, 3);
    EXPORT(InlayBuffer_GetView)(nullptr, nullptr, destination);
    EXPORT(InlayBuffer_ExtractView)(nullptr, destination, 1, 1);
    CHECK(std::memcmp(destination, "\1\2\3\4", 4) == 0);

    InlayBuffer* empty = EXPORT(InlayBuffer_CreateSample)(0, 4);
    CHECK(empty != nullptr && EXPORT(InlayBuffer_GetBuffer)(empty) == nullptr);
    EXPORT(InlayBuffer_Release)(empty);
}

void CheckUnopenedPlayer() {
    PlayerHandle player = EXPORT(Create)();
    CHECK(player != nullptr);
    if (player == nullptr) return;
    CHECK(EXPORT(GetCurrentPlayTime)(player) == 0);
    CHECK(EXPORT(GetCurrentPreSample)(player) == nullptr);
    CHECK(EXPORT(GetCurrentViewSample)(player) == nullptr);
    double times[1] = {}, durations[1] = {};
    CHECK(EXPORT(GetTimeFreeze)(player, times, durations, 1) == 0);
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
