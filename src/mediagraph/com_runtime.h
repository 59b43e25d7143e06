// The in-process object runtime of the media graph: object creation by class identifier and the
// texts of the result codes. The runtime knows two classes of its own, the filter graph manager
// (CLSID_FilterGraph) and the audio renderer (CLSID_AudioRenderer); further class factories can be
// registered for the life of the process or until revoked, and take precedence over the built-in
// classes.
//
// Threads: every function may be called from any thread.
#pragma once

#include <cstdint>

#include "vexel/media_graph.h"

namespace vexel {

inline constexpr uint32_t CLSCTX_INPROC_SERVER = 1;

// Makes an object of class `clsid` and asks it for `iid`. `outer` must be null (no aggregation);
// `context` must include CLSCTX_INPROC_SERVER. REGDB_E_CLASSNOTREG for an unknown class.
HRESULT CoCreateInstance(const GUID* clsid, IUnknown* outer, uint32_t context, const GUID* iid,
                         void** out);

// Registers `factory` (an IClassFactory, which gets a reference) for `clsid`; `cookie` names the
// registration for RevokeClassObjectForTesting.
HRESULT RegisterClassObjectForTesting(const GUID* clsid, IUnknown* factory, uint32_t* cookie);
HRESULT RevokeClassObjectForTesting(uint32_t cookie);

// Writes the text for `hr` into `buffer` (at most `length` characters, terminator included) and
// returns the characters written without the terminator; 0, with an empty text, for an unknown
// code.
uint32_t AMGetErrorTextW(HRESULT hr, char16_t* buffer, uint32_t length);

}  // namespace vexel
