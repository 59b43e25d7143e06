// Frame conversion modules: the records and C functions of libPixelConvert.so (colour conversion),
// libSphereUnwrap.so (fisheye to equirectangular) and libLensParams.so (lens geometry and the
// time-keyed view path). The player loads each module by file name and looks its functions up by
// the names below; the modules define them.
//
// Every record is byte-exact (little-endian x86-64, fields on 4-byte boundaries); the
// static_asserts pin sizes and offsets. Fields marked "not interpreted" may hold any value.
//
// Results (vexel/status.h): S_OK, S_FALSE when nothing was done, negative failure. No
// function throws, and none keeps a pointer it was given after it returns.
//
// Threads: every function may be called from several threads at once. The lens module guards its
// state; the unwrap module shares its cached mappings under a lock; pixel conversion has no state.
//
// Compiles as C++17 and later.
#ifndef VEXEL_CONVERSION_H
#define VEXEL_CONVERSION_H

#include <cstddef>
#include <cstdint>

#include "vexel/status.h"

#if defined(__GNUC__)
#define VEXEL_MODULE_EXPORT __attribute__((visibility("default")))
#else
#define VEXEL_MODULE_EXPORT
#endif

// ---------------------------------------------------------------------------------------------
// Module files

inline constexpr char kPixelConvertModule[] = "libPixelConvert.so";
inline constexpr char kSphereUnwrapModule[] = "libSphereUnwrap.so";
inline constexpr char kLensParamsModule[] = "libLensParams.so";

// ---------------------------------------------------------------------------------------------
// Records

// Pixel format codes.
inline constexpr uint32_t kPixelFormatYuy2 = 3;     // packed 4:2:2 Y0 U Y1 V, BT.709 limited range
inline constexpr uint32_t kPixelFormatBgra32 = 11;  // B, G, R, A bytes; from YUY2 A is 255

// Largest width or height the conversion and unwrap modules accept.
inline constexpr uint32_t kMaxPictureSide = 16384;
// Largest unwrap target in pixels (its mapping takes 8 bytes a pixel).
inline constexpr uint64_t kMaxUnwrapTargetPixels = uint64_t{1} << 26;

#pragma pack(push, 4)

// A picture for libPixelConvert.so (52 bytes).
struct PixelBufferDesc {
    uint32_t format;     // kPixelFormatYuy2 or kPixelFormatBgra32
    uint32_t reserved0;  // not interpreted
    uint32_t width;      // pixels
    uint32_t height;     // pixels
    uint8_t flag0;       // not interpreted
    uint8_t unused0[3];
    uint32_t stride;  // bytes from one row to the next, at least the packed row size
    uint8_t flag1;    // not interpreted
    uint8_t unused1[3];
    uint8_t* data;       // first byte of the top row
    uint8_t* planes[2];  // set by CalculatePlanePointer: planes[0] = data, planes[1] = null
};

// A fisheye picture for libSphereUnwrap.so (52 bytes). The picture is 32-bit B,G,R,A, top row
// first, rows of width x 4 bytes. Coordinates are pixels; each centre is given as (row, column),
// in the same height-then-width order as the first two fields. The single-lens function reads
// centerRow/centerColumn, the dual-lens function the left and right pairs.
struct UnwrapSource {
    uint32_t height;       // pixels
    uint32_t width;        // pixels
    int32_t centerRow;     // single lens
    int32_t centerColumn;  // single lens
    int32_t radius;        // of each lens's image circle, pixels
    uint32_t size;         // bytes at pixels, at least width x height x 4
    const uint8_t* pixels;
    float lensAngle;  // degrees of view across the image circle (240 single, 190 dual)
    int32_t leftRow;  // dual: centre of the left half's lens, which looks forward
    int32_t leftColumn;
    int32_t rightRow;  // dual: centre of the right half's lens, which looks backward
    int32_t rightColumn;
};

