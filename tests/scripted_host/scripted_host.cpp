// A codec host for tests: plays a script instead of decoding files (see scripted_host_control.h).
//
// Objects: CodecHost, MediaReader (which also offers PlaybackControl and PlaybackStatus, sharing
// its count), MediaDescription, MediaStream and the delivered samples (IPushSample). Objects hold
// no references on one another, so each one goes away exactly when the player drops it.
//
// Threads: the player calls the objects from its host and command threads. Each reader runs one
// delivery thread per Run; it calls the sink and creates and releases the samples. The log, the
// script and the statistics are shared under one mutex; counts and states are atomic.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "scripted_host_control.h"
#include "vexel/codec_host.h"

#define SCRIPTED_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Reader state codes: 0 and 3 mean "can be repositioned".
constexpr uint32_t kStateIdle = 0;
constexpr uint32_t kStatePaused = 1;
constexpr uint32_t kStateRunning = 2;
constexpr uint32_t kStateEnded = 3;

// ---------------------------------------------------------------------------------------------
// Shared state: script, log, statistics

struct ReaderRecord {
    std::atomic<int32_t> kind{-1};
    std::atomic<uint32_t> state{kStateIdle};
    std::atomic<int64_t> references{0};
    std::atomic<uint64_t> pushesStarted{0};
    std::atomic<uint64_t> pushesAccepted{0};
    std::atomic<uint64_t> pushesRefused{0};
    std::atomic<uint64_t> endOfStreams{0};
    std::atomic<uint64_t> deliveriesEnded{0};
    std::atomic<uint64_t> faults{0};
    std::atomic<bool> destroyed{false};
};

std::mutex gMutex;  // guards everything below that is not atomic
ScriptedScript gScript;
std::vector<ScriptedCall> gLog;
std::vector<std::shared_ptr<ReaderRecord>> gReaders;  // index = reader number - 1
uint32_t gNextNumber[5] = {1, 1, 1, 1, 1};            // per object kind
std::atomic<bool> gBusy{false};
std::atomic<int64_t> gLiveObjects{0};
std::atomic<int64_t> gLiveReferences{0};

ScriptedScript CurrentScript() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gScript;
}

void Log(const char* object, const char* method, std::initializer_list<int64_t> args = {}) {
    ScriptedCall call{};
    std::snprintf(call.object, sizeof call.object, "%s", object);
    std::snprintf(call.method, sizeof call.method, "%s", method);
    for (int64_t arg : args) {
        if (call.argCount < 4) call.args[call.argCount++] = arg;
    }
    std::lock_guard<std::mutex> lock(gMutex);
    gLog.push_back(call);
}

enum class Kind { Host, Reader, Description, Stream, Sample };
constexpr const char* kKindNames[] = {"host", "reader", "description", "stream", "sample"};

// Counting and naming shared by every object; the final class supplies QueryInterface.
template <class... Interfaces>
class Object : public Interfaces... {
public:
    explicit Object(Kind kind) {
        std::lock_guard<std::mutex> lock(gMutex);
        number_ = gNextNumber[static_cast<int>(kind)]++;
        std::snprintf(name_, sizeof name_, "%s%u", kKindNames[static_cast<int>(kind)], number_);
        gLiveObjects.fetch_add(1);
    }
    virtual ~Object() { gLiveObjects.fetch_sub(1); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    uint32_t AddRef() override {
        const uint32_t count = refs_.fetch_add(1) + 1;
        gLiveReferences.fetch_add(1);
        CountChanged(count);
        return count;
    }

    uint32_t Release() override {
        const uint32_t count = refs_.fetch_sub(1) - 1;
        gLiveReferences.fetch_sub(1);
        CountChanged(count);
        if (count == 0) delete this;
        return count;
    }

    const char* name() const { return name_; }
    uint32_t number() const { return number_; }

protected:
    // Hands the caller a reference on `self` through out.
    template <class T>
    int32_t Answer(T* self, void** out) {
        AddRef();
        *out = self;
        return 0;
    }
    virtual void CountChanged(uint32_t) {}

private:
    std::atomic<uint32_t> refs_{0};
    uint32_t number_ = 0;
    char name_[24] = {};
};

// ---------------------------------------------------------------------------------------------
// Samples

class Sample final : public Object<IPushSample> {
public:
    Sample(std::vector<uint8_t> data, int64_t start, int64_t stop, uint32_t mediaKind)
        : Object(Kind::Sample),
          data_(std::move(data)),
          start_(start),
          stop_(stop),
          mediaKind_(mediaKind) {}

