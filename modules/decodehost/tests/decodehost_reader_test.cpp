// The codec host driven directly through its interfaces, as the player drives it: stream
// descriptions, output formats, the samples of a span, and the reader's states.
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <set>
#include <sys/resource.h>
#include <thread>

#include "reader_fixture.h"

namespace vexel::decodehost_test {
namespace {

// ---------------------------------------------------------------------------------------------
// Descriptions and formats

// The formats as described (what the player makes of them is in the player's tests, with the
// sizes, rates and lengths of its own clips), and what it refuses to open, select or run.
TEST_F(ReaderTest, DescribesItsStreamsDeliversTheirFormatsAndRefusesTheRest) {
    CountedRef<MediaDescription> description;
    ASSERT_EQ(reader_->Open(Clip("equirect.mp4").c_str(), description.put()), 0);
    MediaFormat format = MakeMediaFormatRequest();
    EXPECT_LT(reader_->GetProperty(&format.header), 0) << "no format before a stream is selected";
    uint32_t count = 0;
    description->GetStreamCount(&count);
    EXPECT_EQ(count, 2u);
    StreamInfo beyond{};
    uint64_t first = 0, second = 0, ticks = 0;
    EXPECT_LT(description->GetStreamInfo(2, &first, &beyond, &second, &ticks, nullptr), 0);

    const StreamInfo video = OpenStream("equirect.mp4", kStreamKindVideo, &ticks);
    EXPECT_EQ(ticks, static_cast<uint64_t>(2 * kSecond));
    const VideoFormatPayload pictures = Format().payload.video;  // in BGRA
    EXPECT_TRUE(pictures.width == video.width && pictures.height == video.height &&
                pictures.frameRate == video.frameRate && pictures.pixelFormat == 11u);
    const StreamInfo audio = OpenStream("equirect.mp4", kStreamKindAudio);
    const AudioFormatPayload sound = Format().payload.audio;
    EXPECT_TRUE(sound.channels == 2 && sound.samplesPerSecond == 48000 &&
                sound.bitsPerSample == 16);
    EXPECT_TRUE(sound.channels == audio.channels &&
                sound.samplesPerSecond == audio.samplesPerSecond &&
                sound.bitsPerSample == audio.bitsPerSample);

    // Refusals (files it cannot open are refused through the player's Open in the player's tests).
    EXPECT_LT(reader_->Open(nullptr, description.put()), 0);
    EXPECT_FALSE(description);
    ASSERT_EQ(reader_->Open(Clip("sound.m4a").c_str(), description.put()), 0);
    CountedRef<MediaStream> stream;
    EXPECT_LT(reader_->SelectStream(5, stream.put()), 0);
    EXPECT_FALSE(stream);
    EXPECT_LT(control_->Run(), 0) << "nothing selected, nothing to run";
}

// ---------------------------------------------------------------------------------------------
// Pictures

class ReaderSpanTest : public ReaderTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(ReaderSpanTest, SpanStartsAtTheFrameAtCurrentAndEndsBeforeStop) {
    OpenStream(GetParam(), kStreamKindVideo);
    // Inside the second keyframe interval: the frames before 1.35 s are decoded and dropped.
    Span(kSecond * 135 / 100, kSecond * 175 / 100);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(14, 17));

