// Reader: the codec host's MediaReader. It opens a file, delivers the decoded samples of one
// selected stream to a push sink, and is driven through PlaybackControl and PlaybackStatus, which
// the same object implements (one reference count for all three).
//
// Delivery runs in spans: SetPositions(current, stop) and Run start one, which seeks to the
// keyframe the first frame from `current` needs, decodes and discards up to it, then pushes every
// sample from `current` until `stop` (0: the end of the stream) and finishes with the sink's
// EndOfStream. A refused push (the player's engine takes no more) ends the span as well.
// Positions outside the selected stream are brought onto it (0 to its duration).
//
// Open refuses what could block for ever (input_policy.h); Stop, from another thread, interrupts
// an Open or a delivery blocked on network input.
//
// State codes (GetState): 0 idle, 1 paused, 2 running, 3 ended (span done or refused), 4 stopping
// (Stop came while a sink call was under way; becomes 0 when it returns). 0 and 3 take a new
// SetPositions and Run.
//
// Threads: the public operations come from any thread; a mutex serialises them. One delivery
// thread per reader, started by the first Run and joined by destruction, makes every sink call;
// it never holds the mutex while calling the sink. It and the decoder's own threads run below the
// threads that start them (decode_priority.h). Destruction waits for a sink call under way,
// so the caller must first make the sink return (the player stops its engine before it lets go).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "audio_converter.h"
#include "media_file.h"
#include "stream_decoder.h"
#include "vexel/codec_host.h"
#include "vexel/com_object.h"
#include "video_converter.h"

namespace vexel::decodehost {

class Reader final : public ComObject<MediaReader, PlaybackControl, PlaybackStatus> {
public:
    enum State : uint32_t { kIdle = 0, kPaused = 1, kRunning = 2, kEnded = 3, kStopping = 4 };

    Reader() = default;

    int32_t QueryInterface(const GUID* id, void** out) override;

    // MediaReader
    int32_t Reserved1() override { return S_OK; }  // also PlaybackStatus's first slot
    int32_t Open(const char* utf8Path, MediaDescription** out) override;
    int32_t SelectStream(uint32_t index, MediaStream** out) override;
    int32_t Reserved4() override { return S_OK; }
    int32_t SetSink(Vexel::IPushStream* sink) override;
    int32_t GetProperty(PropertyHeader* record) override;
    int32_t SetProperty(const PropertyHeader* record) override;

    // PlaybackControl
    int32_t SetPositions(int64_t* current, uint32_t currentFlags, int64_t* stop,
                         uint32_t stopFlags) override;
    int32_t Reserved2() override { return S_OK; }  // also PlaybackStatus's second slot
    int32_t Run() override;
    int32_t Pause() override;
    int32_t Stop() override;

    // PlaybackStatus
    int32_t GetState(uint32_t* state) override;

private:
    struct Span {
        uint64_t id = 0;
        int64_t current = 0;
        int64_t stop = 0;  // 0 or less: to the end of the stream
    };
    // A block of decoded data ready for the sink: a decoded picture, or sound in buffer_.
    struct Block {
        const AVFrame* picture = nullptr;  // the decoder's, valid until its next picture
        uint8_t* data = nullptr;
        uint32_t size = 0;
        int64_t start = 0;
        int64_t stop = 0;
    };

    ~Reader() override;
    bool Busy() const;  // a span is under way; mutex_ held

    // Delivery thread (reader_delivery.cpp).
    void DeliveryLoop();
    void DeliverSpan(const Span& span);
    bool PrepareVideo(AVFrame* frame, int64_t start, const Span& span, Block& block);
    bool PrepareAudio(AVFrame* frame, int64_t start, const Span& span, Block& block);
    // Makes one sink call for span `id` once the reader is not paused. False when the span is
    // over: abandoned, refused or, after the end-of-stream call, done.
    bool CallSink(uint64_t id, const Block* block);
    bool Abandoned(uint64_t id) const { return quit_.load() || span_.load() != id; }
    // Ends blocking input of the open or the span being watched (any thread).
    bool Interrupted() const { return Abandoned(watched_.load()); }

    mutable std::mutex mutex_;
    std::condition_variable wake_;  // delivery thread: new span, resume, quit
    std::atomic<uint32_t> state_{kIdle};
    std::atomic<bool> quit_{false};     // destruction; also ends blocking reads of the file
    std::atomic<uint64_t> span_{0};     // the span to deliver; a change abandons the one under way
    std::atomic<uint64_t> watched_{0};  // the span (or, for Open, the value of span_) whose input
                                        // a change of span_ interrupts

    // Guarded by mutex_ (the delivery thread reads the file, decoder, converters and sink
    // without it while a span is active: nothing replaces them then).
    std::unique_ptr<MediaFile> file_;
    std::unique_ptr<StreamDecoder> decoder_;
    std::unique_ptr<VideoConverter> video_;
    std::unique_ptr<AudioConverter> audio_;
    Vexel::IPushStream* sink_ = nullptr;  // counted
    int64_t current_ = 0;
    int64_t stop_ = 0;
    int64_t end_ = kMaxMediaTicks;  // the selected stream's duration
    bool positionsPending_ = true;  // the next Run starts a span from current_
    Span next_;                     // the span Run asked for
    bool spanActive_ = false;
    bool inCall_ = false;
    std::thread thread_;

    // Delivery thread only: sound blocks, and pictures a sink reads through GetBuffer.
    std::vector<uint8_t> buffer_;
};

// Objects handed out by a reader: the opened file's description and the selected stream.
class Description final : public ComObject<MediaDescription> {
public:
    explicit Description(std::vector<StreamEntry> streams) : streams_(std::move(streams)) {}
    int32_t QueryInterface(const GUID* id, void** out) override;
    int32_t Reserved1() override { return S_OK; }
    int32_t GetStreamCount(uint32_t* count) override;
    int32_t GetStreamInfo(uint16_t index, uint64_t* first, StreamInfo* info, uint64_t* second,
                          uint64_t* streamDuration, void* reserved) override;

private:
    const std::vector<StreamEntry> streams_;
};

class SelectedStream final : public ComObject<MediaStream> {
public:
    int32_t QueryInterface(const GUID* id, void** out) override;
    int32_t Reserved1() override { return S_OK; }
    int32_t Reserved2() override { return S_OK; }
    int32_t Reserved3() override { return S_OK; }
    int32_t SetProperty(const PropertyHeader* record) override;
};

}  // namespace vexel::decodehost