    int32_t QueryInterface(const GUID*, void**) override { return E_NOINTERFACE; }
    int32_t GetBuffer(BufferDesc* buffer) override {
        if (buffer == nullptr) return E_FAIL;
        buffer->data = data_.data();  // the host writes only the first 12 bytes
        buffer->size = static_cast<uint32_t>(data_.size());
        return 0;
    }
    int32_t BufferAcquired() override { return 0; }
    int32_t GetInfo(SampleInfo* info) override {
        if (info == nullptr) return E_FAIL;
        info->startTime = start_;
        info->stopTime = stop_;
        info->mediaKind = mediaKind_;
        return 0;
    }

private:
    std::vector<uint8_t> data_;
    int64_t start_, stop_;
    uint32_t mediaKind_;
};

// Frame k of a w x h picture, rows bottom-up as pixel format 11 delivers them.
std::vector<uint8_t> VideoFrame(uint32_t k, uint32_t width, uint32_t height) {
    std::vector<uint8_t> data(size_t{width} * height * 4);
    for (uint32_t row = 0; row < height; ++row) {
        const uint32_t pixel = ScriptedPixel(k, height - 1 - row);
        for (uint32_t x = 0; x < width; ++x) {
            std::memcpy(&data[(size_t{row} * width + x) * 4], &pixel, 4);
        }
    }
    return data;
}

// Block k of 16-bit PCM (or whatever sample size the script names): a ramp that starts at k.
std::vector<uint8_t> AudioBlock(uint32_t k, const ScriptedScript& s) {
    const uint64_t bytesPerSecond =
        uint64_t{s.audioSamplesPerSecond} * s.audioChannels * (s.audioBitsPerSample / 8);
    size_t size = static_cast<size_t>(bytesPerSecond * s.audioInterval / 10'000'000);
    size = std::max<size_t>(size & ~size_t{3}, 4);
    std::vector<uint8_t> data(size);
    for (size_t i = 0; i + 1 < size; i += 2) {
        const auto value = static_cast<uint16_t>(k * 64 + i);
        std::memcpy(&data[i], &value, 2);
    }
    return data;
}

// ---------------------------------------------------------------------------------------------
// Description and stream

class Description final : public Object<MediaDescription> {
public:
    explicit Description(const ScriptedScript& script)
        : Object(Kind::Description), script_(script) {}

    int32_t QueryInterface(const GUID*, void**) override { return E_NOINTERFACE; }
    int32_t Reserved1() override { return 0; }
    int32_t GetStreamCount(uint32_t* count) override {
        if (count == nullptr) return E_FAIL;
        *count = script_.streamCount;
        return 0;
    }
    int32_t GetStreamInfo(uint16_t index, uint64_t* first, StreamInfo* info, uint64_t* second,
                          uint64_t* streamDuration, void*) override {
        Log(name(), "GetStreamInfo", {index});
        if (info == nullptr || index >= script_.streamCount || index >= 4) return E_FAIL;
        const ScriptedStream& s = script_.streams[index];
        std::memset(info, 0xA5, sizeof *info);  // bytes the player must carry along untouched
        info->kind = s.kind;
        info->width = s.width;
        info->height = s.height;
        info->bitsPerSample = 16;
        info->frameRate = s.frameRate;
        info->duration = s.duration;
        if (first) *first = 0x1111;
        if (second) *second = 0x2222;
        if (streamDuration) *streamDuration = s.streamDuration;
        return 0;
    }

private:
    ScriptedScript script_;
};

class Stream final : public Object<MediaStream> {
public:
    Stream() : Object(Kind::Stream) {}

