#include "mediagraph/e_filter.h"

#include "mediagraph/com_runtime.h"

namespace vexel {

EFilter::~EFilter() {
    _filter.reset();
    _owner_graph.reset();
}

EFilter& EFilter::operator=(const EFilter& other) {
    _filter = other._filter;
    _name = other._name;
    return *this;
}

bool EFilter::AddTo(const EGraphBuilder& graph, const WideString& name) {
    _name = name.empty() ? Name() : name;
    return graph.AddFilterEx(*this, _name) >= 0;
}

bool EFilter::Attach(IBaseFilter* filter, const EGraphBuilder& graph, const WideString& name) {
    _filter.reset();
    _owner_graph.reset();
    if (filter == nullptr) return false;
    _filter = CountedRef<IBaseFilter>(filter);
    return graph.AddFilterEx(*this, name.empty() ? Name() : name) >= 0;
}

bool EFilter::CoCreateInstance(const EGraphBuilder& graph, const GUID& clsid,
                               const WideString& name, FailMode mode) {
    _filter.reset();
    const HRESULT hr =
        vexel::CoCreateInstance(&clsid, nullptr, CLSCTX_INPROC_SERVER, &IID_IBaseFilter,
                                reinterpret_cast<void**>(_filter.put()));
    if (CheckHResult(hr, FilterContext("EFilter::CoCreateInstance( ", name), mode)) return false;
    return AddTo(graph, name);
}

bool EFilter::FilterGetClassObject(const EGraphBuilder& graph, const SiblingModule& module,
                                   const GUID& clsid, const WideString& name, FailMode mode) {
    const auto getClassObject = module.Function<DllGetClassObjectFn>("DllGetClassObject");
    if (getClassObject == nullptr) return false;

    CountedRef<IClassFactory> factory;
    HRESULT hr =
        getClassObject(&clsid, &IID_IClassFactory, reinterpret_cast<void**>(factory.put()));
    if (CheckHResult(hr, FilterContext("EFilter::FilterGetClassObject( ", name), mode))
        return false;
    if (!factory) return false;

    _filter.reset();
    hr =
        factory->CreateInstance(nullptr, &IID_IBaseFilter, reinterpret_cast<void**>(_filter.put()));
    if (CheckHResult(hr, FilterContext("EFilter::CreateInstance( ", name), mode)) return false;
    return AddTo(graph, name);
}

CountedRef<IPin> EFilter::GetPin(PIN_DIRECTION direction, uint32_t index) const {
    if (!_filter) return nullptr;
    CountedRef<IEnumPins> pins;
    CheckHResult(_filter->EnumPins(pins.put()), u"EnumPins", FailThrow);
    if (!pins) return nullptr;
    uint32_t count = 0;
    for (;;) {
        IPin* raw = nullptr;
        uint32_t fetched = 0;
        CheckHResult(pins->Next(1, &raw, &fetched), u"EnumPins->Next()", FailThrow);
        CountedRef<IPin> pin = CountedRef<IPin>::Adopt(fetched == 1 ? raw : nullptr);
        if (!pin) return nullptr;
        PIN_DIRECTION pinDirection = PINDIR_INPUT;
        CheckHResult(pin->QueryDirection(&pinDirection), u"QueryDirection", FailThrow);
        if (pinDirection != direction) continue;  // the other direction does not count
        if (count == index) return pin;
        ++count;
    }
}

EGraphBuilder EFilter::Graph() {
    if (!_filter) return EGraphBuilder();
    if (!_owner_graph) {
        FILTER_INFO info{};
        CheckHResult(_filter->QueryFilterInfo(&info), u"EFilter::Graph", FailThrow);
        if (info.pGraph == nullptr) return EGraphBuilder();
        const HRESULT hr = _owner_graph.QueryFrom(info.pGraph, IID_IGraphBuilder);
        info.pGraph->Release();
        CheckHResult(hr, u"QI IGraphBuilder", FailThrow);
    }
    return EGraphBuilder(_owner_graph.get());
}

bool EFilter::ConnectTo(EFilter& downstream, uint32_t outIndex, uint32_t inIndex, FailMode mode) {
    const EGraphBuilder graph = Graph();
    return graph.ConnectFilters(*this, downstream, outIndex, inIndex, mode);
}

}  // namespace vexel
