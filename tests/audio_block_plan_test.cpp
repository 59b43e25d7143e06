// How a decoded audio block is shifted and split around a time freeze: the worked example, the
// block-boundary cases and frame alignment (the audio plan fuzzer checks that every piece lies
// inside the data for any input).
#include "audio/audio_block_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "engine/time_freeze.h"
#include "vexel/ticks.h"

namespace vexel {
namespace {

// 48 kHz, 2 channels, 16 bits: 192 bytes per millisecond, 4 bytes per frame.
constexpr uint32_t kBytesPerMs = 192, kFrame = 4;

// A block of `ms` milliseconds at `startMs`, looked up in `freezes` as the engine does.
AudioBlockInput Block(const TimeFreezeList& freezes, double startMs, double ms,
                      uint32_t bytesPerMs = kBytesPerMs, uint32_t frameBytes = kFrame) {
    const FreezeShift atStart = freezes.ShiftAt(static_cast<float>(startMs));
    const FreezeShift atStop = freezes.ShiftAt(static_cast<float>(startMs + ms));
    return {.size = static_cast<uint32_t>(ms * bytesPerMs),
            .start = static_cast<int64_t>(startMs * kTicksPerMs),
            .stop = static_cast<int64_t>((startMs + ms) * kTicksPerMs),
            .shiftStart = atStart.shift,
            .lastStart = atStart.lastTime,
            .shiftStop = atStop.shift,
            .lastStop = atStop.lastTime,
            .lastDuration = atStop.lastDuration,
            .bytesPerMs = bytesPerMs,
            .frameBytes = frameBytes};
}

// A freeze list holding `segments`.
class Freezes : public TimeFreezeList {
public:
    explicit Freezes(const std::vector<FreezeSegment>& segments) {
        std::vector<double> times, durations;
        for (const FreezeSegment& s : segments) {
            times.push_back(s.time);
            durations.push_back(s.duration);
        }
        Set(times.data(), durations.data(), static_cast<int32_t>(segments.size()));
    }
};

std::vector<uint8_t> Numbered(uint32_t size) {
    std::vector<uint8_t> bytes(size);
    for (uint32_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(1 + i % 251);  // never 0
    return bytes;
}

// The whole split block, piece after piece.
std::vector<uint8_t> Joined(const AudioBlockPlan& plan, const std::vector<uint8_t>& block) {
    std::vector<uint8_t> out;
    for (uint32_t i = 0; i < plan.PieceCount(); ++i) {
        const AudioPiece piece = plan.Piece(i);
        std::vector<uint8_t> bytes(piece.size);
        plan.Fill(block.data(), piece, bytes.data(), 0);
        out.insert(out.end(), bytes.begin(), bytes.end());
    }
    return out;
}

TEST(AudioBlockPlan, WorkedExampleFreezeFiveMillisecondsIntoATwentyMillisecondBlock) {
    const Freezes freezes({{1005, 500}});
    const AudioBlockPlan plan(Block(freezes, 1000, 20));
    ASSERT_TRUE(plan.Split());
    EXPECT_EQ(plan.HeadBytes(), 960u);
    EXPECT_EQ(plan.SilenceBytes(), 96000u);
    EXPECT_EQ(plan.TailBytes(), 2880u);
    EXPECT_EQ(plan.TotalBytes(), 99840u);
    ASSERT_EQ(plan.PieceCount(), 26u);
    for (uint32_t i = 0; i < 26; ++i) {
        const AudioPiece piece = plan.Piece(i);
        EXPECT_EQ(piece.size, 3840u);
        EXPECT_EQ(piece.offset, i * 3840u);
        // The first piece keeps the block's own times; each next one is 20 ms later.
        EXPECT_EQ(piece.start, (1000 + 20 * int64_t{i}) * kTicksPerMs) << i;
        EXPECT_EQ(piece.stop, (1020 + 20 * int64_t{i}) * kTicksPerMs) << i;
    }
}

// A 20 ms block at 1000 ms against freezes placed around it.
TEST(AudioBlockPlan, BlockBoundaries) {
    const struct {
        const char* what;
        std::vector<FreezeSegment> freezes;
        uint32_t head;  // 0: no split
        int64_t firstStartMs, lastStopMs;
    } cases[] = {
        {"a freeze after it: its own times", {{1500, 500}}, 0, 1000, 1020},
        {"a freeze 5 ms in: head, silence, tail", {{1005, 500}}, 960, 1000, 1520},
        {"a freeze at its start shifts it, inserting nothing", {{1000, 500}}, 0, 1500, 1520},
        {"an earlier freeze shifts every piece", {{200, 300}, {1005, 500}}, 960, 1300, 1820},
        {"a freeze at its stop: the block, then the silence", {{1020, 500}}, 3840, 1000, 1520},
    };
    const std::vector<uint8_t> block = Numbered(3840);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const AudioBlockPlan plan(Block(Freezes(c.freezes), 1000, 20));
        ASSERT_EQ(plan.Split(), c.head != 0);
        const AudioPiece last = plan.Piece(plan.PieceCount() - 1);
        EXPECT_EQ(plan.Piece(0).start, c.firstStartMs * kTicksPerMs);
        EXPECT_EQ(last.stop, c.lastStopMs * kTicksPerMs);
        if (!plan.Split()) continue;
        // The block's bytes around the silence, in order.
        EXPECT_EQ(plan.HeadBytes(), c.head);
        const std::vector<uint8_t> out = Joined(plan, block);
        EXPECT_TRUE(std::equal(block.begin(), block.begin() + c.head, out.begin()));
        EXPECT_TRUE(std::all_of(out.begin() + c.head, out.begin() + c.head + plan.SilenceBytes(),
                                [](uint8_t b) { return b == 0; }));
        EXPECT_TRUE(std::equal(block.begin() + c.head, block.end(), out.end() - plan.TailBytes()));
    }
    // The block after a freeze at a block's stop follows the silence without a gap.
    const Freezes freezes({{1020, 500}});
    const AudioBlockPlan before(Block(freezes, 1000, 20));
    const AudioBlockPlan after(Block(freezes, 1020, 20));
    EXPECT_EQ(before.Piece(before.PieceCount() - 1).stop, after.MappedStart());
}

TEST(AudioBlockPlan, ALeftoverShorterThanABlockGoesOutLastWithItsOwnLength) {
    const AudioBlockPlan plan(Block(Freezes({{1005, 510}}), 1000, 20));
    EXPECT_EQ(plan.TotalBytes(), 192u * 510 + 3840);
    ASSERT_EQ(plan.PieceCount(), 27u);
    const AudioPiece last = plan.Piece(26);
    EXPECT_EQ(last.offset, 26u * 3840);
    EXPECT_EQ(last.size, 1920u);
    EXPECT_EQ(last.start, (1000 + 26 * 20) * kTicksPerMs);
    EXPECT_EQ(last.stop, last.start + 10 * kTicksPerMs);  // 1920 bytes are 10 ms

    // The longest freeze a list holds still makes a plan of a size a sample can carry (the audio
    // plan fuzzer holds every piece inside it).
    const AudioBlockPlan huge(Block(Freezes({{1005, TimeFreezeList::kMaxMs}}), 1000, 20));
    EXPECT_LE(huge.TotalBytes(), uint32_t{INT32_MAX});
}

TEST(AudioBlockPlan, SplitsAreCutToWholeSampleFrames) {
    // 44.1 kHz, 6 channels, 16 bits: 529 bytes per millisecond (truncated), 12 bytes per frame.
    const uint32_t bytesPerMs = 529, frame = 12;
    AudioBlockInput in = Block(Freezes({{1007, 333}}), 1000, 20, bytesPerMs, frame);
    in.size = 882 * frame;  // the block's 20 ms are whole frames
    const AudioBlockPlan plan(in);
    ASSERT_TRUE(plan.Split());
    EXPECT_EQ(plan.HeadBytes() % frame, 0u);
    EXPECT_EQ(plan.SilenceBytes() % frame, 0u);
    EXPECT_EQ(plan.TailBytes() % frame, 0u);
    EXPECT_EQ(plan.TotalBytes() % frame, 0u);
    EXPECT_NEAR(plan.HeadBytes(), 7.0 * bytesPerMs, frame);
    EXPECT_NEAR(plan.SilenceBytes(), 333.0 * bytesPerMs, frame);
    for (uint32_t i = 0; i < plan.PieceCount(); ++i) EXPECT_EQ(plan.Piece(i).size % frame, 0u) << i;
}

}  // namespace
}  // namespace vexel
