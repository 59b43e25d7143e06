// The codec host driven directly through its interfaces, as the player drives it: stream
// descriptions, output formats, the samples of a span, and the reader's states.
#include <cmath>

#include "reader_fixture.h"

namespace vexel::decodehost_test {
namespace {

// ---------------------------------------------------------------------------------------------
// Descriptions and formats

TEST_F(ReaderTest, DescribesItsStreamsAndDeliversTheirFormats) {
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
    EXPECT_EQ(video.width, 128u);
    EXPECT_EQ(video.height, 64u);
    EXPECT_DOUBLE_EQ(video.frameRate, 10.0);
    EXPECT_NEAR(video.duration, 2.0, 1e-6);
    EXPECT_EQ(ticks, static_cast<uint64_t>(2 * kSecond));
    const VideoFormatPayload pictures = Format().payload.video;  // as described, in BGRA
    EXPECT_EQ(pictures.width, video.width);
    EXPECT_EQ(pictures.height, video.height);
    EXPECT_DOUBLE_EQ(pictures.frameRate, 10.0);
    EXPECT_EQ(pictures.pixelFormat, 11u);

    const StreamInfo audio = OpenStream("equirect.mp4", kStreamKindAudio);
    EXPECT_EQ(audio.channels, 2u);
    EXPECT_EQ(audio.samplesPerSecond, 48000u);
    EXPECT_EQ(audio.bitsPerSample, 16u);
    const AudioFormatPayload sound = Format().payload.audio;  // as described
    EXPECT_EQ(sound.channels, audio.channels);
    EXPECT_EQ(sound.samplesPerSecond, audio.samplesPerSecond);
    EXPECT_EQ(sound.bitsPerSample, audio.bitsPerSample);
}

TEST_F(ReaderTest, RefusesWhatItCannotOpenOrSelect) {
    CountedRef<MediaDescription> description;
    EXPECT_LT(reader_->Open(Clip("no-such-file.mp4").c_str(), description.put()), 0);
    EXPECT_FALSE(description);
    EXPECT_LT(reader_->Open(Clip("not-media.mp4").c_str(), description.put()), 0);
    EXPECT_FALSE(description);
    EXPECT_LT(reader_->Open(nullptr, description.put()), 0);

    ASSERT_EQ(reader_->Open(Clip("sound.m4a").c_str(), description.put()), 0);
    CountedRef<MediaStream> stream;
    EXPECT_LT(reader_->SelectStream(5, stream.put()), 0);
    EXPECT_FALSE(stream);
    control_.QueryFrom(reader_.get(), IID_PlaybackControl);
    ASSERT_TRUE(control_);
    EXPECT_LT(control_->Run(), 0) << "nothing selected, nothing to run";
}

// ---------------------------------------------------------------------------------------------
// Pictures

class ReaderSpanTest : public ReaderTest, public testing::WithParamInterface<const char*> {};

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
                         testing::Values("equirect.mp4", "transport.ts", "matroska.mkv"),
                         [](const testing::TestParamInfo<const char*>& info) {
                             std::string name = info.param;
                             return name.substr(0, name.find('.'));
                         });

TEST_F(ReaderTest, EndedSpanIsNotRepeatedWithoutNewPositions) {
    OpenStream("silent.mp4", kStreamKindVideo);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    const size_t delivered = sink_.Count();
    EXPECT_EQ(control_->Run(), 0);  // a player resuming after the end
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(sink_.Count(), delivered);
    EXPECT_EQ(State(), kEnded);
}

// ---------------------------------------------------------------------------------------------
// Sound

TEST_F(ReaderTest, DeliversContinuousPcmWithTheBeeps) {
    OpenStream("equirect.mp4", kStreamKindAudio);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    const std::vector<PushedRecord> records = sink_.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.front().start, 0);

    std::vector<int16_t> pcm;
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].kind, kMediaKindAudio);
        EXPECT_EQ(records[i].size % 4, 0u) << "whole stereo 16-bit sample frames";
        EXPECT_EQ(records[i].stop - records[i].start,
                  static_cast<int64_t>(records[i].pcm.size() / 2) * kSecond / 48000);
        if (i > 0) {
            EXPECT_NEAR(records[i].start, records[i - 1].stop, 1) << "block " << i;
        }
        pcm.insert(pcm.end(), records[i].pcm.begin(), records[i].pcm.end());
    }
    EXPECT_NEAR(static_cast<double>(pcm.size() / 2), 2 * 48000.0, 1024.0);

    // Loud during the first tenth of each second, silent in the middle of it.
    auto level = [&](double from, double to) {
        double sum = 0;
        const size_t a = static_cast<size_t>(from * 48000) * 2,
                     b = static_cast<size_t>(to * 48000) * 2;
        for (size_t i = a; i < b && i < pcm.size(); ++i) sum += std::abs(pcm[i]);
        return sum / static_cast<double>(b - a);
    };
    for (int second : {0, 1}) {
        EXPECT_GT(level(second + 0.02, second + 0.08), 3000.0) << "beep at " << second << " s";
        EXPECT_LT(level(second + 0.3, second + 0.9), 50.0) << "silence after " << second << " s";
    }
}

