#include "mediagraph/filter_graph.h"

#include "vexel/enumerator.h"

namespace vexel {

namespace {

// The filter that owns `pin`, or null.
CountedRef<IBaseFilter> OwnerOf(IPin* pin) {
    PIN_INFO info{};
    if (pin->QueryPinInfo(&info) < 0) return nullptr;
    return CountedRef<IBaseFilter>::Adopt(info.pFilter);
}

HRESULT DirectionOf(IPin* pin, PIN_DIRECTION* direction) { return pin->QueryDirection(direction); }

}  // namespace

void DisconnectPins(IBaseFilter* filter) {
    CountedRef<IEnumPins> pins;
    if (filter == nullptr || filter->EnumPins(pins.put()) < 0 || !pins) return;
    for (;;) {
        IPin* raw = nullptr;
        uint32_t fetched = 0;
        if (pins->Next(1, &raw, &fetched) != S_OK || fetched != 1) break;
        CountedRef<IPin> pin = CountedRef<IPin>::Adopt(raw);
        CountedRef<IPin> peer;
        if (pin->ConnectedTo(peer.put()) >= 0 && peer) peer->Disconnect();
        pin->Disconnect();
    }
}

HRESULT FilterGraph::Create(const GUID* iid, void** out) {
    return CreateObject<FilterGraph>(iid, out);
}

FilterGraph::~FilterGraph() {
    // No other reference exists: the lock is not needed.
    for (Entry& entry : filters_) entry.filter->Stop();
    for (Entry& entry : filters_) DisconnectPins(entry.filter.get());
    for (Entry& entry : filters_) entry.filter->JoinFilterGraph(nullptr, nullptr);
}

HRESULT FilterGraph::QueryInterface(const GUID* iid, void** out) {
    if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
    if (*iid == IID_IUnknown || *iid == IID_IFilterGraph || *iid == IID_IGraphBuilder) {
        return ShareInterface<IGraphBuilder>(this, out);
    }
    if (*iid == IID_IMediaControl) return ShareInterface<IMediaControl>(this, out);
    return E_NOINTERFACE;
}

bool FilterGraph::Holds(IBaseFilter* filter) const {
    for (const Entry& entry : filters_) {
        if (entry.filter.get() == filter) return true;
    }
    return false;
}

HRESULT FilterGraph::AddFilter(IBaseFilter* filter, const char16_t* name) {
    if (filter == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(lock_);
    if (state_ != State_Stopped) return GRAPH_E_NOT_STOPPED;
    if (Holds(filter)) return E_INVALIDARG;
    try {
        std::u16string filterName = name != nullptr ? std::u16string(name) : std::u16string();
        if (filterName.size() >= 128) filterName.resize(127);  // what FILTER_INFO holds
        if (!filterName.empty()) {
            for (const Entry& entry : filters_) {
                if (entry.name == filterName) return GRAPH_E_DUPLICATE_NAME;
            }
        }
        filters_.push_back({CountedRef<IBaseFilter>(filter), filterName});
        const HRESULT hr =
            filter->JoinFilterGraph(static_cast<IGraphBuilder*>(this), filterName.c_str());
        if (hr < 0) filters_.pop_back();
        return hr < 0 ? hr : S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT FilterGraph::RemoveFilter(IBaseFilter* filter) {
    if (filter == nullptr) return E_POINTER;
    CountedRef<IBaseFilter> removed;  // released after the lock
    std::lock_guard<std::mutex> guard(lock_);
    for (auto it = filters_.begin(); it != filters_.end(); ++it) {
        if (it->filter.get() != filter) continue;
        filter->Stop();
        DisconnectPins(filter);
        filter->JoinFilterGraph(nullptr, nullptr);
        removed = std::move(it->filter);
        filters_.erase(it);
        return S_OK;
    }
    return GRAPH_E_NOT_IN_GRAPH;
}

HRESULT FilterGraph::EnumFilters(IEnumFilters** out) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    try {
        std::vector<CountedRef<IBaseFilter>> snapshot;
        {
            std::lock_guard<std::mutex> guard(lock_);
            for (const Entry& entry : filters_) snapshot.push_back(entry.filter);
        }
        return FilterEnumerator::Create(std::move(snapshot), out);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT FilterGraph::CheckConnection(IPin* output, IPin* input) const {
    if (output == nullptr || input == nullptr) return E_POINTER;
    PIN_DIRECTION outDirection = PINDIR_INPUT, inDirection = PINDIR_OUTPUT;
    HRESULT hr = DirectionOf(output, &outDirection);
    if (hr < 0) return hr;
    hr = DirectionOf(input, &inDirection);
    if (hr < 0) return hr;
    if (outDirection != PINDIR_OUTPUT || inDirection != PINDIR_INPUT)
        return GRAPH_E_INVALID_DIRECTION;
    if (!Holds(OwnerOf(output).get()) || !Holds(OwnerOf(input).get())) return GRAPH_E_NOT_IN_GRAPH;
    if (state_ != State_Stopped) return GRAPH_E_NOT_STOPPED;
    return S_OK;
}

HRESULT FilterGraph::ConnectDirect(IPin* output, IPin* input, const MediaType* type) {
    std::lock_guard<std::mutex> guard(lock_);
    const HRESULT hr = CheckConnection(output, input);
    if (hr < 0) return hr;
    return output->Connect(input, type);
}

HRESULT FilterGraph::Connect(IPin* output, IPin* input) {
    return ConnectDirect(output, input, nullptr);
}

HRESULT FilterGraph::Disconnect(IPin* pin) {
    if (pin == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(lock_);
    return pin->Disconnect();
}

HRESULT FilterGraph::ChangeState(FILTER_STATE target) {
    std::lock_guard<std::mutex> guard(lock_);
    HRESULT result = S_OK;
    for (Entry& entry : filters_) {
        IBaseFilter* filter = entry.filter.get();
        const HRESULT hr = target == State_Running  ? filter->Run()
                           : target == State_Paused ? filter->Pause()
                                                    : filter->Stop();
        if (hr < 0 && result >= 0) result = hr;
    }
    state_ = target;
    return result;
}

HRESULT FilterGraph::Run() { return ChangeState(State_Running); }
HRESULT FilterGraph::Pause() { return ChangeState(State_Paused); }
HRESULT FilterGraph::Stop() { return ChangeState(State_Stopped); }

HRESULT FilterGraph::GetState(int32_t timeoutMs, FILTER_STATE* state) {
    if (state == nullptr) return E_POINTER;
    std::vector<CountedRef<IBaseFilter>> snapshot;
    FILTER_STATE target;
    try {
        std::lock_guard<std::mutex> guard(lock_);
        target = state_;
        for (const Entry& entry : filters_) snapshot.push_back(entry.filter);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    // A filter still on its way is reported with the state it is in.
    const uint32_t timeout = timeoutMs < 0 ? 0 : static_cast<uint32_t>(timeoutMs);
    for (const CountedRef<IBaseFilter>& filter : snapshot) {
        FILTER_STATE reached = target;
        const HRESULT hr = filter->GetState(timeout, &reached);
        if (hr < 0) return hr;
        if (reached != target || hr == GRAPH_S_STATE_INTERMEDIATE) {
            *state = reached;
            return GRAPH_S_STATE_INTERMEDIATE;
        }
    }
    *state = target;
    return S_OK;
}

}  // namespace vexel
