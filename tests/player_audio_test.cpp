// Sound of a real clip through the exported interface, as the audio renderer writes it with
// VEXEL_AUDIO_CAPTURE: it starts with the first presented picture and stays with the pictures, runs
// on unbroken across a pause, carries the silence of a time freeze, and follows volume and mute.
// The clip's sound is a 100 ms beep at the start of every stream second, at a known level, so the
// capture shows where each second of the stream was heard and how loud.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "player_fixture.h"
#include "wav_reader.h"

namespace player_test {
namespace {

// How far the first sound may be from the first picture. Under ThreadSanitizer the decoder is
// so slow that the first sound comes up to about 70 ms after the picture (and stays that far).
#ifdef __SANITIZE_THREAD__
constexpr double kStartToleranceMs = 100.0;
#else
constexpr double kStartToleranceMs = 20.0;
#endif

// A beep as heard: where it starts and ends in the capture, and its level against the generator's
// (a 1 kHz sine at half of full scale, panned with constant power, so left² + right² does not
// depend on the pan).
struct Beep {
    double startMs, endMs, gain;
};

std::vector<Beep> FindBeeps(const WavCaptureFile& wav) {
    constexpr int kLoud = 300;        // well above the coder's noise, well below a beep at -20 dB
    constexpr double kJoinMs = 10.0;  // a sine's zero crossings are not silence
    constexpr double kFullPower = 16383.5 * 16383.5 / 2;
    const double perMs = wav.rate / 1000.0;
    const auto frames = static_cast<int64_t>(wav.Frames());
    auto loud = [&](int64_t j) {
        return std::abs(wav.samples[2 * j]) > kLoud || std::abs(wav.samples[2 * j + 1]) > kLoud;
    };
    std::vector<Beep> beeps;
    for (int64_t j = 0; j < frames; ++j) {
        if (!loud(j)) continue;
        const int64_t start = j;
        int64_t end = j;
        for (; j < frames && j - end < kJoinMs * perMs; ++j) {
            if (loud(j)) end = j;
        }
        // The level over the middle of the beep, away from its fades and the coder's edges.
        double power = 0;
        int64_t count = 0;
        for (int64_t k = start + static_cast<int64_t>(15 * perMs);
             k < end - static_cast<int64_t>(15 * perMs); ++k, ++count) {
            power += double(wav.samples[2 * k]) * wav.samples[2 * k] +
                     double(wav.samples[2 * k + 1]) * wav.samples[2 * k + 1];
        }
        beeps.push_back({start / perMs, (end + 1) / perMs,
                         count > 0 ? std::sqrt(power / count / kFullPower) : 0.0});
    }
    return beeps;
}

// Beep at `startMs` for `lengthMs` at `gain`, as the capture heard it.
void ExpectBeep(const Beep& beep, double startMs, double lengthMs, double gain = 1.0) {
    EXPECT_NEAR(beep.startMs, startMs, 3.0);
    EXPECT_NEAR(beep.endMs - beep.startMs, lengthMs, 5.0);
    EXPECT_NEAR(beep.gain, gain, 0.05 * gain);
}

class PlayerAudio : public PlayerTest {
protected:
    void SetUp() override {
        capture = UseCaptureFile(testing::UnitTest::GetInstance()->current_test_info()->name());
        PlayerTest::SetUp();
        ASSERT_EQ(OpenClip(), 0);
        SetViewDim(player, 32, 16);
    }
    void TearDown() override {
        PlayerTest::TearDown();
        std::remove(capture.c_str());
    }

    // Destroys the player (which completes the capture) and reads it.
    WavCaptureFile Finish() {
        destroyStart = Clock::now();
        DestroyPlayer();
        destroyEnd = Clock::now();
        WavCaptureFile wav = ReadWavCapture(capture);
        EXPECT_TRUE(wav.ok) << capture;
        EXPECT_EQ(wav.channels, 2);
        return wav;
    }

