// The module's one export: the class factory of the PCM push source filter.
#include "com_base.h"
#include "feed_filter.h"

namespace audiofeed {

namespace {

class FeedFilterFactory final : public vexel::ComObject<IClassFactory> {
public:
    HRESULT QueryInterface(const GUID* iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        if (iid == nullptr) return E_POINTER;
        if (*iid == IID_IUnknown || *iid == IID_IClassFactory) return vexel::ShareInterface<IClassFactory>(this, out);
        return E_NOINTERFACE;
    }

    HRESULT CreateInstance(IUnknown* outer, const GUID* iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        return FeedFilter::Create(iid, out);
    }
};

}  // namespace

}  // namespace audiofeed

extern "C" __attribute__((visibility("default"))) HRESULT DllGetClassObject(const GUID* clsid, const GUID* iid,
                                                                           void** out) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    if (clsid == nullptr || iid == nullptr) return E_POINTER;
    if (*clsid != CLSID_PcmFeedFilter) return CLASS_E_CLASSNOTAVAILABLE;
    try {
        return vexel::QueryNewObject(new audiofeed::FeedFilterFactory, iid, out);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}
