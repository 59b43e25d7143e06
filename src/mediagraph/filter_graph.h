// FilterGraph: the runtime's filter graph manager (CLSID_FilterGraph). It holds its filters with
// one reference each, connects their pins, and moves them all through stop, pause and run together.
// Releasing the last reference stops the filters, takes their pins apart and lets them go.
//
// Threads: any; one lock serialises the graph's operations, so the graph may be run from one thread
// and paused or stopped from another. Filters are called with that lock held and must not call back
// into the graph.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "vexel/com_object.h"
#include "vexel/counted_ref.h"
#include "vexel/media_graph.h"

namespace vexel {

class FilterGraph final : public ComObject<IGraphBuilder, IMediaControl> {
public:
    FilterGraph() = default;  // made through Create
    // A new graph manager asked for `iid`.
    static HRESULT Create(const GUID* iid, void** out);

    HRESULT QueryInterface(const GUID* iid, void** out) override;

    // IFilterGraph, IGraphBuilder
    HRESULT AddFilter(IBaseFilter* filter, const char16_t* name) override;
    HRESULT RemoveFilter(IBaseFilter* filter) override;
    HRESULT EnumFilters(IEnumFilters** out) override;
    HRESULT ConnectDirect(IPin* output, IPin* input, const MediaType* type) override;
    HRESULT Disconnect(IPin* pin) override;
    HRESULT Connect(IPin* output, IPin* input) override;

    // IMediaControl
    HRESULT Run() override;
    HRESULT Pause() override;
    HRESULT Stop() override;
    HRESULT GetState(int32_t timeoutMs, FILTER_STATE* state) override;

private:
    struct Entry {
        CountedRef<IBaseFilter> filter;
        std::u16string name;
    };

    ~FilterGraph() override;

    // Checks the two pins and their filters for a connection; S_OK when it may be made.
    HRESULT CheckConnection(IPin* output, IPin* input) const;
    bool Holds(IBaseFilter* filter) const;
    HRESULT ChangeState(FILTER_STATE target);

    mutable std::mutex lock_;  // everything below
    std::vector<Entry> filters_;
    FILTER_STATE state_ = State_Stopped;
};

// Disconnects both ends of every connected pin of `filter`.
void DisconnectPins(IBaseFilter* filter);

}  // namespace vexel
