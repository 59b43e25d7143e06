// The reader test fixture: the module loaded by its file name, one reader of it, a recording sink,
// and the helpers that open a stream, run a span and wait for the reader's states.
//
// Threads: the fixture runs on the test's thread; the sink records from the delivery thread.
#pragma once

#include <dlfcn.h>

#include <algorithm>
#include <numeric>

#include "recording_sink.h"
#include "vexel/codec_host.h"
#include "vexel/counted_ref.h"

namespace vexel::decodehost_test {

using vexel::CountedRef;

inline constexpr uint32_t kIdle = 0, kPaused = 1, kEnded = 3, kStopping = 4;

inline CreateCodecHostFn Entry() {
    static void* module = dlopen(DECODEHOST_MODULE, RTLD_NOW | RTLD_LOCAL);
    return module ? reinterpret_cast<CreateCodecHostFn>(dlsym(module, kCreateCodecHostSymbol))
                  : nullptr;
}

class ReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        CreateCodecHostFn create = Entry();
        ASSERT_NE(create, nullptr) << dlerror();
        CodecHost* host = nullptr;
        ASSERT_EQ(create(&host), 0);
        host_ = CountedRef<CodecHost>::Adopt(host);
        host_->CreateReader(reader_.put());
        ASSERT_TRUE(reader_);
    }

    void TearDown() override {
        status_.reset();
        control_.reset();
        reader_.reset();  // joins the delivery thread
        EXPECT_EQ(sink_.References(), 1u) << "the reader kept a reference on the sink";
    }

    // Opens `clip` and selects its first stream of `kind`; returns the stream's description.
    StreamInfo OpenStream(const std::string& clip, uint32_t kind, uint64_t* duration = nullptr) {
        CountedRef<MediaDescription> description;
        EXPECT_EQ(reader_->Open(Clip(clip).c_str(), description.put()), 0);
        if (!description) return {};
        uint32_t count = 0;
        description->GetStreamCount(&count);
        for (uint32_t i = 0; i < count; ++i) {
            StreamInfo info{};
            uint64_t first = 0, second = 0, ticks = 0;
            description->GetStreamInfo(static_cast<uint16_t>(i), &first, &info, &second, &ticks,
                                       nullptr);
            if (info.kind != kind) continue;
            CountedRef<MediaStream> stream;
            EXPECT_EQ(reader_->SelectStream(i, stream.put()), 0);
            EXPECT_TRUE(stream);
            reader_->SetSink(&sink_);
            control_.QueryFrom(reader_.get(), IID_PlaybackControl);
            status_.QueryFrom(control_.get(), IID_PlaybackStatus);
            if (duration != nullptr) *duration = ticks;
            return info;
        }
        ADD_FAILURE() << clip << " has no stream of kind " << kind;
        return {};
    }

    MediaFormat Format() {
        MediaFormat format = MakeMediaFormatRequest();
        EXPECT_EQ(reader_->GetProperty(&format.header), 0);
        return format;
    }

    void Span(int64_t current, int64_t stop) {
        ASSERT_TRUE(control_);
        control_->SetPositions(&current, 0, &stop, 0);
        ASSERT_EQ(control_->Run(), 0);
    }

    uint32_t State() {
        uint32_t state = 99;
        status_->GetState(&state);
        return state;
    }

    bool WaitForState(uint32_t state) {
        return WaitUntil([&] { return State() == state; });
    }

    CountedRef<CodecHost> host_;
    CountedRef<MediaReader> reader_;
    CountedRef<PlaybackControl> control_;
    CountedRef<PlaybackStatus> status_;
    RecordingSink sink_{128, 64};
};

// A clip's file name as part of a test's name: late.mkv gives late_mkv.
inline std::string ClipName(const ::testing::TestParamInfo<const char*>& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

inline std::vector<int64_t> Sequence(int64_t first, int64_t last) {
    std::vector<int64_t> frames(static_cast<size_t>(last - first + 1));
    std::iota(frames.begin(), frames.end(), first);
    return frames;
}

}  // namespace vexel::decodehost_test
