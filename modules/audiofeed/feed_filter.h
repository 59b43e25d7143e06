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

#include "stamp_rebase.h"
#include "vexel/com_object.h"
#include "vexel/counted_ref.h"
#include "vexel/filter_parts.h"
#include "vexel/pcm_feed.h"

namespace vexel::audiofeed {

class FeedFilter final : public OnePinFilter<IPcmFeed> {
public:
    FeedFilter() = default;  // made through Create
    static HRESULT Create(const GUID* iid, void** out);

    HRESULT QueryInterface(const GUID* iid, void** out) override;

    // IMediaFilter, IBaseFilter
    HRESULT Stop() override;
    HRESULT Pause() override;
    HRESULT Run() override;

    // IPcmFeed
    HRESULT SetFormat(const WAVEFORMATEX* format) override;
    HRESULT EndOfStream() override;
    HRESULT SetStartTime(int64_t position) override;
    HRESULT Deliver(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) override;

private:
    class OutputPin final : public OwnedPin<PINDIR_OUTPUT> {
    public:
        explicit OutputPin(FeedFilter& owner) : OwnedPin(owner, u"Out"), owner_(owner) {}
        HRESULT QueryInterface(const GUID* iid, void** out) override;

        HRESULT Connect(IPin* receivePin, const MediaType* type) override;
        HRESULT ReceiveConnection(IPin* connector, const MediaType* type) override;
        HRESULT Disconnect() override;
        HRESULT ConnectedTo(IPin** pin) override;
        HRESULT ConnectionMediaType(MediaType* type) override;
        HRESULT QueryAccept(const MediaType* type) override;
        HRESULT GetMediaType(uint32_t index, MediaType* type) override;
        HRESULT EndOfStream() override;

    private:
        FeedFilter& owner_;
    };

    ~FeedFilter() override = default;

    HRESULT Connect(IPin* receivePin, const MediaType* type);
    HRESULT DisconnectOutput();
    MediaType OfferedType() const;  // under lock_, with a format

    IPin& Pin() override { return pin_; }

    OutputPin pin_{*this};

    // Under lock_:
    bool hasFormat_ = false;
    WAVEFORMATEX format_{};
    CountedRef<IPin> peer_;
    CountedRef<ISampleInput> input_;
    StampRebase stamps_;
    bool startTimeSet_ = false;  // since the last run
};

}  // namespace vexel::audiofeed
