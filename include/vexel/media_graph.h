// Media graph interfaces: the small COM-style object model through which the player builds and
// drives its audio graph, and which a filter module (libAudioFeedFilter.so) implements.
//
// Objects are reference counted (IUnknown) and meet only through the interfaces below: a graph
// manager (IGraphBuilder, IMediaControl) holds filters (IBaseFilter); filters expose pins (IPin)
// that connect an output to an input with a negotiated MediaType; an output pin hands timed PCM to
// the input pin it is connected to through that pin's ISampleInput. A module makes its filters
// through `extern "C" HRESULT DllGetClassObject(const GUID* clsid, const GUID* iid, void** out)`,
// which answers an IClassFactory.
//
// Rules shared by every interface: an out-pointer that receives an interface gets it with a
// reference the caller owns; a failure leaves it null. Names are UTF-16 and zero-terminated. Times
// are signed 64-bit counts of 100 ns, stream times relative to the instant the graph runs.
//
// Threads: every object may be called from any thread; each documents what it serialises.
//
// Compiles as C++17 and later.
#ifndef VEXEL_MEDIA_GRAPH_H
#define VEXEL_MEDIA_GRAPH_H

#include <cstddef>
#include <cstdint>

#include "vexel/guid.h"
#include "vexel/status.h"

// Longest error text AMGetErrorTextW writes, terminator included.
inline constexpr uint32_t MAX_ERROR_TEXT_LEN = 160;

// ---------------------------------------------------------------------------------------------
// Identifiers

inline constexpr GUID IID_IUnknown = {
    0x55DACA9B, 0x2157, 0x4F15, {0x8A, 0x8C, 0xF6, 0x15, 0x8A, 0x5A, 0x0A, 0x6B}};
inline constexpr GUID IID_IClassFactory = {
    0x8AEFEDF3, 0xC5BF, 0x46A1, {0xB3, 0xCF, 0xBB, 0x3F, 0x3E, 0x6C, 0x05, 0x85}};
inline constexpr GUID IID_IMediaFilter = {
    0x58FB756D, 0x4221, 0x49A4, {0x91, 0xE7, 0xFE, 0x34, 0x84, 0x5C, 0x12, 0x83}};
inline constexpr GUID IID_IBaseFilter = {
    0xDC22D345, 0x7E4C, 0x414B, {0x91, 0xC2, 0xD8, 0x5B, 0x47, 0xE8, 0x02, 0x32}};
inline constexpr GUID IID_IPin = {
    0xBBD64BC5, 0x2A05, 0x4EB9, {0xA0, 0xA6, 0x6C, 0x70, 0x84, 0x9C, 0x23, 0x43}};
inline constexpr GUID IID_IEnumPins = {
    0x2DCB7237, 0x0A7A, 0x4A3F, {0x81, 0xF9, 0xAF, 0x5A, 0x2F, 0x6C, 0x74, 0x92}};
inline constexpr GUID IID_IFilterGraph = {
    0x87CAED5E, 0x0D20, 0x4DAA, {0xB0, 0xEE, 0xD5, 0x72, 0x3B, 0x78, 0x54, 0x32}};
inline constexpr GUID IID_IGraphBuilder = {
    0xA253506B, 0xA568, 0x4F52, {0x8F, 0x2F, 0x04, 0x6F, 0xCB, 0xF0, 0x2D, 0x9B}};
inline constexpr GUID IID_IEnumFilters = {
    0xA87E0DB7, 0x2080, 0x4910, {0xAA, 0x1E, 0xDA, 0xA0, 0x03, 0x86, 0x78, 0x43}};
inline constexpr GUID IID_IMediaControl = {
    0xCA691CD8, 0x83A4, 0x454D, {0xB9, 0xDF, 0xE0, 0xCF, 0x56, 0x11, 0xBA, 0xA4}};
inline constexpr GUID IID_IBasicAudio = {
    0x53F23F5C, 0xAEB5, 0x4CF2, {0x9C, 0xC8, 0x63, 0x73, 0x29, 0x8B, 0x88, 0x10}};
inline constexpr GUID IID_ISampleInput = {
    0x0C725D22, 0xA904, 0x4271, {0x9B, 0xD6, 0x8C, 0x8C, 0xE4, 0xC9, 0x85, 0xCB}};

