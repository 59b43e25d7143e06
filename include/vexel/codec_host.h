// Codec host interfaces: what a decoder module (libDecodeHost.so) implements so that the player can
// open a file, select a stream, drive playback and receive decoded samples through a push sink.
//
// The module exports one entry point, `extern "C" int32_t CreateCodecHost(CodecHost** out)`. Every
// other object is reached through the reference-counted interfaces below. Each interface derives
// virtually from IVexelBase, so an object presents one IVexelBase however many interfaces it
// implements. Virtual functions are listed in slot order; ReservedN() slots exist so that later
// slots keep their places, and the player never calls them.
//
// Every record here crosses the module boundary and is byte-exact (little-endian x86-64); the
// static_asserts at the end of the file pin sizes and offsets.
//
// Threads: the player calls readers and their control interfaces from the host application's
// threads and from its own command thread, one call at a time per reader; a codec host calls the
// push sink from delivery threads of its own.
//
// Compiles as C++17 and later.
#ifndef VEXEL_CODEC_HOST_H
#define VEXEL_CODEC_HOST_H

#include <cstddef>
#include <cstdint>

#include "vexel/guid.h"
#include "vexel/status.h"

// ---------------------------------------------------------------------------------------------
// Identifiers

// Interface of a reader's playback control, asked of each MediaReader.
inline constexpr GUID IID_PlaybackControl = {
    0xD5446441, 0x71C0, 0x4304, {0x95, 0x8D, 0x93, 0x1F, 0x1C, 0x4A, 0x34, 0x54}};
// Interface of a reader's state, asked of the video reader's PlaybackControl.
inline constexpr GUID IID_PlaybackStatus = {
    0x60D02ABF, 0x98CC, 0x41CF, {0x86, 0x05, 0x8A, 0x39, 0x23, 0xE6, 0xC8, 0x7F}};
// Vexel::IPushStream, the interface of the player's push sinks.
inline constexpr GUID IID_PushStream = {
    0x14BEE145, 0xC7DA, 0x4EF4, {0x8E, 0xA0, 0xDD, 0x76, 0x7E, 0x8F, 0x59, 0xB6}};

// Property keys.
inline constexpr GUID KEY_DecodeMode = {
    0xB8C05071, 0x685F, 0x4CA1, {0xAC, 0x16, 0xD3, 0xF3, 0xEB, 0x01, 0x45, 0xAB}};
inline constexpr GUID KEY_StreamSetup = {
    0x1003262F, 0xCEBC, 0x42A2, {0xB1, 0xBE, 0x66, 0xA0, 0x8E, 0xCF, 0x6F, 0xD6}};
inline constexpr GUID KEY_MediaFormat = {
    0x7F825B52, 0xC0F7, 0x4155, {0x83, 0xB2, 0xD6, 0xA6, 0x23, 0xF5, 0x21, 0x7E}};
inline constexpr GUID KEY_SampleInfo = {
    0x21F33478, 0x0F43, 0x4204, {0xA6, 0x3F, 0x32, 0x68, 0xD4, 0xF6, 0x05, 0xE4}};

// StreamInfo::kind values.
inline constexpr uint32_t kStreamKindAudio = 0;
inline constexpr uint32_t kStreamKindVideo = 1;

// SampleInfo::mediaKind values.
inline constexpr uint32_t kMediaKindVideo = 0;
inline constexpr uint32_t kMediaKindAudio = 2;

// ---------------------------------------------------------------------------------------------
// Records

// Description of one stream of an opened file (88 bytes). Bytes not named are carried along
// uninterpreted.
struct StreamInfo {
    uint32_t kind;  // kStreamKindVideo, kStreamKindAudio; other values are skipped
    union {
        uint32_t width;     // video, pixels
        uint32_t channels;  // audio
    };
    union {
        uint32_t height;            // video, pixels
        uint32_t samplesPerSecond;  // audio
    };
    uint32_t reserved0;
    uint32_t bitsPerSample;  // audio
    uint8_t reserved1[20];
    double frameRate;  // video, frames per second
    double duration;   // video, seconds; 0.0 when the stream's tick count is to be used
    uint8_t reserved2[32];
};

// The player keeps this many leading bytes of an audio StreamInfo.
inline constexpr size_t kAudioStreamInfoBytes = 56;