    int32_t QueryInterface(const GUID*, void**) override { return E_NOINTERFACE; }
    int32_t Reserved1() override { return 0; }
    int32_t Reserved2() override { return 0; }
    int32_t Reserved3() override { return 0; }
    int32_t SetProperty(const PropertyHeader*) override { return 0; }
};

// ---------------------------------------------------------------------------------------------
// Reader with its playback control and status

class Reader final : public Object<MediaReader, PlaybackControl, PlaybackStatus> {
public:
    Reader() : Object(Kind::Reader), record_(std::make_shared<ReaderRecord>()) {
        std::lock_guard<std::mutex> lock(gMutex);
        gReaders.resize(std::max<size_t>(gReaders.size(), number()));
        gReaders[number() - 1] = record_;
    }

    // The last reference: stop delivery and wait for the thread, then let go of the sink.
    ~Reader() override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopRequested_ = true;
        }
        wake_.notify_all();
        Join();
        if (sink_ != nullptr) sink_->Release();
        record_->destroyed = true;
    }

    int32_t QueryInterface(const GUID* id, void** out) override {
        int32_t status = E_NOINTERFACE;
        if (id != nullptr && out != nullptr) {
            if (*id == IID_PlaybackControl && !script_.noPlaybackControl) {
                status = Answer(static_cast<PlaybackControl*>(this), out);
            } else if (*id == IID_PlaybackStatus && !script_.noPlaybackStatus) {
                status = Answer(static_cast<PlaybackStatus*>(this), out);
            }
        }
        Log(name(), "QueryInterface", {id != nullptr ? id->Data1 : 0});
        return status;
    }

    int32_t Reserved1() override { return LogReserved("Reserved1"); }
    int32_t Reserved2() override { return LogReserved("Reserved2"); }
    int32_t Reserved4() override { return LogReserved("Reserved4"); }

    int32_t Open(const char*, MediaDescription** out) override {
        script_ = CurrentScript();
        const int32_t status = script_.failOpen || out == nullptr ? E_FAIL : 0;
        Log(name(), "Open");
        if (out == nullptr) return E_FAIL;
        *out = nullptr;
        if (status != 0) return status;
        auto* description = new Description(script_);
        description->AddRef();
        *out = description;
        return 0;
    }

    int32_t SelectStream(uint32_t index, MediaStream** out) override {
        const bool valid = index < script_.streamCount && index < 4 && out != nullptr;
        Log(name(), "SelectStream", {index});
        if (!valid) return E_FAIL;
        kind_ = static_cast<int32_t>(script_.streams[index].kind);
        record_->kind = kind_;
        auto* stream = new Stream();
        stream->AddRef();
        *out = stream;
        return 0;
    }

    int32_t SetSink(Vexel::IPushStream* sink) override {
        Log(name(), "SetSink", {sink != nullptr});
        if (sink != nullptr) sink->AddRef();  // a host keeps a reference of its own
        std::lock_guard<std::mutex> lock(mutex_);
        if (sink_ != nullptr) sink_->Release();
        sink_ = sink;
        return 0;
    }

    int32_t GetProperty(PropertyHeader* record) override {
        Log(name(), "GetProperty");
        if (record == nullptr || record->size < sizeof(MediaFormat) ||
            record->key != KEY_MediaFormat) {
            return E_FAIL;
        }
        auto* format = reinterpret_cast<MediaFormat*>(record);
        if (kind_ == 1) {
            format->payload.video.width = script_.videoWidth;
            format->payload.video.height = script_.videoHeight;
            format->payload.video.pixelFormat = script_.pixelFormat;
            format->payload.video.frameRate = script_.videoFrameRate;
            format->payload.video.formatExtra = 0x0102030405060708;
        } else if (kind_ == 0) {
            format->payload.audio.channels = script_.audioChannels;
            format->payload.audio.samplesPerSecond = script_.audioSamplesPerSecond;
            format->payload.audio.bitsPerSample = script_.audioBitsPerSample;
        } else {
            return E_FAIL;
        }
        return 0;
    }

    int32_t SetProperty(const PropertyHeader*) override {
        Log(name(), "SetProperty");
        return 0;
    }

    // PlaybackControl. Logged arguments: current, flags, stop, flags (-1 for a null pointer).
    int32_t SetPositions(int64_t* current, uint32_t currentFlags, int64_t* stop,
                         uint32_t stopFlags) override {
        Log(name(), "SetPositions",
            {current ? *current : -1, currentFlags, stop ? *stop : -1, stopFlags});
        std::lock_guard<std::mutex> lock(mutex_);
        if (current != nullptr) current_ = *current;
        if (stop != nullptr) stop_ = *stop;
        return 0;
    }

    int32_t Run() override {
        Log(name(), "Run");
        std::unique_lock<std::mutex> lock(mutex_);
        if (delivering_) {  // running, paused, or still winding down after a Stop
            if (!stopRequested_) {
                paused_ = false;
                record_->state = kStateRunning;
                wake_.notify_all();
                return 0;
            }
        }
        lock.unlock();
        Join();  // the previous span's thread, if it has not been joined yet
        lock.lock();
        stopRequested_ = false;
        paused_ = false;
        delivering_ = true;
        record_->state = kStateRunning;
        thread_ = std::thread(&Reader::Deliver, this, current_, stop_, sink_);
        return 0;
    }

    int32_t Pause() override {
        Log(name(), "Pause");
        std::lock_guard<std::mutex> lock(mutex_);
        if (delivering_ && !stopRequested_) {
            paused_ = true;
            record_->state = kStatePaused;
        }
        return 0;
    }

    // Ends delivery. A thread blocked inside the sink cannot be joined here (the sink may be
    // waiting for the player's next step); it ends when Push returns and is joined by Run or
    // destruction.
    int32_t Stop() override {
        Log(name(), "Stop");
        bool inSink;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopRequested_ = true;
            paused_ = false;
            inSink = inSink_;
        }
        wake_.notify_all();
        if (!inSink) Join();
        return 0;
    }

    // PlaybackStatus
    int32_t GetState(uint32_t* state) override {
        const uint32_t value = gBusy ? kStateRunning : record_->state.load();
        Log(name(), "GetState");
        if (state == nullptr) return E_FAIL;
        *state = value;
        return 0;
    }

