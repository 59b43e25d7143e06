// The view path kept by the lens module the player loaded (libLensParams.so): saving it to a JSON
// file, loading one, clearing it. Bound to the module instance already in the process, so the path
// is the one the player records gestures into and plays back; bind after the player opened a file.
//
// Threads: the lens module guards its own state; any thread.
#pragma once

#include <cstdint>
#include <string>

#include "vexel/conversion.h"

namespace view {

class LensPath {
public:
    // False when the player has not loaded the lens module (or it lacks the functions).
    bool Bind();
    bool bound() const { return save_ != nullptr; }

    // The lens module's result codes (S_OK, E_FAIL, E_INVALID_DATA, ...).
    int32_t Save(const std::string& file) const;
    int32_t Load(const std::string& file) const;
    void Clear() const;
    // The path's view at `seconds` of lens time; outputs of a kind without keyframes stay as they
    // were. False without a lens module.
    bool ViewAt(double seconds, double* pan, double* tilt, double* fov) const;

private:
    PanoramaPathFileFn save_ = nullptr;
    PanoramaPathFileFn load_ = nullptr;
    ClearPanoramaPathFn clear_ = nullptr;
    GetPanoramaAngleFn viewAt_ = nullptr;
};

// "saved", "not found", ... for a result of Save or Load.
const char* DescribeResult(int32_t result);

}  // namespace view