// Head of every property record given to GetProperty / SetProperty.
struct PropertyHeader {
    uint32_t size;  // of the whole record, bytes
    GUID key;       // names the property
};

// Sent to the video reader before it selects its stream (28 bytes).
struct DecodeModeProperty {
    PropertyHeader header;  // 28, KEY_DecodeMode
    uint8_t flag;           // 0
    uint8_t unused[3];
    uint32_t decodeMode;  // 1
};

// Sent to the selected video stream (32 bytes).
struct StreamSetupProperty {
    PropertyHeader header;  // 32, KEY_StreamSetup
    uint32_t value;         // 0
    int64_t limit;          // -1
};

// Output format of a video reader, as it lies in MediaFormat::payload.
struct VideoFormatPayload {
    uint8_t reserved0[12];
    uint32_t width;        // pixels
    uint32_t height;       // pixels
    uint32_t pixelFormat;  // pixel format code
    uint8_t reserved1[16];
    double frameRate;      // frames per second
    uint64_t formatExtra;  // copied along, not interpreted
    uint8_t reserved2[32];
};

// Output format of an audio reader, as it lies in MediaFormat::payload.
struct AudioFormatPayload {
    uint32_t reserved0;
    uint32_t channels;  // low 16 bits are used
    uint32_t samplesPerSecond;
    uint32_t reserved1;
    uint32_t bitsPerSample;  // low 16 bits are used
    uint8_t reserved2[68];
};

// The 88 bytes of a reader's output format, handed whole to the render engine.
union MediaFormatPayload {
    uint8_t bytes[88];
    VideoFormatPayload video;
    AudioFormatPayload audio;
};

// Output format of a reader (112 bytes): the caller fills the first 24 bytes, the reader the rest.
struct MediaFormat {
    PropertyHeader header;  // 112, KEY_MediaFormat
    uint32_t zero;          // 0
    MediaFormatPayload payload;
};

// Sample information a push sink asks of a delivered sample (104 bytes). The sink fills the header
// and zeroes the rest; the sample writes the times and the media kind.
struct SampleInfo {
    PropertyHeader header;  // 104, KEY_SampleInfo
    uint32_t zero;
    int64_t startTime;   // 100-ns ticks
    int64_t stopTime;    // 100-ns ticks
    uint32_t mediaKind;  // kMediaKindVideo, kMediaKindAudio
    uint8_t reserved[60];
};

// Data of a delivered sample (16 bytes; a codec host writes the first 12).
struct BufferDesc {
    void* data;
    uint32_t size;  // bytes
    uint32_t reserved;
};

// Records with the header filled and everything else zero or at the value the player sends.
inline DecodeModeProperty MakeDecodeModeProperty(uint32_t decodeMode) {
    DecodeModeProperty record{};
    record.header.size = sizeof(DecodeModeProperty);
    record.header.key = KEY_DecodeMode;
    record.decodeMode = decodeMode;
    return record;
}

inline StreamSetupProperty MakeStreamSetupProperty() {
    StreamSetupProperty record{};
    record.header.size = sizeof(StreamSetupProperty);
    record.header.key = KEY_StreamSetup;
    record.limit = -1;
    return record;
}

inline MediaFormat MakeMediaFormatRequest() {
    MediaFormat record{};
    record.header.size = sizeof(MediaFormat);
    record.header.key = KEY_MediaFormat;
    return record;
}

inline SampleInfo MakeSampleInfoRequest() {
    SampleInfo record{};
    record.header.size = sizeof(SampleInfo);
    record.header.key = KEY_SampleInfo;
    return record;
}

// ---------------------------------------------------------------------------------------------
// Interfaces

// Base of every interface. QueryInterface answers a non-negative status and a counted reference
// in *out when the object offers `id`. AddRef and Release return the new count; an object goes
// away with its last reference.
struct IVexelBase {
    virtual int32_t QueryInterface(const GUID*, void**) = 0;
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;
};

struct CodecHost;
struct MediaReader;
struct MediaDescription;
struct MediaStream;
struct PlaybackControl;
struct PlaybackStatus;

// One decoded sample, handed to IPushStream::Push; valid only during that call.
struct IPushSample : virtual IVexelBase {
    virtual int32_t GetBuffer(BufferDesc* buffer) = 0;  // data pointer and byte count
    virtual int32_t BufferAcquired() = 0;               // called once right after GetBuffer
    virtual int32_t GetInfo(SampleInfo* info) = 0;      // times and media kind
};