// The equirectangular picture an unwrap function fills (32 bytes): 32-bit B,G,R,A with A = 255,
// top row first, rows of width x 4 bytes; longitude runs left to right from -180 to 180 degrees
// (0 in the middle, the forward direction), latitude from +90 at the top row to -90.
struct UnwrapTarget {
    uint32_t height;       // pixels
    uint32_t width;        // pixels
    uint8_t reserved[12];  // not interpreted
    // Bytes, or pixels, at pixels: the player passes bytes for a single lens and the pixel count
    // for two, so any value of at least width x height is accepted as a pixel count. The caller
    // makes pixels hold width x height x 4 bytes.
    uint32_t size;
    uint8_t* pixels;
};

#pragma pack(pop)

static_assert(sizeof(PixelBufferDesc) == 52, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, format) == 0, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, reserved0) == 4, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, width) == 8, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, height) == 12, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, flag0) == 16, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, stride) == 20, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, flag1) == 24, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, data) == 28, "PixelBufferDesc layout");
static_assert(offsetof(PixelBufferDesc, planes) == 36, "PixelBufferDesc layout");

static_assert(sizeof(UnwrapSource) == 52, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, height) == 0, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, width) == 4, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, centerRow) == 8, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, centerColumn) == 12, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, radius) == 16, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, size) == 20, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, pixels) == 24, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, lensAngle) == 32, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, leftRow) == 36, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, leftColumn) == 40, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, rightRow) == 44, "UnwrapSource layout");
static_assert(offsetof(UnwrapSource, rightColumn) == 48, "UnwrapSource layout");

static_assert(sizeof(UnwrapTarget) == 32, "UnwrapTarget layout");
static_assert(offsetof(UnwrapTarget, height) == 0, "UnwrapTarget layout");
static_assert(offsetof(UnwrapTarget, width) == 4, "UnwrapTarget layout");
static_assert(offsetof(UnwrapTarget, reserved) == 8, "UnwrapTarget layout");
static_assert(offsetof(UnwrapTarget, size) == 20, "UnwrapTarget layout");
static_assert(offsetof(UnwrapTarget, pixels) == 24, "UnwrapTarget layout");

// ---------------------------------------------------------------------------------------------
// libPixelConvert.so

extern "C" {

// Bytes of a picture of the description's format, width and height with packed rows; 0 for an
// unknown format, a zero or too large size, or a null description.
VEXEL_MODULE_EXPORT uint32_t CalculateBufferSize(const PixelBufferDesc* desc);
// Sets planes from data (both formats are packed: planes[0] = data, planes[1] = null).
VEXEL_MODULE_EXPORT int32_t CalculatePlanePointer(PixelBufferDesc* desc);
// Converts source into destination (same width and height) of format BGRA32: from YUY2 (an odd
// width takes a final half pair, so its rows need ((width + 1) / 2) x 4 bytes) or from BGRA32 (a
// plain copy).
VEXEL_MODULE_EXPORT int32_t ConvertBuffers(const PixelBufferDesc* source,
                                           const PixelBufferDesc* destination);

}  // extern "C"

typedef uint32_t (*CalculateBufferSizeFn)(const PixelBufferDesc* desc);
typedef int32_t (*CalculatePlanePointerFn)(PixelBufferDesc* desc);
typedef int32_t (*ConvertBuffersFn)(const PixelBufferDesc* source,
                                    const PixelBufferDesc* destination);
inline constexpr char kCalculateBufferSizeSymbol[] = "CalculateBufferSize";
inline constexpr char kCalculatePlanePointerSymbol[] = "CalculatePlanePointer";
inline constexpr char kConvertBuffersSymbol[] = "ConvertBuffers";

// ---------------------------------------------------------------------------------------------
// libSphereUnwrap.so
//
// Both functions use an equidistant fisheye model (the angle from the optical axis grows linearly
// with the distance from the centre, reaching lensAngle / 2 at the radius) and bilinear sampling.
// Directions outside every lens's field, or seen outside the source picture, are black. The
// mapping from target pixels to source positions is computed once per geometry (sizes, centres,
// radius, angle; about half a second for 3840x1920) and reused while the geometry stays; the last
// three geometries are kept. Sides of 2 to kMaxPictureSide pixels, a target of at most
// kMaxUnwrapTargetPixels, a radius of 1 to 65536 and an angle in (0, 360] are accepted; anything
// else is refused with E_INVALIDARG and the target left untouched.

