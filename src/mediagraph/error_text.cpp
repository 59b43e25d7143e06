// Texts of the result codes the media-graph runtime and its filters return.
#include <cstddef>

#include "mediagraph/com_runtime.h"

namespace vexel {

namespace {

struct ErrorText {
    HRESULT hr;
    const char* text;
};

constexpr ErrorText kTexts[] = {
    {S_OK, "The operation succeeded."},
    {S_FALSE, "The operation succeeded and answered false."},
    {E_UNEXPECTED, "An unexpected failure occurred."},
    {E_NOTIMPL, "The operation is not implemented."},
    {E_NOINTERFACE, "The object does not offer the requested interface."},
    {E_POINTER, "A required pointer is null."},
    {E_FAIL, "The operation failed."},
    {E_OUTOFMEMORY, "There is not enough memory to complete the operation."},
    {E_INVALIDARG, "An argument is not valid."},
    {CLASS_E_NOAGGREGATION, "The class cannot be created as part of an aggregate."},
    {CLASS_E_CLASSNOTAVAILABLE, "The module does not provide the requested class."},
    {REGDB_E_CLASSNOTREG, "The class is not registered."},
    {GRAPH_E_ALREADY_CONNECTED, "The pin is already connected."},
    {GRAPH_E_NO_ACCEPTABLE_TYPES, "The pins have no media type in common."},
    {GRAPH_E_INVALID_DIRECTION, "The pins cannot be connected in this direction."},
    {GRAPH_E_NOT_CONNECTED, "The pin is not connected."},
    {GRAPH_E_NOT_STOPPED, "The operation needs the filter to be stopped."},
    {GRAPH_E_WRONG_STATE, "The operation is not allowed in the filter's current state."},
    {GRAPH_E_TYPE_NOT_ACCEPTED, "The pin does not accept this media type."},
    {GRAPH_E_TIMEOUT, "The state change did not complete in time."},
    {GRAPH_E_NOT_IN_GRAPH, "The filter is not in this filter graph."},
    {GRAPH_E_DUPLICATE_NAME, "A filter with this name is already in the filter graph."},
    {GRAPH_S_STATE_INTERMEDIATE, "The state change has not completed yet."},
};

}  // namespace

uint32_t AMGetErrorTextW(HRESULT hr, char16_t* buffer, uint32_t length) {
    if (buffer == nullptr || length == 0) return 0;
    buffer[0] = u'\0';
    for (const ErrorText& entry : kTexts) {
        if (entry.hr != hr) continue;
        uint32_t n = 0;
        for (; entry.text[n] != '\0' && n + 1 < length; ++n) {
            buffer[n] = static_cast<char16_t>(static_cast<unsigned char>(entry.text[n]));
        }
        buffer[n] = u'\0';
        return n;
    }
    return 0;
}

}  // namespace vexel
