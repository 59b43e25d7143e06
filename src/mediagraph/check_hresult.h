// CheckHResult and ComException: how the media-graph wrappers answer a failed result code, either
// as a false result or as a ComException thrown as a pointer (the catcher deletes it).
//
// Threads: any.
#pragma once

#include <cstdint>

#include "common/wide_string.h"
#include "vexel/media_graph.h"

namespace vexel {

enum FailMode : int32_t {
    FailReturn = 0,  // the operation returns false (or the failed result code)
    FailThrow = 1,   // CheckHResult throws a ComException*
    FailQuiet = 2,   // EGraphBuilder::Connect only: a plain test, without error text
};

struct ComException {
    WideString context;    // the failed step
    WideString errorText;  // the runtime's text for the result code
};

// True when `hr` is a failure. Then, unless `mode` is FailReturn, throws a new ComException with
// `context` and the code's text. Success codes (S_FALSE included) return false at once.
bool CheckHResult(HRESULT hr, const WideString& context, FailMode mode);

// The runtime's text for `hr`, empty when it has none.
WideString ErrorText(HRESULT hr);

// "prefix" + name + " )", the context of a step that names a filter.
WideString FilterContext(const char* prefix, const WideString& name);

}  // namespace vexel
