#include "panorama_layout.h"

#include <chrono>

#include "stream_side_data.h"

extern "C" {
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
}

namespace mediakit {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kProbeTimeLimit{5};

// Lets a slow network source give up instead of holding the program.
int PastDeadline(void* deadline) {
    return Clock::now() > *static_cast<Clock::time_point*>(deadline) ? 1 : 0;
}

double Degrees(int32_t fixed16) { return fixed16 / 65536.0; }

}  // namespace

bool ParseLayoutName(std::string_view name, uint32_t* fisheyeMode) {
    if (name == "equirect")
        *fisheyeMode = kLayoutEquirect;
    else if (name == "fisheye")
        *fisheyeMode = kLayoutFisheye;
    else if (name == "dual-fisheye")
        *fisheyeMode = kLayoutDualFisheye;
    else
        return false;
    return true;
}

const char* LayoutName(uint32_t fisheyeMode) {
    switch (fisheyeMode) {
        case kLayoutFisheye:
            return "fisheye";
        case kLayoutDualFisheye:
            return "dual-fisheye";
        default:
            return "equirect";
    }
}

bool ProbeSphericalMetadata(const std::string& path, SphericalMetadata* metadata,
                            std::string* error) {
    *metadata = {};
    Clock::time_point deadline = Clock::now() + kProbeTimeLimit;
    AVFormatContext* format = avformat_alloc_context();
    if (format == nullptr) {
        *error = "out of memory";
        return false;
    }
    format->interrupt_callback = {PastDeadline, &deadline};
    // The side data comes with the container's header: no need to decode anything.
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) <
        0) {  // frees format on failure
        *error = "cannot open " + path;
        return false;
    }
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) {
        avformat_close_input(&format);
        *error = "no video stream in " + path;
        return false;
    }
    const AVStream* stream = format->streams[index];
    if (const auto* mapping = reinterpret_cast<const AVSphericalMapping*>(
            StreamSideData(stream, AV_PKT_DATA_SPHERICAL))) {
        metadata->spherical = true;
        metadata->projection =
            mapping->projection == AV_SPHERICAL_EQUIRECTANGULAR        ? "equirectangular"
            : mapping->projection == AV_SPHERICAL_CUBEMAP              ? "cubemap"
            : mapping->projection == AV_SPHERICAL_EQUIRECTANGULAR_TILE ? "tiled equirectangular"
                                                                       : "unknown";
        metadata->yaw = Degrees(mapping->yaw);
        metadata->pitch = Degrees(mapping->pitch);
        metadata->roll = Degrees(mapping->roll);
    }
    if (const auto* stereo =
            reinterpret_cast<const AVStereo3D*>(StreamSideData(stream, AV_PKT_DATA_STEREO3D))) {
        metadata->stereo = stereo->type == AV_STEREO3D_2D           ? Stereo::Mono
                           : stereo->type == AV_STEREO3D_TOPBOTTOM  ? Stereo::TopBottom
                           : stereo->type == AV_STEREO3D_SIDEBYSIDE ? Stereo::SideBySide
                                                                    : Stereo::Other;
        metadata->rightEyeFirst = (stereo->flags & AV_STEREO3D_FLAG_INVERT) != 0;
    }
    avformat_close_input(&format);
    return true;
}

LayoutChoice ChooseLayout(const SphericalMetadata& m) {
    LayoutChoice choice;
    if (!m.spherical) {
        choice.description = "no spherical metadata: taken as equirect";
    } else if (m.projection == "equirectangular") {
        choice.description = "spherical metadata: equirectangular";
    } else {
        choice.description = "spherical metadata: " + m.projection +
                             ", which the player cannot unwrap: taken as equirect";
    }
    switch (m.stereo) {
        case Stereo::Mono:
            break;
        case Stereo::TopBottom:
            choice.leftEye = m.rightEyeFirst ? EyeRegion::BottomHalf : EyeRegion::TopHalf;
            choice.description += m.rightEyeFirst ? ", stereo top-bottom (left eye below)"
                                                  : ", stereo top-bottom (left eye on top)";
            break;
        case Stereo::SideBySide:
            choice.leftEye = m.rightEyeFirst ? EyeRegion::RightHalf : EyeRegion::LeftHalf;
            choice.description += m.rightEyeFirst ? ", stereo side-by-side (left eye on the right)"
                                                  : ", stereo side-by-side (left eye on the left)";
            break;
        case Stereo::Other:
            choice.description +=
                ", stereo in an arrangement other than top-bottom or side-by-side";
            break;
    }
    return choice;
}

}  // namespace mediakit
