// The decoder's picture buffers: every picture held downstream has a buffer of its own that stays
// valid after its decoder is gone, buffers let go while the decoder lives wait for reuse only up
// to FramePool::kIdleBuffers, and every buffer goes back to the system in the end.
#include <gtest/gtest.h>

#include <vector>

#include "frame_pool.h"
#include "video_stream.h"

namespace vexel::decodehost {
namespace {

// A checksum of the luma plane, as the decoder wrote it.
uint64_t LumaSum(const AVFrame& frame) {
    uint64_t sum = 0;
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) sum += frame.data[0][y * frame.linesize[0] + x];
    }
    return sum;
}

TEST(FramePoolTest, HeldPicturesOutliveTheDecoderAndIdleBuffersAreBounded) {
    const int64_t before = FramePool::MappedForTesting();
    std::vector<FramePtr> held;
    std::vector<uint64_t> sums;
    {
        const decodehost_test::VideoStream opened = decodehost_test::OpenVideo("equirect.mp4");
        ASSERT_TRUE(opened.decoder);
        StreamDecoder* decoder = opened.decoder.get();
        decoder->Seek(0);
        int64_t ticks = 0;
        for (AVFrame* frame; (frame = decoder->Next(&ticks)) != nullptr;) {
            held.emplace_back(av_frame_clone(frame));
            sums.push_back(LumaSum(*frame));
        }
        ASSERT_EQ(held.size(), 20u);
        EXPECT_GE(FramePool::MappedForTesting() - before, 20) << "pictures share a buffer";

        // The first half let go (the drained decoder refers to none of them) while the decoder
        // lives: no more than kIdleBuffers of them stay mapped.
        held.erase(held.begin(), held.begin() + 10);
        sums.erase(sums.begin(), sums.begin() + 10);
        EXPECT_LE(FramePool::MappedForTesting() - before,
                  static_cast<int64_t>(10 + FramePool::kIdleBuffers));
    }
    for (size_t i = 0; i < held.size(); ++i) {
        EXPECT_EQ(LumaSum(*held[i]), sums[i]) << "picture " << i << " changed after its decoder";
    }
    held.clear();
    EXPECT_EQ(FramePool::MappedForTesting(), before);
}

}  // namespace
}  // namespace vexel::decodehost
