#include "mediagraph/com_runtime.h"

#include <mutex>
#include <vector>

#include "mediagraph/audio_renderer.h"
#include "mediagraph/filter_graph.h"
#include "vexel/counted_ref.h"

namespace vexel {

namespace {

struct Registration {
    uint32_t cookie;
    GUID clsid;
    CountedRef<IClassFactory> factory;
};

struct Registry {
    std::mutex lock;
    std::vector<Registration> entries;
    uint32_t nextCookie = 1;
};

// Made on first use and kept for the life of the process: loading the library runs no code.
Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

CountedRef<IClassFactory> RegisteredFactory(const GUID& clsid) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    for (auto it = registry.entries.rbegin(); it != registry.entries.rend(); ++it) {
        if (it->clsid == clsid) return it->factory;
    }
    return nullptr;
}

}  // namespace

HRESULT CoCreateInstance(const GUID* clsid, IUnknown* outer, uint32_t context, const GUID* iid,
                         void** out) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    if (clsid == nullptr || iid == nullptr) return E_POINTER;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    if ((context & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;

    if (CountedRef<IClassFactory> factory = RegisteredFactory(*clsid)) {
        return factory->CreateInstance(nullptr, iid, out);
    }
    if (*clsid == CLSID_FilterGraph) return FilterGraph::Create(iid, out);
    if (*clsid == CLSID_AudioRenderer) return AudioRenderer::Create(iid, out);
    return REGDB_E_CLASSNOTREG;
}

HRESULT RegisterClassObjectForTesting(const GUID* clsid, IUnknown* factory, uint32_t* cookie) {
    if (clsid == nullptr || factory == nullptr || cookie == nullptr) return E_POINTER;
    CountedRef<IClassFactory> classFactory;
    const HRESULT hr = classFactory.QueryFrom(factory, IID_IClassFactory);
    if (hr < 0 || !classFactory) return hr < 0 ? hr : E_NOINTERFACE;
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    try {
        registry.entries.push_back({registry.nextCookie, *clsid, classFactory});
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    *cookie = registry.nextCookie++;
    return S_OK;
}

HRESULT RevokeClassObjectForTesting(uint32_t cookie) {
    CountedRef<IClassFactory> revoked;  // released after the lock
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    for (auto it = registry.entries.begin(); it != registry.entries.end(); ++it) {
        if (it->cookie == cookie) {
            revoked = std::move(it->factory);
            registry.entries.erase(it);
            return S_OK;
        }
    }
    return E_INVALIDARG;
}

}  // namespace vexel
