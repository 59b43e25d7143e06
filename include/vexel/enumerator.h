// Enumerator<IEnum, Item>: an IEnumPins or IEnumFilters over a fixed list of counted references,
// taken when the enumerator is made.
//
// Threads: one thread at a time per enumerator; the count is atomic.
//
// Compiles as C++17 and later.
#pragma once

#include <cstddef>
#include <type_traits>
#include <vector>

#include "vexel/com_object.h"
#include "vexel/counted_ref.h"
#include "vexel/media_graph.h"

namespace vexel {

template <class IEnum, class Item>
class Enumerator final : public ComObject<IEnum> {
public:
    // A new enumerator with one reference, answered through `out`.
    static HRESULT Create(std::vector<CountedRef<Item>> items, IEnum** out) {
        return CreateObject<Enumerator>(&EnumIid(), reinterpret_cast<void**>(out),
                                        std::move(items));
    }

    explicit Enumerator(std::vector<CountedRef<Item>> items) : items_(std::move(items)) {}

    HRESULT QueryInterface(const GUID* iid, void** out) override {
        if (const HRESULT hr = CheckQuery(iid, out); hr != S_OK) return hr;
        if (*iid == IID_IUnknown || *iid == EnumIid()) return ShareInterface<IEnum>(this, out);
        return E_NOINTERFACE;
    }

    HRESULT Next(uint32_t count, Item** items, uint32_t* fetched) override {
        if (items == nullptr) return E_POINTER;
        uint32_t n = 0;
        for (; n < count && next_ < items_.size(); ++n, ++next_) {
            items_[next_]->AddRef();
            items[n] = items_[next_].get();
        }
        if (fetched != nullptr) *fetched = n;
        return n == count ? S_OK : S_FALSE;
    }

    HRESULT Reset() override {
        next_ = 0;
        return S_OK;
    }

private:
    static const GUID& EnumIid() {
        if constexpr (std::is_same_v<IEnum, IEnumPins>) {
            return IID_IEnumPins;
        } else {
            return IID_IEnumFilters;
        }
    }

    std::vector<CountedRef<Item>> items_;
    size_t next_ = 0;
};

using PinEnumerator = Enumerator<IEnumPins, IPin>;
using FilterEnumerator = Enumerator<IEnumFilters, IBaseFilter>;

}  // namespace vexel