    // Spans of one frame around a time, as the player asks for a seek: backwards, on a
    // keyframe, just before one (its picture comes after reordered ones), near both ends.
    for (const int64_t frame : {7, 10, 9, 19, 0, 15}) {
        sink_.Clear();
        Span(frame * kFrame - kFrame / 2, frame * kFrame + kFrame / 2);
        ASSERT_TRUE(WaitForState(kEnded));
        const std::vector<PushedRecord> records = sink_.Records();
        EXPECT_EQ(Frames(records), Sequence(frame, frame)) << "span round frame " << frame;
        if (!records.empty()) {
            EXPECT_EQ(records[0].start, frame * kFrame);
        }
        EXPECT_EQ(sink_.EndOfStreams(), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, ReaderSpanTest,
                         ::testing::Values("equirect.mp4", "transport.ts", "matroska.mkv"),
                         ClipName);

// ---------------------------------------------------------------------------------------------
// Sound

// A span is cut to the sample, in blocks of whole stereo sample frames that follow each other
// without a gap; positions beyond the stream are brought onto it. (Where each second's beep is
// heard, and how loud, the player's sound tests show.)
TEST_F(ReaderTest, SoundSpansAreCutToTheSample) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    OpenStream("equirect.mp4", kStreamKindAudio);
    const struct {
        int64_t current, stop, first, last;  // last: 0 for nothing delivered
    } cases[] = {{kSecond / 2, kSecond, kSecond / 2, kSecond},
                 {kMin, kMax, 0, 2 * kSecond},
                 {kMax, kMax, 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.current << ".." << c.stop);
        sink_.Clear();
        Span(c.current, c.stop);
        ASSERT_TRUE(WaitForState(kEnded));
        EXPECT_EQ(sink_.EndOfStreams(), 1);
        const std::vector<PushedRecord> records = sink_.Records();
        ASSERT_EQ(records.empty(), c.last == 0);
        if (records.empty()) continue;
        for (size_t i = 0; i < records.size(); ++i) {
            const PushedRecord& r = records[i];
            EXPECT_EQ(r.size % 4, 0u) << "block " << i;
            EXPECT_NEAR(r.stop - r.start, int64_t{r.size / 4} * kSecond / 48000, 1);
            if (i > 0) {
                EXPECT_NEAR(r.start, records[i - 1].stop, 1) << "block " << i;
            }
        }
        EXPECT_EQ(records.front().start, c.first);
        // Open-ended, the stream's own end, which the coder pads by up to a block.
        EXPECT_NEAR(static_cast<double>(records.back().stop), c.last,
                    c.stop == kMax ? kSecond / 20.0 : 0.0);
    }
}

// ---------------------------------------------------------------------------------------------
// States: refusal, pause, stop, destruction

// One reader through its states: a refused push, a pause and a stop while a push is under way, a
// run after the end and after a stop, and its release while it delivers.
TEST_F(ReaderTest, RefusalPauseStopAndRunAfterTheEnd) {
    OpenStream("equirect.mp4", kStreamKindVideo);
    sink_.RefuseAfter(3);  // a refused push ends the span without an end of stream
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(sink_.Records().size(), 3u);
    EXPECT_EQ(sink_.Refused(), 1);
    EXPECT_EQ(sink_.EndOfStreams(), 0);

    // Paused, the push under way completes and nothing follows; Run resumes where it was.
    sink_.RefuseAfter(-1);
    sink_.Clear();
    sink_.Hold(true);
    Span(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return sink_.InPush(); }));
    control_->Pause();
    EXPECT_EQ(State(), kPaused);
    sink_.Hold(false);
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(sink_.Records().size(), 1u);
    ASSERT_EQ(control_->Run(), 0);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(0, 19));
    EXPECT_EQ(control_->Run(), 0);  // a player resuming after the end: nothing is repeated
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(sink_.Records().size(), 20u);
    EXPECT_EQ(State(), kEnded);

    // A stop while a push is under way reports stopping until it returns, and ends the span there.
    sink_.Clear();
    sink_.Hold(true);
    Span(15 * kFrame, 0);
    ASSERT_TRUE(WaitUntil([&] { return sink_.InPush(); }));
    control_->Stop();
    EXPECT_EQ(State(), kStopping);
    sink_.Hold(false);
    ASSERT_TRUE(WaitForState(kIdle));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(sink_.Records().size(), 1u) << "more of the stopped span";
    EXPECT_EQ(sink_.EndOfStreams(), 0);
    sink_.Clear();  // Run after Stop delivers the positioned span again
    ASSERT_EQ(control_->Run(), 0);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(15, 19));

    // TearDown drops the last references while the reader delivers, and checks that the sink got
    // its reference back.
    sink_.Clear();
    Span(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return !sink_.Records().empty(); }));
}

// ---------------------------------------------------------------------------------------------
// Damaged input

// A cut-off file plays what it holds, a damaged one skips what it cannot decode; both end.
TEST_F(ReaderTest, CutAndDamagedFilesPlayWhatTheyCanAndEnd) {
    for (const char* clip : {"cut.mp4", "damaged.mp4"}) {
        SCOPED_TRACE(clip);
        OpenStream(clip, kStreamKindVideo);
        sink_.Clear();
        Span(0, 0);
        ASSERT_TRUE(WaitForState(kEnded));
        const std::vector<PushedRecord> records = sink_.Records();
        const bool cut = clip[0] == 'c';
        EXPECT_GE(records.size(), cut ? 1u : 10u);
        EXPECT_LT(records.size(), cut ? 20u : 21u);
        if (cut) {
            EXPECT_EQ(Frames(records), Sequence(0, std::ssize(records) - 1));
        }
        for (size_t i = 1; i < records.size(); ++i)
            EXPECT_GT(records[i].start, records[i - 1].start);
        EXPECT_EQ(sink_.EndOfStreams(), 1);
    }
}

// ---------------------------------------------------------------------------------------------
// Priorities

std::set<pid_t> Threads() {
    std::set<pid_t> threads;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        threads.insert(std::stoi(task.path().filename().string()));
    return threads;
}

int Nice(pid_t thread) { return getpriority(PRIO_PROCESS, static_cast<id_t>(thread)); }

// Decoding gives way to presentation: every thread a reader starts, libavcodec's own included,
// runs below the thread that starts it, which keeps its priority.
TEST_F(ReaderTest, ItsThreadsRunBelowTheThreadThatStartsThem) {
    const int own = Nice(gettid());
    if (own == 19) GTEST_SKIP() << "this test runs at the lowest priority already";
    // The process's first thread may bring a runtime's own (ThreadSanitizer's background thread).
    std::thread([] {}).join();
    const std::set<pid_t> before = Threads();
    OpenStream("equirect.mp4", kStreamKindVideo);
    Span(0, kSecond / 2);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Nice(gettid()), own);
    int started = 0;
    for (pid_t thread : Threads()) {
        if (before.count(thread) != 0) continue;
        ++started;
        EXPECT_GT(Nice(thread), own) << "thread " << thread;
    }
    EXPECT_GE(started, 1) << "the delivery thread at least";
}

}  // namespace
}  // namespace vexel::decodehost_test