namespace Vexel {

// Receives the decoded samples of one reader; implemented by the player.
struct IPushStream : virtual IVexelBase {
    virtual int32_t Notify() = 0;
    virtual int32_t Push(IPushSample* sample) = 0;
    virtual int32_t EndOfStream() = 0;
};

}  // namespace Vexel

// Made by CreateCodecHost.
struct CodecHost : virtual IVexelBase {
    virtual int32_t Reserved1() = 0;
    virtual int32_t Reserved2() = 0;
    virtual int32_t CreateReader(MediaReader** out) = 0;  // a new reader with one reference
};

// Reads one stream of a file. Also answers QueryInterface for IID_PlaybackControl.
struct MediaReader : virtual IVexelBase {
    virtual int32_t Reserved1() = 0;
    // utf8Path is the path given to the player's Open, unchanged. 0 on success.
    virtual int32_t Open(const char* utf8Path, MediaDescription** out) = 0;
    virtual int32_t SelectStream(uint32_t index, MediaStream** out) = 0;
    virtual int32_t Reserved4() = 0;
    virtual int32_t SetSink(Vexel::IPushStream* sink) = 0;
    virtual int32_t GetProperty(PropertyHeader* record) = 0;
    virtual int32_t SetProperty(const PropertyHeader* record) = 0;
};

// The streams of an opened file.
struct MediaDescription : virtual IVexelBase {
    virtual int32_t Reserved1() = 0;
    virtual int32_t GetStreamCount(uint32_t* count) = 0;
    // `first` and `second` are 8-byte outputs the player never reads; streamDuration receives the
    // stream's duration in 100-ns ticks; `reserved` is always null.
    virtual int32_t GetStreamInfo(uint16_t index, uint64_t* first, StreamInfo* info,
                                  uint64_t* second, uint64_t* streamDuration, void* reserved) = 0;
};

// A selected stream.
struct MediaStream : virtual IVexelBase {
    virtual int32_t Reserved1() = 0;
    virtual int32_t Reserved2() = 0;
    virtual int32_t Reserved3() = 0;
    virtual int32_t SetProperty(const PropertyHeader* record) = 0;
};

// IID_PlaybackControl: position and run state of a reader. Also answers QueryInterface for
// IID_PlaybackStatus.
struct PlaybackControl : virtual IVexelBase {
    // Span the next Run delivers, in 100-ns ticks of media time; the player passes flags 0.
    virtual int32_t SetPositions(int64_t* current, uint32_t currentFlags, int64_t* stop,
                                 uint32_t stopFlags) = 0;
    virtual int32_t Reserved2() = 0;
    virtual int32_t Run() = 0;  // returns without waiting for delivery to finish
    virtual int32_t Pause() = 0;
    virtual int32_t Stop() = 0;
};

// IID_PlaybackStatus: the reader's state code. 0 and 3 mean the reader takes a new SetPositions
// and Run; any other code means it is busy.
struct PlaybackStatus : virtual IVexelBase {
    virtual int32_t Reserved1() = 0;
    virtual int32_t Reserved2() = 0;
    virtual int32_t GetState(uint32_t* state) = 0;
};

// The module's entry point: *out receives a host with one reference; negative on failure.
extern "C" int32_t CreateCodecHost(CodecHost** out);
typedef int32_t (*CreateCodecHostFn)(CodecHost** out);
inline constexpr char kCreateCodecHostSymbol[] = "CreateCodecHost";

// ---------------------------------------------------------------------------------------------
// Layout checks

static_assert(sizeof(StreamInfo) == 88, "StreamInfo layout");
static_assert(offsetof(StreamInfo, kind) == 0, "StreamInfo layout");
static_assert(offsetof(StreamInfo, width) == 4, "StreamInfo layout");
static_assert(offsetof(StreamInfo, channels) == 4, "StreamInfo layout");
static_assert(offsetof(StreamInfo, height) == 8, "StreamInfo layout");
static_assert(offsetof(StreamInfo, samplesPerSecond) == 8, "StreamInfo layout");
static_assert(offsetof(StreamInfo, reserved0) == 12, "StreamInfo layout");
static_assert(offsetof(StreamInfo, bitsPerSample) == 16, "StreamInfo layout");
static_assert(offsetof(StreamInfo, reserved1) == 20, "StreamInfo layout");
static_assert(offsetof(StreamInfo, frameRate) == 40, "StreamInfo layout");
static_assert(offsetof(StreamInfo, duration) == 48, "StreamInfo layout");
static_assert(offsetof(StreamInfo, reserved2) == 56, "StreamInfo layout");
static_assert(kAudioStreamInfoBytes == offsetof(StreamInfo, reserved2), "audio copy length");