    struct Seen {
        double atMs;  // when the picture was first seen, since `origin`
        Picture picture;
    };
    // Watches the presented pictures until `ms` after the first one (or 10 s without one), noting
    // each new one.
    std::vector<Seen> Watch(Clock::time_point origin, double ms) {
        std::vector<Seen> seen;
        while (MsSince(origin) < (seen.empty() ? 10'000.0 : seen.front().atMs + ms)) {
            Poll([&](const Picture& p) {
                if (!p.end && (seen.empty() || seen.back().picture.time != p.time)) {
                    seen.push_back({MsSince(origin), p});
                }
            });
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return seen;
    }

    // When the pictures' clock read stream time 0, since `origin`, judged from the pictures seen
    // within [fromMs, toMs): a picture is never seen before its time, so the earliest sighting
    // relative to its time is the closest, however loaded the machine.
    static double ClockStartMs(const std::vector<Seen>& seen, double fromMs, double toMs) {
        double start = 1e300;
        for (const Seen& s : seen) {
            if (s.atMs >= fromMs && s.atMs < toMs) {
                start = std::min(start, s.atMs - double(s.picture.time) / vexel::kTicksPerMs);
            }
        }
        return start;
    }

    // When the capture began, since `origin`: it runs until the device closes, at the end of
    // Destroy (so known to within Destroy's time).
    double CaptureStartMs(const WavCaptureFile& wav, Clock::time_point origin) const {
        return std::chrono::duration<double, std::milli>(destroyEnd - origin).count() -
               wav.Seconds() * 1000.0;
    }

    static void SleepUntil(Clock::time_point origin, double ms) {
        std::this_thread::sleep_until(origin +
                                      std::chrono::microseconds(static_cast<int64_t>(ms * 1000)));
    }

    std::string capture;
    Clock::time_point destroyStart, destroyEnd;
};

// Played from 1.2 s with a freeze at 3.05 s: the capture starts there, every later second is
// heard whole and in its place, the one at 3 s cut 50 ms in by the freeze's 300 ms of silence,
// and all at the pictures' time over 4 s. Frame 77, the first after 3050 ms, holds the picture
// from then until its own time, 300 ms late, as do all frames after it.
TEST_F(PlayerAudio, SoundFromAPositionStaysWithThePicturesThroughATimeFreeze) {
    const double freezeAt = 3050.0, freezeFor = 300.0;
    SetTimeFreeze(player, &freezeAt, &freezeFor, 1);
    const auto played = Clock::now();
    Play(player, 30 * kFrame);
    const std::vector<Seen> seen = Watch(played, 4000.0);
    const WavCaptureFile wav = Finish();
    const std::vector<Beep> beeps = FindBeeps(wav);
    // Each beep's start on the pictures' timeline, and its length (a later one may be cut by
    // Destroy).
    const double startMs[] = {2000.0, 3000.0, 3350.0, 4300.0},
                 lengthMs[] = {100.0, 50.0, 50.0, 100.0};
    ASSERT_GE(beeps.size(), 4u);
    EXPECT_NEAR(beeps[0].startMs, 800.0, kStartToleranceMs)
        << "the sound began away from the first picture";
    for (size_t k = 0; k < 4; ++k) {
        SCOPED_TRACE(k);
        ExpectBeep(beeps[k], beeps[0].startMs + startMs[k] - startMs[0], lengthMs[k]);
    }

    // The first and the fourth beep against the pictures' clock over the first and the last
    // second. Positive: the sound is ahead.
    const double captureStart = CaptureStartMs(wav, played);
    ASSERT_FALSE(seen.empty());
    const double early = ClockStartMs(seen, 0, seen.front().atMs + 1000.0);
    const double late = ClockStartMs(seen, seen.back().atMs - 1000.0, seen.back().atMs + 1.0);
    const double first = early + startMs[0] - (captureStart + beeps[0].startMs);
    const double final = late + startMs[3] - (captureStart + beeps[3].startMs);
    const double uncertainMs =
        std::chrono::duration<double, std::milli>(destroyEnd - destroyStart).count();
    EXPECT_LT(std::fabs(first), kStartToleranceMs + uncertainMs)
        << "the first beep is off the pictures by " << first << " ms";
    EXPECT_LT(std::fabs(final - first), 10.0) << "the sound drifted by " << final - first << " ms";

    bool held = false;
    for (const Seen& s : seen) {
        const int64_t f = s.picture.frame;
        const int64_t time = f * kFrame + (f >= 77 ? 3 * kSecond / 10 : 0);
        if (f == 77 && s.picture.time < time) {
            held = true;
            EXPECT_GE(s.picture.time, 30'500'000);
        } else {
            EXPECT_EQ(s.picture.time, time) << "frame " << f;
        }
    }
    EXPECT_TRUE(held) << "no copy of frame 77 during the freeze";
}

// A pause leaves one silence and loses or repeats nothing; mute silences the sound, a volume set
// while muted brings it back at that volume, and unmuting returns to the volume set before. Each
// change comes halfway between two beeps.
TEST_F(PlayerAudio, PauseVolumeAndMuteShapeTheSound) {
    Play(player, 0);
    bool shown = false;
    ASSERT_TRUE(WaitUntil([&] {
        Poll([&](const Picture&) { shown = true; });
        return shown;
    })) << "no picture presented";
    const auto first = Clock::now();
    SleepUntil(first, 1450);
    // Each call is bracketed by two readings: on a loaded machine a call may take long, and the
    // sound stops and resumes somewhere inside it.
    const double pauseCalledMs = MsSince(first);
    Pause(player);
    const double pausedMs = MsSince(first);
    std::this_thread::sleep_for(milliseconds(400));
    const double playCalledMs = MsSince(first);
    Play(player, -1);
    const double playedMs = MsSince(first);
    const double behind = (playCalledMs + playedMs - pauseCalledMs - pausedMs) / 2;  // the pause
    SleepUntil(first, behind + 1500);
    Mute(player, true);
    SleepUntil(first, behind + 2500);
    SetVolume(player, -2000);  // -20 dB, while muted: the sound returns at it
    SleepUntil(first, behind + 3500);
    Mute(player, true);
    SleepUntil(first, behind + 4500);
    Mute(player, false);  // back at the volume set before
    SleepUntil(first, behind + 5500);
    const std::vector<Beep> beeps = FindBeeps(Finish());
    ASSERT_EQ(beeps.size(), 4u) << "a beep was heard while muted, or one lost";
    EXPECT_NEAR(beeps[1].startMs, 1000.0, kStartToleranceMs)
        << "the sound began away from the first picture";
    ExpectBeep(beeps[1], beeps[1].startMs, 100.0);
    // The seconds 2 and 4 were muted; 3 comes after the pause's silence.
    const double gap = beeps[2].startMs - beeps[1].startMs - 2000.0;
    EXPECT_GT(gap, playCalledMs - pausedMs - 30.0);
    EXPECT_LT(gap, playedMs - pauseCalledMs + 30.0);
    ExpectBeep(beeps[2], beeps[2].startMs, 100.0, 0.1);
    ExpectBeep(beeps[3], beeps[2].startMs + 2000.0, 100.0, 0.1);
}

}  // namespace
}  // namespace player_test
