#include "mediagraph/e_graph_builder.h"

#include <cstdint>

#include "mediagraph/com_runtime.h"
#include "mediagraph/e_filter.h"

namespace vexel {

namespace {

// How long a filter may take to reach the running state.
constexpr int32_t kRunWaitMs = 1000;

}  // namespace

EGraphBuilder::EGraphBuilder(IGraphBuilder* graph) : _builder(graph) {
    _filter_graph = CountedRef<IFilterGraph>(graph);
}

bool EGraphBuilder::CoCreateInstance(FailMode mode) {
    _builder.reset();
    const HRESULT hr =
        vexel::CoCreateInstance(&CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER,
                                &IID_IGraphBuilder, reinterpret_cast<void**>(_builder.put()));
    if (CheckHResult(hr, u"EGraphBuilder::CoCreateInstance", mode)) return false;
    _filter_graph = CountedRef<IFilterGraph>(_builder.get());
    return true;
}

HRESULT EGraphBuilder::AddFilterEx(const EFilter& filter, const WideString& name) const {
    if (!_builder) return E_UNEXPECTED;
    const WideString& used = name.empty() ? filter._name : name;
    const HRESULT hr = _builder->AddFilter(filter._filter.get(), used.c_str());
    CheckHResult(hr, u"EGraphBuilder::AddFilterEx", FailReturn);
    return hr;
}

bool EGraphBuilder::Connect(const CountedRef<IPin>& output, const CountedRef<IPin>& input,
                            FailMode mode) const {
    if (!_builder) return false;
    if (mode == FailQuiet) return _builder->Connect(output.get(), input.get()) >= 0;
    HRESULT hr;
    if (mode == FailReturn) {
        try {
            hr = _builder->Connect(output.get(), input.get());
        } catch (uint32_t value) {
            hr = static_cast<HRESULT>(value | 0x80000000u);
        } catch (...) {
            hr = E_FAIL;
        }
    } else {
        hr = _builder->Connect(output.get(), input.get());
    }
    return !CheckHResult(hr, u"IGraphBuilder::Connect", mode);
}

bool EGraphBuilder::ConnectFilters(EFilter& upstream, EFilter& downstream, uint32_t outIndex,
                                   uint32_t inIndex, FailMode mode) const {
    const CountedRef<IPin> output = upstream.GetOutputPin(outIndex);
    const CountedRef<IPin> input = downstream.GetInputPin(inIndex);
    return Connect(output, input, mode);
}

bool EGraphBuilder::HasFilters() const {
    if (!_builder) return false;
    CountedRef<IEnumFilters> filters;
    if (GraphInterface()->EnumFilters(filters.put()) < 0 || !filters) return false;
    uint32_t count = 0;
    for (;;) {
        IBaseFilter* filter = nullptr;
        uint32_t fetched = 0;
        if (filters->Next(1, &filter, &fetched) < 0 || fetched != 1 || filter == nullptr) break;
        filter->Release();
        ++count;
    }
    return count > 0;
}

HRESULT EGraphBuilder::Control(CountedRef<IMediaControl>& control) const {
    const HRESULT hr = control.QueryFrom(_builder.get(), IID_IMediaControl);
    return hr >= 0 && !control ? E_NOINTERFACE : hr;
}

HRESULT EGraphBuilder::Run() const {
    if (!HasFilters()) return S_FALSE;
    CountedRef<IMediaControl> control;
    HRESULT hr = Control(control);
    if (hr < 0) return hr;
    hr = control->Run();
    if (hr < 0) return hr;
    // The graph is running once it says so; a graph that never does is a failed run. A filter
    // still on its way waits in its own GetState, up to the timeout it is given (the library's
    // filters change state at once).
    FILTER_STATE state = State_Stopped;
    control->GetState(kRunWaitMs, &state);
    return state == State_Running ? hr : GRAPH_E_TIMEOUT;
}

HRESULT EGraphBuilder::Pause() const {
    if (!HasFilters()) return S_FALSE;
    CountedRef<IMediaControl> control;
    const HRESULT hr = Control(control);
    return hr < 0 ? hr : control->Pause();
}

HRESULT EGraphBuilder::Stop() const {
    if (!HasFilters()) return S_FALSE;
    CountedRef<IMediaControl> control;
    const HRESULT hr = Control(control);
    return hr < 0 ? hr : control->Stop();
}

}  // namespace vexel