static_assert(sizeof(PropertyHeader) == 20, "PropertyHeader layout");
static_assert(offsetof(PropertyHeader, size) == 0, "PropertyHeader layout");
static_assert(offsetof(PropertyHeader, key) == 4, "PropertyHeader layout");

static_assert(sizeof(DecodeModeProperty) == 28, "DecodeModeProperty layout");
static_assert(offsetof(DecodeModeProperty, header) == 0, "DecodeModeProperty layout");
static_assert(offsetof(DecodeModeProperty, flag) == 20, "DecodeModeProperty layout");
static_assert(offsetof(DecodeModeProperty, unused) == 21, "DecodeModeProperty layout");
static_assert(offsetof(DecodeModeProperty, decodeMode) == 24, "DecodeModeProperty layout");

static_assert(sizeof(StreamSetupProperty) == 32, "StreamSetupProperty layout");
static_assert(offsetof(StreamSetupProperty, header) == 0, "StreamSetupProperty layout");
static_assert(offsetof(StreamSetupProperty, value) == 20, "StreamSetupProperty layout");
static_assert(offsetof(StreamSetupProperty, limit) == 24, "StreamSetupProperty layout");

// Payload offsets are the record offsets minus 24.
static_assert(sizeof(VideoFormatPayload) == 88, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, reserved0) == 0, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, width) == 36 - 24, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, height) == 40 - 24, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, pixelFormat) == 44 - 24, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, reserved1) == 48 - 24, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, frameRate) == 64 - 24, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, formatExtra) == 72 - 24, "VideoFormatPayload layout");
static_assert(offsetof(VideoFormatPayload, reserved2) == 80 - 24, "VideoFormatPayload layout");

static_assert(sizeof(AudioFormatPayload) == 88, "AudioFormatPayload layout");
static_assert(offsetof(AudioFormatPayload, reserved0) == 0, "AudioFormatPayload layout");
static_assert(offsetof(AudioFormatPayload, channels) == 28 - 24, "AudioFormatPayload layout");
static_assert(offsetof(AudioFormatPayload, samplesPerSecond) == 32 - 24,
              "AudioFormatPayload layout");
static_assert(offsetof(AudioFormatPayload, reserved1) == 36 - 24, "AudioFormatPayload layout");
static_assert(offsetof(AudioFormatPayload, bitsPerSample) == 40 - 24, "AudioFormatPayload layout");
static_assert(offsetof(AudioFormatPayload, reserved2) == 44 - 24, "AudioFormatPayload layout");

static_assert(sizeof(MediaFormatPayload) == 88, "MediaFormatPayload layout");
static_assert(sizeof(MediaFormat) == 112, "MediaFormat layout");
static_assert(offsetof(MediaFormat, header) == 0, "MediaFormat layout");
static_assert(offsetof(MediaFormat, zero) == 20, "MediaFormat layout");
static_assert(offsetof(MediaFormat, payload) == 24, "MediaFormat layout");

static_assert(sizeof(SampleInfo) == 104, "SampleInfo layout");
static_assert(offsetof(SampleInfo, header) == 0, "SampleInfo layout");
static_assert(offsetof(SampleInfo, zero) == 20, "SampleInfo layout");
static_assert(offsetof(SampleInfo, startTime) == 24, "SampleInfo layout");
static_assert(offsetof(SampleInfo, stopTime) == 32, "SampleInfo layout");
static_assert(offsetof(SampleInfo, mediaKind) == 40, "SampleInfo layout");
static_assert(offsetof(SampleInfo, reserved) == 44, "SampleInfo layout");

static_assert(sizeof(BufferDesc) == 16, "BufferDesc layout");
static_assert(offsetof(BufferDesc, data) == 0, "BufferDesc layout");
static_assert(offsetof(BufferDesc, size) == 8, "BufferDesc layout");
static_assert(offsetof(BufferDesc, reserved) == 12, "BufferDesc layout");

#endif  // VEXEL_CODEC_HOST_H