extern "C" {

// One lens looking forward; the target is usually 4R x 2R for a radius of R pixels.
VEXEL_MODULE_EXPORT int32_t SingleFisheye2Equirectangular(const UnwrapSource* source,
                                                          const UnwrapTarget* target);
// Two back-to-back lenses; where their fields overlap the two are blended smoothly.
VEXEL_MODULE_EXPORT int32_t DualFisheye2Equirectangular(const UnwrapSource* source,
                                                        const UnwrapTarget* target);

}  // extern "C"

typedef int32_t (*UnwrapFn)(const UnwrapSource* source, const UnwrapTarget* target);
inline constexpr char kSingleFisheyeSymbol[] = "SingleFisheye2Equirectangular";
inline constexpr char kDualFisheyeSymbol[] = "DualFisheye2Equirectangular";

// ---------------------------------------------------------------------------------------------
// libLensParams.so: lens geometry
//
// Values are fractions of the picture, paired as the player multiplies them: X values are
// fractions of the height (the row of a centre), Y values fractions of the width (its column),
// the radius a fraction of the height. The defaults fit a 2:1 picture holding two fisheye circles
// side by side: left centre (0.5, 0.25), right centre (0.5, 0.75), radius 0.5. A single centred
// fisheye needs SetPanoramaLeftCenterY(0.5). The getters ignore their first argument.

extern "C" {

VEXEL_MODULE_EXPORT int32_t GetPanoramaLeftCenterX(double unused, double* value);
VEXEL_MODULE_EXPORT int32_t GetPanoramaLeftCenterY(double unused, double* value);
VEXEL_MODULE_EXPORT int32_t GetPanoramaRightCenterX(double unused, double* value);
VEXEL_MODULE_EXPORT int32_t GetPanoramaRightCenterY(double unused, double* value);
VEXEL_MODULE_EXPORT int32_t GetPanoramaRadius(double unused, double* value);

// Setters for calibration; a value that is not finite, or outside [-4, 4] (radius: (0, 4]), is
// refused with E_INVALIDARG.
VEXEL_MODULE_EXPORT int32_t SetPanoramaLeftCenterX(double value);
VEXEL_MODULE_EXPORT int32_t SetPanoramaLeftCenterY(double value);
VEXEL_MODULE_EXPORT int32_t SetPanoramaRightCenterX(double value);
VEXEL_MODULE_EXPORT int32_t SetPanoramaRightCenterY(double value);
VEXEL_MODULE_EXPORT int32_t SetPanoramaRadius(double value);
// Back to the defaults above.
VEXEL_MODULE_EXPORT int32_t ResetPanoramaGeometry(void);

}  // extern "C"

typedef int32_t (*LensGeometryGetFn)(double unused, double* value);
typedef int32_t (*LensGeometrySetFn)(double value);
typedef int32_t (*ResetPanoramaGeometryFn)(void);
inline constexpr char kGetLeftCenterXSymbol[] = "GetPanoramaLeftCenterX";
inline constexpr char kGetLeftCenterYSymbol[] = "GetPanoramaLeftCenterY";
inline constexpr char kGetRightCenterXSymbol[] = "GetPanoramaRightCenterX";
inline constexpr char kGetRightCenterYSymbol[] = "GetPanoramaRightCenterY";
inline constexpr char kGetRadiusSymbol[] = "GetPanoramaRadius";
inline constexpr char kSetLeftCenterXSymbol[] = "SetPanoramaLeftCenterX";
inline constexpr char kSetLeftCenterYSymbol[] = "SetPanoramaLeftCenterY";
inline constexpr char kSetRightCenterXSymbol[] = "SetPanoramaRightCenterX";
inline constexpr char kSetRightCenterYSymbol[] = "SetPanoramaRightCenterY";
inline constexpr char kSetRadiusSymbol[] = "SetPanoramaRadius";
inline constexpr char kResetPanoramaGeometrySymbol[] = "ResetPanoramaGeometry";