TEST_F(ReaderTest, SoundSpanIsCutToTheSample) {
    OpenStream("equirect.mp4", kStreamKindAudio);
    Span(kSecond / 2, kSecond);
    ASSERT_TRUE(WaitForState(kEnded));
    const std::vector<PushedRecord> records = sink_.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.front().start, kSecond / 2);
    EXPECT_EQ(records.back().stop, kSecond);
    size_t samples = 0;
    for (const PushedRecord& r : records) samples += r.pcm.size() / 2;
    EXPECT_EQ(samples, 24000u);
}

// ---------------------------------------------------------------------------------------------
// States: refusal, pause, stop, destruction

TEST_F(ReaderTest, RefusedPushEndsTheSpanWithoutEndOfStream) {
    OpenStream("equirect.mp4", kStreamKindVideo);
    sink_.RefuseAfter(3);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(sink_.Count(), 3u);
    EXPECT_EQ(sink_.Refused(), 1);
    EXPECT_EQ(sink_.EndOfStreams(), 0);

    // The reader takes a new span afterwards.
    sink_.RefuseAfter(-1);
    sink_.Clear();
    Span(15 * kFrame, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(15, 19));
}

TEST_F(ReaderTest, PauseHoldsDeliveryAndRunResumesWhereItWas) {
    OpenStream("equirect.mp4", kStreamKindVideo);
    sink_.Hold(true);
    Span(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return sink_.InPush(); }));
    control_->Pause();
    EXPECT_EQ(State(), kPaused);
    sink_.Hold(false);  // the push under way completes; nothing follows while paused
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(sink_.Count(), 1u);

    ASSERT_EQ(control_->Run(), 0);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(0, 19));
}

TEST_F(ReaderTest, StopDuringAPushReportsStoppingUntilItReturns) {
    OpenStream("equirect.mp4", kStreamKindVideo);
    sink_.Hold(true);
    Span(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return sink_.InPush(); }));
    control_->Stop();
    EXPECT_EQ(State(), kStopping) << "a sink call is still under way";
    sink_.Hold(false);
    ASSERT_TRUE(WaitForState(kIdle));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(sink_.Count(), 1u) << "nothing more of the stopped span";
    EXPECT_EQ(sink_.EndOfStreams(), 0);

    // Run after Stop delivers the positioned span again.
    sink_.Clear();
    ASSERT_EQ(control_->Run(), 0);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(0, 19));
}

TEST_F(ReaderTest, ReleasingARunningReaderEndsDelivery) {
    OpenStream("equirect.mp4", kStreamKindVideo);
    Span(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return sink_.Count() > 0; }));
    // TearDown drops the last references while the reader may still be delivering, and checks
    // that the sink got its reference back.
}

// ---------------------------------------------------------------------------------------------
// Damaged input

TEST_F(ReaderTest, CutFilePlaysWhatItHoldsAndEnds) {
    OpenStream("cut.mp4", kStreamKindVideo);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    const std::vector<int64_t> frames = Frames(sink_.Records());
    ASSERT_FALSE(frames.empty());
    EXPECT_LT(frames.size(), 20u);
    EXPECT_EQ(frames, Sequence(0, static_cast<int64_t>(frames.size()) - 1));
    EXPECT_EQ(sink_.EndOfStreams(), 1);
}

TEST_F(ReaderTest, DamagedPacketsAreSkipped) {
    OpenStream("damaged.mp4", kStreamKindVideo);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    const std::vector<PushedRecord> records = sink_.Records();
    EXPECT_GE(records.size(), 10u);
    for (size_t i = 1; i < records.size(); ++i) {
        EXPECT_GT(records[i].start, records[i - 1].start);
    }
    EXPECT_EQ(sink_.EndOfStreams(), 1);
}

}  // namespace
}  // namespace vexel::decodehost_test
