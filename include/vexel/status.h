// Status codes: the one list of result codes used by the library, its sibling modules and the
// interfaces between them. 32-bit signed: 0 success, 1 success-false, negative failure. The media
// graph's codes keep their published names; the system's own (in vexel::) are named ERR_, most of
// them of the form 0xA210nnnn.
//
// Compiles as C++17 and later.
#ifndef VEXEL_STATUS_H
#define VEXEL_STATUS_H

#include <cstdint>

typedef int32_t HRESULT;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;  // success with nothing done (an empty view path, say)

// General failures.
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);  // also: reading a file failed
inline constexpr HRESULT E_INVALID_DATA = static_cast<HRESULT>(0x8007000Du);  // corrupt file
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_NOT_READY = static_cast<HRESULT>(0x80070015u);  // busy or not set up
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr HRESULT E_NOT_FOUND = static_cast<HRESULT>(0x80070490u);  // unknown property
inline constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110u);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111u);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154u);

// Media graph and pin failures.
inline constexpr HRESULT GRAPH_E_ALREADY_CONNECTED = static_cast<HRESULT>(0x80040204u);
inline constexpr HRESULT GRAPH_E_NO_ACCEPTABLE_TYPES = static_cast<HRESULT>(0x80040207u);
inline constexpr HRESULT GRAPH_E_INVALID_DIRECTION = static_cast<HRESULT>(0x80040208u);
inline constexpr HRESULT GRAPH_E_NOT_CONNECTED = static_cast<HRESULT>(0x80040209u);
inline constexpr HRESULT GRAPH_E_NOT_STOPPED = static_cast<HRESULT>(0x80040224u);
inline constexpr HRESULT GRAPH_E_WRONG_STATE = static_cast<HRESULT>(0x80040227u);
inline constexpr HRESULT GRAPH_E_TYPE_NOT_ACCEPTED = static_cast<HRESULT>(0x8004022Au);
inline constexpr HRESULT GRAPH_E_TIMEOUT = static_cast<HRESULT>(0x8004022Eu);
inline constexpr HRESULT GRAPH_E_NOT_IN_GRAPH = static_cast<HRESULT>(0x8004025Fu);
inline constexpr HRESULT GRAPH_E_DUPLICATE_NAME = static_cast<HRESULT>(0x8004028Du);
// Success: a state change has not completed within the time asked.
inline constexpr HRESULT GRAPH_S_STATE_INTERMEDIATE = static_cast<HRESULT>(0x00040237u);

// The system's own.
namespace vexel {

inline constexpr HRESULT kOk = S_OK;
inline constexpr HRESULT ERR_NO_STREAM = static_cast<HRESULT>(0xA2100002u);      // no video stream
inline constexpr HRESULT ERR_NULL_ARGUMENT = static_cast<HRESULT>(0xA210000Du);  // pointer is null
inline constexpr HRESULT ERR_WRONG_STATE = static_cast<HRESULT>(0xA210000Fu);  // not in this state
// The engine takes no more samples (also a codec host's answer to a refused push).
inline constexpr HRESULT ERR_SAMPLE_REFUSED = static_cast<HRESULT>(0xA2100010u);
// Interface not offered by a push sink.
inline constexpr HRESULT ERR_NO_INTERFACE = static_cast<HRESULT>(0x80000001u);
// Push result for a malformed sample (no data, wrong media kind) or a failure while delivering it.
inline constexpr HRESULT ERR_SAMPLE_FAULT = E_FAIL;

inline bool Succeeded(HRESULT status) { return status >= 0; }

}  // namespace vexel

#endif  // VEXEL_STATUS_H