// ---------------------------------------------------------------------------------------------
// libLensParams.so: the view path
//
// Keyframes keyed by time in seconds (any finite value). A keyframe holds a direction (pan and
// tilt), a field of view, or both; directions and fields of view are read from the keyframes that
// hold them. Reading between keyframes interpolates smoothly (a monotone cubic: no overshoot,
// easing in and out of the first and last keyframe); pan takes the shorter way round across
// +-180. A keyframe at a time already present replaces that keyframe's values. Before the first
// and after the last keyframe the nearest one holds; at a keyframe's time its values are returned
// exactly as stored. With no keyframe of a kind the reads leave their outputs untouched and return
// S_FALSE. Angles are degrees, stored as given. Times and values must be finite
// (E_INVALIDARG otherwise); a track holding a million keyframes refuses new times
// (E_OUTOFMEMORY).

extern "C" {

VEXEL_MODULE_EXPORT int32_t GetPanoramaAngle(double time, double* pan, double* tilt, double* fov);
VEXEL_MODULE_EXPORT int32_t GetPanoramaPan(double time, double* pan, double* tilt);
VEXEL_MODULE_EXPORT int32_t GetPanoramaZoom(double time, double* fov);
VEXEL_MODULE_EXPORT int32_t SetPanoramaAngle(double time, double pan, double tilt, double fov);
VEXEL_MODULE_EXPORT int32_t SetPanoramaPan(double time, double pan, double tilt);
VEXEL_MODULE_EXPORT int32_t SetPanoramaZoom(double time, double fov);

// Removes every keyframe.
VEXEL_MODULE_EXPORT int32_t ClearPanoramaPath(void);
// Writes the path to a JSON file (UTF-8 path), replacing it whole:
//   {"format": "vexel-view-path", "version": 1,
//    "keyframes": [{"time": 0.0, "pan": 10.0, "tilt": 0.0, "fov": 90.0}, {"time": 2.5,
//    "fov": 60.0}]}
// with keyframes in time order, "pan" and "tilt" together or not at all.
VEXEL_MODULE_EXPORT int32_t SavePanoramaPath(const char* path);
// Replaces the path with the one in a file written by SavePanoramaPath. A file that cannot be read,
// is not such JSON, or holds a non-finite or duplicate time leaves the path unchanged
// (E_FAIL, E_INVALID_DATA).
VEXEL_MODULE_EXPORT int32_t LoadPanoramaPath(const char* path);

}  // extern "C"

typedef int32_t (*GetPanoramaAngleFn)(double time, double* pan, double* tilt, double* fov);
typedef int32_t (*GetPanoramaPanFn)(double time, double* pan, double* tilt);
typedef int32_t (*GetPanoramaZoomFn)(double time, double* fov);
typedef int32_t (*SetPanoramaAngleFn)(double time, double pan, double tilt, double fov);
typedef int32_t (*SetPanoramaPanFn)(double time, double pan, double tilt);
typedef int32_t (*SetPanoramaZoomFn)(double time, double fov);
typedef int32_t (*ClearPanoramaPathFn)(void);
typedef int32_t (*PanoramaPathFileFn)(const char* path);
inline constexpr char kGetPanoramaAngleSymbol[] = "GetPanoramaAngle";
inline constexpr char kGetPanoramaPanSymbol[] = "GetPanoramaPan";
inline constexpr char kGetPanoramaZoomSymbol[] = "GetPanoramaZoom";
inline constexpr char kSetPanoramaAngleSymbol[] = "SetPanoramaAngle";
inline constexpr char kSetPanoramaPanSymbol[] = "SetPanoramaPan";
inline constexpr char kSetPanoramaZoomSymbol[] = "SetPanoramaZoom";
inline constexpr char kClearPanoramaPathSymbol[] = "ClearPanoramaPath";
inline constexpr char kSavePanoramaPathSymbol[] = "SavePanoramaPath";
inline constexpr char kLoadPanoramaPathSymbol[] = "LoadPanoramaPath";

#endif  // VEXEL_CONVERSION_H
