// RecordingSink: a push sink for driving a reader directly. It keeps what each pushed sample
// carried (times, size, the bytes and frame number of a picture, and the picture's source when the
// sample offers one) and can be told to refuse pushes after a count or to hold a push until
// released.
//
// Threads: the reader's delivery thread calls Push and EndOfStream; the test thread reads the
// record and changes the behaviour. Everything is guarded by one mutex or atomic.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "decodehost_test_support.h"
#include "vexel/codec_host.h"
#include "vexel/counted_ref.h"
#include "vexel/picture_source.h"

namespace vexel::decodehost_test {

struct PushedRecord {
    int64_t start = 0;
    int64_t stop = 0;
    uint32_t size = 0;
    int64_t frame = -1;                    // pictures: the drawn frame number
    std::vector<uint8_t> pixels{};         // pictures: as GetBuffer gave them
    CountedRef<IPictureSource> picture{};  // pictures libyuv converts: the sample's source
};

class RecordingSink final : public Vexel::IPushStream {
public:
    RecordingSink(int width, int height) : width_(width), height_(height) {}

    int32_t QueryInterface(const GUID*, void**) override { return E_NOINTERFACE; }
    uint32_t AddRef() override { return ++refs_; }
    uint32_t Release() override { return --refs_; }  // lives on the test's stack
    int32_t Notify() override { return 0; }

    int32_t Push(IPushSample* sample) override {
        BufferDesc buffer{};
        sample->GetBuffer(&buffer);
        sample->BufferAcquired();
        SampleInfo info = MakeSampleInfoRequest();
        sample->GetInfo(&info);

        PushedRecord record{info.startTime, info.stopTime, buffer.size};
        const auto* bytes = static_cast<const uint8_t*>(buffer.data);
        if (info.mediaKind == kMediaKindVideo &&
            buffer.size == static_cast<uint32_t>(width_ * height_ * 4)) {
            record.frame = FrameNumber(bytes, width_, height_);
            record.pixels.assign(bytes, bytes + buffer.size);
            record.picture.QueryFrom(sample, IID_PictureSource);
        }

        std::unique_lock<std::mutex> lock(mutex_);
        inPush_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !hold_; });
        inPush_ = false;
        if (refuseAfter_ >= 0 && static_cast<int64_t>(records_.size()) >= refuseAfter_) {
            ++refused_;
            return ERR_SAMPLE_REFUSED;
        }
        records_.push_back(std::move(record));
        changed_.notify_all();
        return 0;
    }

    int32_t EndOfStream() override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++endOfStreams_;
        changed_.notify_all();
        return 0;
    }

    // Behaviour.
    void RefuseAfter(int64_t count) {
        std::lock_guard<std::mutex> lock(mutex_);
        refuseAfter_ = count;
    }
    void Hold(bool hold) {
        std::lock_guard<std::mutex> lock(mutex_);
        hold_ = hold;
        changed_.notify_all();
    }

    // What arrived.
    std::vector<PushedRecord> Records() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return records_;
    }
    int EndOfStreams() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return endOfStreams_;
    }
    int Refused() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return refused_;
    }
    bool InPush() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return inPush_;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        records_.clear();
        endOfStreams_ = 0;
        refused_ = 0;
    }
    uint32_t References() const { return refs_.load(); }

private:
    const int width_;
    const int height_;
    std::atomic<uint32_t> refs_{1};
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<PushedRecord> records_;
    int endOfStreams_ = 0;
    int refused_ = 0;
    int64_t refuseAfter_ = -1;
    bool hold_ = false;
    bool inPush_ = false;
};

inline std::vector<int64_t> Frames(const std::vector<PushedRecord>& records) {
    std::vector<int64_t> frames;
    for (const PushedRecord& r : records) frames.push_back(r.frame);
    return frames;
}

}  // namespace vexel::decodehost_test
