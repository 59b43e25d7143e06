// Seeks decode only what they must: before the target the decoder drops the pictures nothing
// refers to, and the pictures it does decode there are neither converted nor pushed.
#include <gtest/gtest.h>

#include "media_reader.h"
#include "recording_sink.h"
#include "vexel/counted_ref.h"
#include "video_stream.h"

namespace vexel::decodehost {
namespace {

using decodehost_test::Clip;
using decodehost_test::kFrame;

// Seeks in every direction on equirect.mp4 (20 frames, keyframes at frames 0 and 10), some after
// a partly read catch-up, each showing its own frame. Before the target the decoder drops the
// pictures nothing refers to; a seek within the keyframe interval ahead reads on (decoding less
// than a seek from the keyframe), one behind or after an unfinished catch-up (whose skipped
// pictures are gone) goes back.
TEST(SeekTest, EverySeekShowsItsTargetFrame) {
    const decodehost_test::VideoStream opened = decodehost_test::OpenVideo("equirect.mp4");
    ASSERT_TRUE(opened.decoder);
    StreamDecoder* decoder = opened.decoder.get();
    VideoConverter converter(decoder->codec()->width, decoder->codec()->height);
    std::vector<uint8_t> pixels(converter.bytes());

    // Pictures decoded to show `target`; `readOnly` pictures are read when a catch-up is cut short.
    auto show = [&](int64_t target, int readOnly = 0) -> uint64_t {
        const uint64_t before = StreamDecoder::PicturesForTesting();
        decoder->Seek(target * kFrame);
        int64_t ticks = -1;
        AVFrame* frame = nullptr;
        if (readOnly > 0) {
            for (int i = 0; i < readOnly; ++i) decoder->Next(&ticks);
            return 0;
        }
        while (ticks < target * kFrame && (frame = decoder->Next(&ticks)) != nullptr) {}
        EXPECT_EQ(ticks, target * kFrame) << "target " << target;
        // The target itself is decoded in full, from intact references.
        if (frame == nullptr || !converter.Convert(frame, pixels.data())) {
            ADD_FAILURE() << "target " << target << " not decoded";
            return 0;
        }
        EXPECT_EQ(decodehost_test::FrameNumber(pixels.data(), frame->width, frame->height), target);
        return StreamDecoder::PicturesForTesting() - before;
    };

    // (Not at the clip's end, where the last pictures come only once the input ended.)
    const uint64_t fromKeyframe = show(17);
    EXPECT_LT(fromKeyframe, 17u - 10u + 1u) << "every picture from the keyframe was decoded";
    show(16);
    EXPECT_LT(show(17), fromKeyframe) << "one frame on was decoded from the keyframe again";
    for (int64_t target : {3, 7, 8, 12, 11, 0, 19, 10, 9}) show(target);
    show(19, 1);  // cut short at the keyframe: the pictures up to 19 may have been skipped
    for (int64_t target : {11, 13, 16}) show(target);
}

TEST(SeekTest, ReaderConvertsAndPushesOnlyFromTheTarget) {
    decodehost_test::RecordingSink sink(128, 64);
    {
        auto reader = CountedRef<Reader>::Adopt(NewObject<Reader>());
        CountedRef<MediaDescription> description;
        ASSERT_EQ(reader->Open(Clip("equirect.mp4").c_str(), description.put()), 0);
        ASSERT_EQ(reader->SelectStream(0, nullptr), 0);  // the generator writes video first
        ASSERT_EQ(reader->SetSink(&sink), 0);

        // Runs a span; the frames it pushed, and the pictures decoded and converted meanwhile.
        uint64_t decoded = 0, converted = 0;
        auto span = [&](int64_t current, int64_t stop) {
            sink.Clear();
            const uint64_t pictures = StreamDecoder::PicturesForTesting();
            const uint64_t conversions = VideoConverter::ConversionsForTesting();
            reader->SetPositions(&current, 0, &stop, 0);
            EXPECT_EQ(reader->Run(), 0);
            // The span is over once the reader has ended, just after the end-of-stream call: a
            // Run before that finds it still running and starts nothing.
            EXPECT_TRUE(decodehost_test::WaitUntil([&] {
                uint32_t state = Reader::kIdle;
                reader->GetState(&state);
                return sink.EndOfStreams() == 1 && state == Reader::kEnded;
            }));
            decoded = StreamDecoder::PicturesForTesting() - pictures;
            converted = VideoConverter::ConversionsForTesting() - conversions;
            return decodehost_test::Frames(sink.Records());
        };

        EXPECT_EQ(span(15 * kFrame, 0), (std::vector<int64_t>{15, 16, 17, 18, 19}));
        EXPECT_EQ(converted, 5u) << "pictures before the target were converted";

        // A seek's span of one frame: that picture only, and the next one is not decoded, so a
        // seek one frame on decodes exactly its own picture.
        const int64_t half = kFrame / 2;
        EXPECT_EQ(span(12 * kFrame - half, 12 * kFrame + half), std::vector<int64_t>{12});
        EXPECT_EQ(converted, 1u);
        EXPECT_EQ(span(13 * kFrame - half, 13 * kFrame + half), std::vector<int64_t>{13});
        EXPECT_EQ(decoded, 1u);
        EXPECT_EQ(converted, 1u);
        // A seek to a keyframe starts at that keyframe, not at the one before the span's start.
        EXPECT_EQ(span(10 * kFrame - half, 10 * kFrame + half), std::vector<int64_t>{10});
        EXPECT_EQ(decoded, 1u);
    }  // the reader lets go of the sink
}

}  // namespace
}  // namespace vexel::decodehost