private:
    void CountChanged(uint32_t count) override { record_->references = count; }

    int32_t LogReserved(const char* method) {
        Log(name(), method);
        return 0;
    }

    void SetInSink(bool value) {
        std::lock_guard<std::mutex> lock(mutex_);
        inSink_ = value;
    }

    void Join() {
        std::thread finished;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            finished = std::move(thread_);
        }
        if (finished.joinable()) finished.join();
    }

    // The delivery thread: the units of [current, stop) in order, as fast as the sink takes them.
    void Deliver(int64_t current, int64_t stop, Vexel::IPushStream* sink) {
        const bool video = kind_ == 1;
        const int64_t interval =
            std::max<int64_t>(video ? script_.videoInterval : script_.audioInterval, 1);
        const uint32_t count = video ? script_.videoFrames : script_.audioBlocks;
        uint32_t endState = kStateEnded;
        bool reachedEnd = true;
        uint64_t k = current <= 0 ? 0 : static_cast<uint64_t>((current + interval - 1) / interval);
        for (; sink != nullptr && kind_ >= 0 && k < count; ++k) {
            const int64_t start = static_cast<int64_t>(k) * interval;
            if (start >= stop) break;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                wake_.wait(lock, [&] { return !paused_ || stopRequested_; });
                if (stopRequested_) {
                    endState = kStateIdle;
                    reachedEnd = false;
                    break;
                }
                inSink_ = true;
            }
            auto* sample = new Sample(video ? VideoFrame(static_cast<uint32_t>(k),
                                                         script_.videoWidth, script_.videoHeight)
                                            : AudioBlock(static_cast<uint32_t>(k), script_),
                                      start, start + interval, video ? 0u : 2u);
            sample->AddRef();
            record_->pushesStarted++;
            int32_t status = E_FAIL;
            try {
                status = sink->Push(sample);
            } catch (...) {
                record_->faults++;
            }
            sample->Release();
            {
                std::lock_guard<std::mutex> lock(mutex_);
                inSink_ = false;
                current_ = start + interval;  // a resume without new positions goes on from here
            }
            if (status < 0) {
                record_->pushesRefused++;
                reachedEnd = false;
                break;
            }
            record_->pushesAccepted++;
        }
        if (reachedEnd) {
            std::lock_guard<std::mutex> lock(mutex_);
            current_ = stop;
        }
        if (reachedEnd && sink != nullptr) {
            SetInSink(true);
            sink->EndOfStream();
            SetInSink(false);
            record_->endOfStreams++;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        delivering_ = false;
        paused_ = false;
        record_->state = endState;
        record_->deliveriesEnded++;
    }

    ScriptedScript script_;  // copied at Open; read by the delivery thread only while it runs
    int32_t kind_ = -1;      // selected stream kind; set before any Run
    std::shared_ptr<ReaderRecord> record_;

    std::mutex mutex_;  // guards the fields below
    std::condition_variable wake_;
    Vexel::IPushStream* sink_ = nullptr;  // one reference held
    int64_t current_ = 0;
    int64_t stop_ = 0;
    bool delivering_ = false;
    bool paused_ = false;
    bool stopRequested_ = false;
    bool inSink_ = false;  // the delivery thread is inside a call on the sink
    std::thread thread_;
};

