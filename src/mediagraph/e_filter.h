// EFilter: a wrapper over one filter of the media-graph runtime and the graph it was added to.
// Creation adds the filter to a graph; pins are found by direction and index; the owning graph is
// looked up once and cached.
//
// Pin search and the graph lookup always throw (ComException*) on a failure of the runtime,
// whatever the caller's FailMode; a pin that does not exist, or a filter in no graph, is an empty
// result.
//
// Threads: one thread at a time per EFilter.
#pragma once

#include <cstdint>

#include "common/wide_string.h"
#include "mediagraph/check_hresult.h"
#include "mediagraph/e_graph_builder.h"
#include "platform/module.h"
#include "vexel/counted_ref.h"
#include "vexel/media_graph.h"

namespace vexel {

class EFilter {
public:
    EFilter() = default;
    EFilter(const EFilter&) = delete;
    virtual ~EFilter();  // gives back the filter, then the cached graph
    // Shares the other's filter and copies its name; the cached graph stays as it is.
    virtual EFilter& operator=(const EFilter& other);
    // Adopts `filter` (a further reference) and adds it to `graph` under `name`, or under Name()
    // when `name` is empty. False for a null filter or when the graph refuses it.
    virtual bool Attach(IBaseFilter* filter, const EGraphBuilder& graph, const WideString& name);
    virtual WideString Name() const { return _name; }

    // Creates the filter of class `clsid` through the runtime and adds it to `graph`.
    bool CoCreateInstance(const EGraphBuilder& graph, const GUID& clsid, const WideString& name,
                          FailMode mode);
    // Creates the filter through the DllGetClassObject export of `module` and adds it to `graph`.
    // False while the module is not loaded or lacks that export. The module stays loaded.
    bool FilterGetClassObject(const EGraphBuilder& graph, const SiblingModule& module,
                              const GUID& clsid, const WideString& name, FailMode mode);

    // Pin `index` among the pins of `direction`, or empty.
    CountedRef<IPin> GetPin(PIN_DIRECTION direction, uint32_t index) const;
    CountedRef<IPin> GetInputPin(uint32_t index) const { return GetPin(PINDIR_INPUT, index); }
    CountedRef<IPin> GetOutputPin(uint32_t index) const { return GetPin(PINDIR_OUTPUT, index); }

    // The graph the filter belongs to, or an empty wrapper.
    EGraphBuilder Graph();
    // Connects output pin `outIndex` of this filter to input pin `inIndex` of `downstream`
    // through this filter's graph.
    bool ConnectTo(EFilter& downstream, uint32_t outIndex, uint32_t inIndex, FailMode mode);

    IBaseFilter* Filter() const { return _filter.get(); }

private:
    friend class EGraphBuilder;

    // Names the filter and adds it to the graph; true when the graph took it.
    bool AddTo(const EGraphBuilder& graph, const WideString& name);

    CountedRef<IBaseFilter> _filter;
    CountedRef<IGraphBuilder> _owner_graph;
    WideString _name;
};

}  // namespace vexel
