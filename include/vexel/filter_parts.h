// OnePinFilter and OwnedPin: what the one-pin filters of the library and its modules (the audio
// renderer, the PCM feed filter) have in common. The filter keeps its state, its graph and name
// there, under one lock; its pin lives inside it and counts its references on the filter.
//
// Threads: any. `lock_` guards the state, the graph membership and whatever the derived filter
// adds under it; the pin's fixed answers need no lock.
//
// Compiles as C++17 and later.
#ifndef VEXEL_FILTER_PARTS_H
#define VEXEL_FILTER_PARTS_H

#include <algorithm>
#include <iterator>
#include <mutex>
#include <string>
#include <string_view>

#include "vexel/com_object.h"
#include "vexel/counted_ref.h"
#include "vexel/enumerator.h"
#include "vexel/media_graph.h"

namespace vexel {

// Copies `text` into a name field of a media-graph record, cut to fit with its terminator.
template <size_t N>
void CopyName(char16_t (&field)[N], std::u16string_view text) {
    const size_t n = std::min(text.size(), N - 1);
    std::copy_n(text.data(), n, field);
    field[n] = u'\0';
}

template <class... Interfaces>
class OnePinFilter : public ComObject<IBaseFilter, Interfaces...> {
public:
    HRESULT GetState(uint32_t, FILTER_STATE* state) override {
        if (state == nullptr) return E_POINTER;
        std::lock_guard<std::mutex> guard(lock_);
        *state = state_;
        return S_OK;
    }

    HRESULT EnumPins(IEnumPins** out) override {
        try {
            return PinEnumerator::Create({CountedRef<IPin>(&Pin())}, out);
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    // The name and the graph, with a reference for the caller.
    HRESULT QueryFilterInfo(FILTER_INFO* info) override {
        if (info == nullptr) return E_POINTER;
        std::lock_guard<std::mutex> guard(lock_);
        CopyName(info->achName, name_);
        info->pGraph = graph_;
        if (graph_ != nullptr) graph_->AddRef();
        return S_OK;
    }

    HRESULT JoinFilterGraph(IFilterGraph* graph, const char16_t* name) override {
        std::lock_guard<std::mutex> guard(lock_);
        try {
            name_ = name != nullptr ? std::u16string(name) : std::u16string();
        } catch (...) {
            return E_OUTOFMEMORY;
        }
        graph_ = graph;
        return S_OK;
    }

protected:
    virtual IPin& Pin() = 0;

    mutable std::mutex lock_;  // state_, the membership, and what the derived filter says
    FILTER_STATE state_ = State_Stopped;

private:
    IFilterGraph* graph_ = nullptr;  // no reference: the graph holds the filter
    std::u16string name_;
};

// The fixed part of a pin that lives inside `owner`: counting, its description and direction.
template <PIN_DIRECTION Direction>
class OwnedPin : public IPin {
public:
    OwnedPin(IBaseFilter& owner, const char16_t* name) : owner_(owner), name_(name) {}

    uint32_t AddRef() override { return owner_.AddRef(); }
    uint32_t Release() override { return owner_.Release(); }

    HRESULT QueryPinInfo(PIN_INFO* info) override {
        if (info == nullptr) return E_POINTER;
        owner_.AddRef();
        info->pFilter = &owner_;
        info->dir = Direction;
        CopyName(info->achName, name_);
        return S_OK;
    }

    HRESULT QueryDirection(PIN_DIRECTION* direction) override {
        if (direction == nullptr) return E_POINTER;
        *direction = Direction;
        return S_OK;
    }

protected:
    // ConnectedTo's answer for a pin connected to `peer` (null: not connected).
    static HRESULT AnswerPeer(IPin* peer, IPin** out) {
        if (out == nullptr) return E_POINTER;
        *out = peer;
        if (peer == nullptr) return GRAPH_E_NOT_CONNECTED;
        peer->AddRef();
        return S_OK;
    }

private:
    IBaseFilter& owner_;
    const char16_t* const name_;
};

}  // namespace vexel

#endif  // VEXEL_FILTER_PARTS_H