class Host final : public Object<CodecHost> {
public:
    Host() : Object(Kind::Host) {}

    int32_t QueryInterface(const GUID*, void**) override { return E_NOINTERFACE; }
    int32_t Reserved1() override { return 0; }
    int32_t Reserved2() override { return 0; }
    int32_t CreateReader(MediaReader** out) override {
        if (out == nullptr) return E_FAIL;
        auto* reader = new Reader();
        reader->AddRef();
        *out = reader;
        return 0;
    }
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Exports

SCRIPTED_EXPORT int32_t CreateCodecHost(CodecHost** out) {
    const bool fail = CurrentScript().failCreateHost;
    if (out == nullptr) return E_FAIL;
    *out = nullptr;
    if (fail) return E_FAIL;
    auto* host = new Host();
    host->AddRef();
    *out = host;
    return 0;
}

SCRIPTED_EXPORT void ScriptedHost_Configure(const ScriptedScript* script) {
    if (script == nullptr) return;
    std::lock_guard<std::mutex> lock(gMutex);
    gScript = *script;
}

SCRIPTED_EXPORT void ScriptedHost_Reset() {
    gBusy = false;
    std::lock_guard<std::mutex> lock(gMutex);
    gScript = ScriptedScript{};
    gLog.clear();
    gReaders.clear();
    std::fill(std::begin(gNextNumber), std::end(gNextNumber), 1u);
}

SCRIPTED_EXPORT void ScriptedHost_SetBusy(bool busy) { gBusy = busy; }

SCRIPTED_EXPORT uint32_t ScriptedHost_ReadLog(ScriptedCall* out, uint32_t capacity) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (out != nullptr) {
        std::copy_n(gLog.begin(), std::min<size_t>(capacity, gLog.size()), out);
    }
    return static_cast<uint32_t>(gLog.size());
}

SCRIPTED_EXPORT int64_t ScriptedHost_LiveObjects() { return gLiveObjects; }

SCRIPTED_EXPORT int64_t ScriptedHost_LiveReferences() { return gLiveReferences; }

SCRIPTED_EXPORT bool ScriptedHost_ReaderStats(uint32_t reader, ScriptedReaderStats* out) {
    std::shared_ptr<ReaderRecord> record;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        if (reader == 0 || reader > gReaders.size() || !gReaders[reader - 1]) return false;
        record = gReaders[reader - 1];
    }
    if (out == nullptr) return true;
    out->kind = record->kind;
    out->state = record->state;
    out->references = record->destroyed ? 0 : record->references.load();
    out->pushesStarted = record->pushesStarted;
    out->pushesAccepted = record->pushesAccepted;
    out->pushesRefused = record->pushesRefused;
    out->endOfStreams = record->endOfStreams;
    out->deliveriesEnded = record->deliveriesEnded;
    out->faults = record->faults;
    out->destroyed = record->destroyed;
    return true;
}
