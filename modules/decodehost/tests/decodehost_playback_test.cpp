// Generated clips played through the player's exported interface, with the decoder module found
// beside libVexelPlayer.so: frames and their times, end of stream, play ranges, frame-accurate
// seeks and destruction while playing (bad input is read in decodehost_reader_test).
#include <cmath>

#include "decodehost_test_support.h"
#include "vexelplayer.h"

namespace vexel::decodehost_test {
namespace {

struct Shown {
    int64_t frame = -1;  // drawn frame number
    int64_t time = 0;    // sample time, ticks
    bool seek = false;
};

class PlaybackTest : public testing::Test {
protected:
    void SetUp() override { player_ = Create(); }
    void TearDown() override { Destroy(player_); }

    // Takes the current samples until the end marker arrives; false if it does not.
    bool PlayToEnd(std::vector<Shown>& shown) {
        bool ended = false;
        const bool done = WaitUntil([&] {
            InlayBuffer_Release(GetCurrentViewSample(player_));
            if (InlayBuffer* pre = GetCurrentPreSample(player_)) {
                if (InlayBuffer_GetWidth(pre) == 0) {
                    ended = true;
                } else {
                    shown.push_back(Read(pre));
                }
                InlayBuffer_Release(pre);
            }
            return ended;
        });
        return done && ended;
    }

    // The picture a seek presents: the last one before the end marker that closes the seek (the
    // marker carries the seek flag; the picture itself need not). The caller stops the player
    // before the next seek: requests wait while the player is Seeking.
    Shown SeekTo(int64_t time) {
        Seek(player_, time);
        Shown shown;
        bool closed = false;
        const bool found = WaitUntil([&] {
            InlayBuffer_Release(GetCurrentViewSample(player_));
            if (InlayBuffer* pre = GetCurrentPreSample(player_)) {
                if (InlayBuffer_GetWidth(pre) != 0) {
                    shown = Read(pre);
                } else {
                    closed = InlayBuffer_GetSeek(pre);
                }
                InlayBuffer_Release(pre);
            }
            return closed;
        });
        EXPECT_TRUE(found) << "no end of the seek to " << time;
        return shown;
    }

    static Shown Read(InlayBuffer* sample) {
        return {FrameNumber(InlayBuffer_GetBuffer(sample),
                            static_cast<int>(InlayBuffer_GetWidth(sample)),
                            static_cast<int>(InlayBuffer_GetHeight(sample))),
                static_cast<int64_t>(InlayBuffer_GetTime(sample)), InlayBuffer_GetSeek(sample)};
    }

    // The frames were presented in order, each at its own time, from `first` to `last`. A test
    // thread that a loaded machine holds back may miss a picture (the next one replaces it), so
    // gaps are allowed; a frame out of order, repeated or with a wrong time is not. The last
    // picture is always seen: the end marker waits for it to be taken.
    static void ExpectInOrder(const std::vector<Shown>& shown, int64_t first, int64_t last) {
        ASSERT_FALSE(shown.empty());
        EXPECT_GE(shown.front().frame, first);
        EXPECT_EQ(shown.back().frame, last);
        for (size_t i = 0; i < shown.size(); ++i) {
            EXPECT_EQ(shown[i].time, shown[i].frame * kFrame) << "frame " << shown[i].frame;
            EXPECT_FALSE(shown[i].seek) << "frame " << shown[i].frame;
            if (i > 0) {
                EXPECT_GT(shown[i].frame, shown[i - 1].frame) << "out of order";
            }
        }
    }

    PlayerHandle player_ = nullptr;
};

// Each clip reports half its picture size, its frame rate and its play range, and plays every
// frame of the range in order, each at its own time, to its end (a dual-fisheye recording taken as
// it is still carries its frame numbers).
TEST_F(PlaybackTest, ClipsDescribeThemselvesAndPlayEveryFrameOfTheRange) {
    const struct {
        const char* clip;
        uint32_t width, height;
        int64_t first, last;  // frames played
        int64_t start, stop;  // the range asked for; 0, 0 for the whole clip
    } clips[] = {{"equirect.mp4", 64, 32, 0, 19, 0, 0},
                 {"equirect.mp4", 64, 32, 5, 12, kSecond / 2, kSecond * 125 / 100},
                 {"partial.mp4", 64, 16, 0, 9, 0, 0},
                 {"dual-fisheye.mp4", 64, 32, 0, 9, 0, 0},
                 {"silent.mp4", 64, 32, 0, 9, 0, 0}};
    for (const auto& c : clips) {
        SCOPED_TRACE(c.clip);
        ASSERT_EQ(Open(player_, Clip(c.clip).c_str(), c.start, c.stop, 0), 0);
        EXPECT_EQ(GetWidth(player_), c.width);
        EXPECT_EQ(GetHeight(player_), c.height);
        EXPECT_DOUBLE_EQ(GetFrameRate(player_), 10.0);
        uint64_t start = 1, end = 0;
        GetRange(player_, &start, &end);
        EXPECT_EQ(start, static_cast<uint64_t>(c.start));
        EXPECT_EQ(end, static_cast<uint64_t>(c.stop ? c.stop : (c.last + 1) * kFrame));
        Play(player_, c.start);
        std::vector<Shown> shown;
        ASSERT_TRUE(PlayToEnd(shown));
        ExpectInOrder(shown, c.first, c.last);
        EXPECT_EQ(GetCurrentPlayTime(player_), c.last * kFrame);
    }
}

TEST_F(PlaybackTest, SeekShowsTheFrameNearestTheTarget) {
    ASSERT_EQ(Open(player_, Clip("equirect.mp4").c_str(), 0, 0, 0), 0);
    // Targets inside keyframe intervals, forwards and backwards, near the start and the end.
    for (const double seconds : {0.73, 1.46, 0.33, 1.77, 0.04, 1.92, 0.96, 1.04}) {
        const int64_t target = std::llround(seconds * kSecond);
        const Shown shown = SeekTo(target);
        Stop(player_);
        const int64_t nearest = std::llround(seconds * 10);
        EXPECT_EQ(shown.frame, nearest) << "seek to " << seconds << " s";
        EXPECT_EQ(shown.time, nearest * kFrame) << "seek to " << seconds << " s";
    }
}

TEST_F(PlaybackTest, DestroyWhilePlayingEndsCleanly) {
    ASSERT_EQ(Open(player_, Clip("equirect.mp4").c_str(), 0, 0, 0), 0);
    Play(player_, 0);
    ASSERT_TRUE(WaitUntil([&] { return GetCurrentPlayTime(player_) > 0; }));
    Destroy(player_);
    player_ = nullptr;  // TearDown's Destroy(nullptr) does nothing
}

}  // namespace
}  // namespace vexel::decodehost_test