// Classes the runtime creates with CoCreateInstance.
inline constexpr GUID CLSID_FilterGraph = {
    0xE436EBB3, 0x524F, 0x11CE, {0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr GUID CLSID_AudioRenderer = {
    0x79376820, 0x07D0, 0x11CF, {0xA2, 0x4D, 0x00, 0x20, 0xAF, 0xD7, 0x97, 0x67}};

// Media types.
inline constexpr GUID MEDIATYPE_Audio = {
    0x15789D34, 0xD102, 0x478D, {0x84, 0x71, 0xA8, 0xA7, 0x1D, 0xE2, 0x83, 0x36}};
inline constexpr GUID MEDIASUBTYPE_PCM = {
    0x5872B722, 0xFE19, 0x4921, {0xBA, 0x0E, 0xD4, 0x34, 0xCA, 0x11, 0x7B, 0x75}};

// ---------------------------------------------------------------------------------------------
// Records

inline constexpr uint16_t WAVE_FORMAT_PCM = 1;

// Format of interleaved PCM, packed little-endian (18 bytes).
#pragma pack(push, 1)
struct WAVEFORMATEX {
    uint16_t wFormatTag;  // WAVE_FORMAT_PCM
    uint16_t nChannels;
    uint32_t nSamplesPerSec;
    uint32_t nAvgBytesPerSec;  // nBlockAlign * nSamplesPerSec
    uint16_t nBlockAlign;      // bytes of one sample frame (all channels)
    uint16_t wBitsPerSample;
    uint16_t cbSize;  // 0: no extra bytes
};
#pragma pack(pop)

// What a connection carries: MEDIATYPE_Audio / MEDIASUBTYPE_PCM with its wave format.
struct MediaType {
    GUID majorType;
    GUID subType;
    WAVEFORMATEX format;
};

enum PIN_DIRECTION : int32_t { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };

enum FILTER_STATE : int32_t { State_Stopped = 0, State_Paused = 1, State_Running = 2 };

struct IFilterGraph;
struct IBaseFilter;

// QueryFilterInfo's answer: the filter's name in its graph and the graph, with a reference the
// caller gives back (null when the filter is in no graph).
struct FILTER_INFO {
    char16_t achName[128];
    IFilterGraph* pGraph;
};

// QueryPinInfo's answer: the owning filter, with a reference the caller gives back.
struct PIN_INFO {
    IBaseFilter* pFilter;
    PIN_DIRECTION dir;
    char16_t achName[128];
};

// ---------------------------------------------------------------------------------------------
// Interfaces (virtual functions in slot order)

struct IUnknown {
    virtual HRESULT QueryInterface(const GUID* iid, void** out) = 0;
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;
};

struct IClassFactory : IUnknown {
    // A new object of the factory's class, asked for interface `iid`. `outer` must be null.
    virtual HRESULT CreateInstance(IUnknown* outer, const GUID* iid, void** out) = 0;
};

struct IEnumPins;

// State control of one filter; the graph manager drives it.
struct IMediaFilter : IUnknown {
    virtual HRESULT Stop() = 0;
    virtual HRESULT Pause() = 0;
    virtual HRESULT Run() = 0;
    // The state, waiting up to `timeoutMs` for a change in progress; GRAPH_S_STATE_INTERMEDIATE
    // when it has not completed.
    virtual HRESULT GetState(uint32_t timeoutMs, FILTER_STATE* state) = 0;
};

struct IBaseFilter : IMediaFilter {
    virtual HRESULT EnumPins(IEnumPins** out) = 0;
    virtual HRESULT QueryFilterInfo(FILTER_INFO* info) = 0;
    // Called by the graph manager when the filter joins (graph non-null, no reference taken: the
    // graph holds the filter) or leaves (null) a graph.
    virtual HRESULT JoinFilterGraph(IFilterGraph* graph, const char16_t* name) = 0;
};

struct IPin : IUnknown {
    // Output pin: connects to `receivePin`, trying `type` only when given, else each of its own
    // types in turn through the input pin's ReceiveConnection.
    virtual HRESULT Connect(IPin* receivePin, const MediaType* type) = 0;
    // Input pin: accepts a connection from `connector` with `type`, or refuses it.
    virtual HRESULT ReceiveConnection(IPin* connector, const MediaType* type) = 0;
    // Forgets this side of the connection (S_FALSE when not connected).
    virtual HRESULT Disconnect() = 0;
    virtual HRESULT ConnectedTo(IPin** pin) = 0;  // GRAPH_E_NOT_CONNECTED when not connected
    virtual HRESULT ConnectionMediaType(MediaType* type) = 0;
    virtual HRESULT QueryPinInfo(PIN_INFO* info) = 0;
    virtual HRESULT QueryDirection(PIN_DIRECTION* direction) = 0;
    virtual HRESULT QueryAccept(const MediaType* type) = 0;  // S_OK or S_FALSE
    // The pin's preferred types, from index 0; S_FALSE past the last.
    virtual HRESULT GetMediaType(uint32_t index, MediaType* type) = 0;
    // Input pin: no more data comes until the next stop.
    virtual HRESULT EndOfStream() = 0;
};

// Offered by an input pin: the connected output pin hands over its data here.
struct ISampleInput : IUnknown {
    // `size` bytes of PCM to be played from stream time `start` to `stop`. The bytes are read
    // during the call only. May block while the receiver's buffer is full; returns at once when the
    // filter is stopped (GRAPH_E_WRONG_STATE, data dropped).
    virtual HRESULT Receive(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) = 0;
};

struct IEnumPins : IUnknown {
    // Up to `count` pins in the filter's order; `fetched` tells how many (S_FALSE when fewer).
    virtual HRESULT Next(uint32_t count, IPin** pins, uint32_t* fetched) = 0;
    virtual HRESULT Reset() = 0;
};

struct IEnumFilters : IUnknown {
    virtual HRESULT Next(uint32_t count, IBaseFilter** filters, uint32_t* fetched) = 0;
    virtual HRESULT Reset() = 0;
};

struct IFilterGraph : IUnknown {
    // Adds the filter under `name` (null or empty: no name); GRAPH_E_DUPLICATE_NAME when another
    // filter of the graph has that name.
    virtual HRESULT AddFilter(IBaseFilter* filter, const char16_t* name) = 0;
    virtual HRESULT RemoveFilter(IBaseFilter* filter) = 0;
    virtual HRESULT EnumFilters(IEnumFilters** out) = 0;
    // Connects two pins of filters in this graph with exactly `type` (null: negotiated).
    virtual HRESULT ConnectDirect(IPin* output, IPin* input, const MediaType* type) = 0;
    virtual HRESULT Disconnect(IPin* pin) = 0;
};

struct IGraphBuilder : IFilterGraph {
    // Connects an output pin to an input pin with a type both accept.
    virtual HRESULT Connect(IPin* output, IPin* input) = 0;
};

struct IMediaControl : IUnknown {
    virtual HRESULT Run() = 0;
    virtual HRESULT Pause() = 0;
    virtual HRESULT Stop() = 0;
    // The graph's state; waits up to `timeoutMs` for its filters to finish a change.
    virtual HRESULT GetState(int32_t timeoutMs, FILTER_STATE* state) = 0;
};

// Volume of an audio renderer in hundredths of a decibel: 0 full, -10000 silent (gain 10^(v/2000)).
struct IBasicAudio : IUnknown {
    virtual HRESULT put_Volume(int32_t volume) = 0;  // E_INVALIDARG outside -10000..0
    virtual HRESULT get_Volume(int32_t* volume) = 0;
};

// The entry point of a filter module.
typedef HRESULT (*DllGetClassObjectFn)(const GUID* clsid, const GUID* iid, void** out);

// ---------------------------------------------------------------------------------------------
// Layout checks

static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX layout");
static_assert(offsetof(WAVEFORMATEX, nChannels) == 2, "WAVEFORMATEX layout");
static_assert(offsetof(WAVEFORMATEX, nSamplesPerSec) == 4, "WAVEFORMATEX layout");
static_assert(offsetof(WAVEFORMATEX, nAvgBytesPerSec) == 8, "WAVEFORMATEX layout");
static_assert(offsetof(WAVEFORMATEX, nBlockAlign) == 12, "WAVEFORMATEX layout");
static_assert(offsetof(WAVEFORMATEX, wBitsPerSample) == 14, "WAVEFORMATEX layout");
static_assert(offsetof(WAVEFORMATEX, cbSize) == 16, "WAVEFORMATEX layout");
static_assert(offsetof(MediaType, subType) == 16, "MediaType layout");
static_assert(offsetof(MediaType, format) == 32, "MediaType layout");
static_assert(sizeof(MediaType) == 52, "MediaType layout");

#endif  // VEXEL_MEDIA_GRAPH_H
