// Seeks decode only what they must: before the target the decoder drops the pictures nothing
// refers to, and the pictures it does decode there are neither converted nor pushed.
#include <gtest/gtest.h>

#include "media_reader.h"
#include "recording_sink.h"
#include "vexel/counted_ref.h"

namespace vexel::decodehost {
namespace {

using decodehost_test::Clip;
using decodehost_test::kFrame;

// equirect.mp4: 20 frames, keyframes at frames 0 and 10.
constexpr int64_t kTarget = 19;
constexpr int64_t kKeyframe = 10;

TEST(SeekTest, DecodesOnlyReferencePicturesBeforeTheTarget) {
    int error = 0;
    auto file = MediaFile::Open(
        Clip("equirect.mp4").c_str(), [] { return false; }, &error);
    ASSERT_TRUE(file);
    const int index = av_find_best_stream(file->context(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    auto decoder = StreamDecoder::Open(*file, index);
    ASSERT_TRUE(decoder);

    const uint64_t before = StreamDecoder::PicturesForTesting();
    decoder->Seek(kTarget * kFrame);
    int64_t ticks = -1;
    AVFrame* frame = nullptr;
    while (ticks < kTarget * kFrame && (frame = decoder->Next(&ticks)) != nullptr) {}
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(ticks, kTarget * kFrame);
    // From the keyframe every picture up to the target would be kTarget - kKeyframe + 1.
    EXPECT_LT(StreamDecoder::PicturesForTesting() - before,
              static_cast<uint64_t>(kTarget - kKeyframe + 1));

    // The target itself was decoded in full, from intact references.
    VideoConverter converter(frame->width, frame->height);
    std::vector<uint8_t> pixels(converter.bytes());
    ASSERT_TRUE(converter.Convert(frame, pixels.data()));
    EXPECT_EQ(decodehost_test::FrameNumber(pixels.data(), frame->width, frame->height, true),
              kTarget);

    // A later seek back to the start decodes its pictures again, none skipped.
    decoder->Seek(0);
    for (int64_t expected = 0; expected < kKeyframe; ++expected) {
        ASSERT_NE(decoder->Next(&ticks), nullptr);
        EXPECT_EQ(ticks, expected * kFrame);
    }
}

TEST(SeekTest, ReaderConvertsAndPushesOnlyFromTheTarget) {
    decodehost_test::RecordingSink sink(128, 64);
    {
        auto reader = CountedRef<Reader>::Adopt(NewObject<Reader>());
        CountedRef<MediaDescription> description;
        ASSERT_EQ(reader->Open(Clip("equirect.mp4").c_str(), description.put()), 0);
        uint32_t count = 0, video = 0;
        description->GetStreamCount(&count);
        for (uint32_t i = 0; i < count; ++i) {
            StreamInfo info{};
            description->GetStreamInfo(static_cast<uint16_t>(i), nullptr, &info, nullptr, nullptr,
                                       nullptr);
            if (info.kind == kStreamKindVideo) video = i;
        }
        ASSERT_EQ(reader->SelectStream(video, nullptr), 0);
        ASSERT_EQ(reader->SetSink(&sink), 0);

        const uint64_t before = VideoConverter::ConversionsForTesting();
        int64_t current = 15 * kFrame, stop = 0;
        reader->SetPositions(&current, 0, &stop, 0);
        ASSERT_EQ(reader->Run(), 0);
        ASSERT_TRUE(decodehost_test::WaitUntil([&] { return sink.EndOfStreams() == 1; }));

        std::vector<int64_t> frames;
        for (const auto& record : sink.Records()) frames.push_back(record.frame);
        EXPECT_EQ(frames, (std::vector<int64_t>{15, 16, 17, 18, 19}));
        EXPECT_EQ(VideoConverter::ConversionsForTesting() - before, frames.size())
            << "pictures before the target were converted";
    }  // the reader lets go of the sink
}

}  // namespace
}  // namespace vexel::decodehost
