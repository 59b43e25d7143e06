// The module's one export: the class factory of the PCM push source filter.
#include "feed_filter.h"
#include "vexel/com_object.h"

namespace vexel::audiofeed {

namespace {

class FeedFilterFactory final : public ComObject<IClassFactory> {
public:
    HRESULT QueryInterface(const GUID* iid, void** out) override {
        if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
        if (*iid == IID_IUnknown || *iid == IID_IClassFactory)
            return ShareInterface<IClassFactory>(this, out);
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

}  // namespace vexel::audiofeed

extern "C" __attribute__((visibility("default"))) HRESULT DllGetClassObject(const GUID* clsid,
                                                                            const GUID* iid,
                                                                            void** out) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    if (clsid == nullptr || iid == nullptr) return E_POINTER;
    if (*clsid != CLSID_PcmFeedFilter) return CLASS_E_CLASSNOTAVAILABLE;
    return vexel::CreateObject<vexel::audiofeed::FeedFilterFactory>(iid, out);
}
