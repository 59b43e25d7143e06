// Panorama layouts: the lens layout codes the player's Open takes, and what a file's own
// spherical-video metadata says (the spherical mapping and stereo 3D side data of its video
// stream, read with libavformat). vexel-play and vexel-view choose a layout through here, so both
// read a file the same way.
//
// Threads: free functions without shared state; callable from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mediakit {

// The player's fisheyeMode codes.
inline constexpr uint32_t kLayoutEquirect = 0;
inline constexpr uint32_t kLayoutFisheye = 2;
inline constexpr uint32_t kLayoutDualFisheye = 3;

// Names: equirect, fisheye, dual-fisheye. False for an unknown name.
bool ParseLayoutName(std::string_view name, uint32_t* fisheyeMode);
const char* LayoutName(uint32_t fisheyeMode);

// How two eyes share one picture.
enum class Stereo { Mono, TopBottom, SideBySide, Other };

// Where a picture's left-eye image lies.
enum class EyeRegion { Whole, TopHalf, BottomHalf, LeftHalf, RightHalf };

struct SphericalMetadata {
    bool spherical = false;  // the stream carries a spherical mapping
    std::string projection;  // "equirectangular", "cubemap" or "tiled equirectangular"
    double yaw = 0.0, pitch = 0.0, roll = 0.0;  // the mapping's initial orientation, degrees
    Stereo stereo = Stereo::Mono;
    bool rightEyeFirst = false;  // the right eye is on top / on the left
};

// Reads the metadata of the best video stream of `path` (a file or URL; gives up after a few
// seconds). False with a message in *error when the file cannot be opened or has no video.
bool ProbeSphericalMetadata(const std::string& path, SphericalMetadata* metadata,
                            std::string* error);

// What a host does with a file whose metadata is `m`: the layout to open it with, where its left
// eye is, and one line saying what was found and what is done.
struct LayoutChoice {
    uint32_t fisheyeMode = kLayoutEquirect;
    EyeRegion leftEye = EyeRegion::Whole;
    std::string description;
};
LayoutChoice ChooseLayout(const SphericalMetadata& m);

// Tags for a written video stream: an equirectangular spherical mapping and, for stereo, the
// stereo 3D arrangement (the left eye on top or on the left).
struct SphericalTag {
    bool spherical = false;
    Stereo stereo = Stereo::Mono;
};

}  // namespace mediakit
