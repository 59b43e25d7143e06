// FeedFilter: the PCM push source filter. One output pin offers the format given to SetFormat; the
// player pushes PCM through IPcmFeed::Deliver, which hands it on, stamps moved onto the running
// stream (StampRebase), to the connected input pin. The input pin (the audio renderer) copies it
// and holds about two seconds; beyond that Deliver blocks until the sound plays on, and it returns
// at once when the graph stops. While stopped, delivered data is dropped.
//
// Threads: Deliver and EndOfStream on the delivery thread; state changes from the graph's callers;
// `lock_` guards the filter's fields and is never held while calling the input pin.
#pragma once

#include <mutex>
#include <string>

#include "com_base.h"
#include "stamp_rebase.h"
#include "vexel/pcm_feed.h"

namespace audiofeed {

class FeedFilter final : public vexel::ComObject<IBaseFilter, IPcmFeed> {
public:
    static HRESULT Create(const GUID* iid, void** out);

    HRESULT QueryInterface(const GUID* iid, void** out) override;

    // IMediaFilter, IBaseFilter
    HRESULT Stop() override;
    HRESULT Pause() override;
    HRESULT Run() override;
    HRESULT GetState(uint32_t timeoutMs, FILTER_STATE* state) override;
    HRESULT EnumPins(IEnumPins** out) override;
    HRESULT QueryFilterInfo(FILTER_INFO* info) override;
    HRESULT JoinFilterGraph(IFilterGraph* graph, const char16_t* name) override;

    // IPcmFeed
    HRESULT SetFormat(const WAVEFORMATEX* format) override;
    HRESULT EndOfStream() override;
    HRESULT SetStartTime(int64_t position) override;
    HRESULT Deliver(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) override;

private:
    // The output pin lives inside the filter and counts its references on the filter.
    class OutputPin final : public IPin {
    public:
        explicit OutputPin(FeedFilter& owner) : owner_(owner) {}
        HRESULT QueryInterface(const GUID* iid, void** out) override;
        uint32_t AddRef() override { return owner_.AddRef(); }
        uint32_t Release() override { return owner_.Release(); }

        HRESULT Connect(IPin* receivePin, const MediaType* type) override;
        HRESULT ReceiveConnection(IPin* connector, const MediaType* type) override;
        HRESULT Disconnect() override;
        HRESULT ConnectedTo(IPin** pin) override;
        HRESULT ConnectionMediaType(MediaType* type) override;
        HRESULT QueryPinInfo(PIN_INFO* info) override;
        HRESULT QueryDirection(PIN_DIRECTION* direction) override;
        HRESULT QueryAccept(const MediaType* type) override;
        HRESULT GetMediaType(uint32_t index, MediaType* type) override;
        HRESULT EndOfStream() override;

    private:
        FeedFilter& owner_;
    };

    FeedFilter() = default;
    ~FeedFilter() override = default;

    HRESULT Connect(IPin* receivePin, const MediaType* type);
    HRESULT DisconnectOutput();
    MediaType OfferedType() const;  // under lock_, with a format

    OutputPin pin_{*this};

    mutable std::mutex lock_;  // everything below
    FILTER_STATE state_ = State_Stopped;
    IFilterGraph* graph_ = nullptr;  // no reference: the graph holds the filter
    std::u16string name_;
    bool hasFormat_ = false;
    WAVEFORMATEX format_{};
    Ref<IPin> peer_;
    Ref<ISampleInput> input_;
    StampRebase stamps_;
    bool startTimeSet_ = false;  // since the last run
};

}  // namespace audiofeed
