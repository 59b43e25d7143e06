// EFilterGraph and EGraphBuilder: wrappers over one filter graph of the media-graph runtime. An
// EGraphBuilder holds the graph twice, as IGraphBuilder and as IFilterGraph; it is empty until
// CoCreateInstance makes a graph manager, and copies share the graph through counted references.
//
// Threads: one wrapper object is used by one thread at a time; distinct wrappers of the same graph
// may run, pause and stop it from different threads (the graph serialises those calls).
#pragma once

#include <cstdint>

#include "mediagraph/check_hresult.h"
#include "vexel/counted_ref.h"
#include "vexel/media_graph.h"

namespace vexel {

class EFilter;

class EFilterGraph {
public:
    // The graph interface the graph operations enumerate.
    virtual IFilterGraph* GraphInterface() const { return _filter_graph.get(); }

protected:
    EFilterGraph() = default;
    EFilterGraph(const EFilterGraph&) = default;
    EFilterGraph& operator=(const EFilterGraph&) = default;
    ~EFilterGraph() = default;

    CountedRef<IFilterGraph> _filter_graph;
};

class EGraphBuilder : public EFilterGraph {
public:
    EGraphBuilder() = default;
    // Holds `graph` (a further reference in each of the two members); empty for null.
    explicit EGraphBuilder(IGraphBuilder* graph);

    IFilterGraph* GraphInterface() const override { return _builder.get(); }

    // Makes the filter graph manager (CLSID_FilterGraph). False, or a throw, on failure.
    bool CoCreateInstance(FailMode mode);
    // Adds the filter under `name`, or its own name when `name` is empty; the runtime's result.
    HRESULT AddFilterEx(const EFilter& filter, const WideString& name) const;
    // Connects an output pin to an input pin (empty pins are passed on as null). FailQuiet tests
    // the result only; FailReturn also keeps any exception of the graph inside.
    bool Connect(const CountedRef<IPin>& output, const CountedRef<IPin>& input,
                 FailMode mode) const;
    // Output pin `outIndex` of `upstream` to input pin `inIndex` of `downstream`.
    bool ConnectFilters(EFilter& upstream, EFilter& downstream, uint32_t outIndex, uint32_t inIndex,
                        FailMode mode) const;
    bool HasFilters() const;

    // S_FALSE without calling anything when the graph holds no filter. Run also waits (up to a
    // second) until the graph reports State_Running; GRAPH_E_TIMEOUT when it does not.
    HRESULT Run() const;
    HRESULT Pause() const;
    HRESULT Stop() const;

private:
    // The graph's IMediaControl, and the result of asking for it.
    HRESULT Control(CountedRef<IMediaControl>& control) const;

    CountedRef<IGraphBuilder> _builder;
};

}  // namespace vexel
