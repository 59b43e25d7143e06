// Sound through the exported interface, as the audio renderer writes it with VEXEL_AUDIO_CAPTURE:
// it starts with the first presented frame, runs on unbroken across a pause, carries the silence of
// a time freeze, and follows volume and mute. The scripted host's sound is a ramp that tells each
// sample frame apart, so the capture shows exactly which frame of the stream played when.
#include <dlfcn.h>

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

constexpr uint32_t kRate = 8000;          // the scripted sound: 8 kHz stereo 16-bit
constexpr int64_t kFramesPerBlock = 160;  // 20 ms blocks
constexpr double kFps = 25.0;

// Frame n of the scripted stream (left, right): block k holds the 16-bit values k*64 + byte offset.
std::pair<int16_t, int16_t> StreamFrame(int64_t n) {
    const int64_t k = n / kFramesPerBlock, f = n % kFramesPerBlock;
    const auto left = static_cast<uint16_t>(k * 64 + 4 * f);
    return {static_cast<int16_t>(left), static_cast<int16_t>(static_cast<uint16_t>(left + 2))};
}

struct Analysis {
    int64_t firstFrame = -1;   // capture frame of the first sound
    int64_t firstStream = -1;  // the stream frame heard there
    int64_t matched = 0;       // stream frames heard in order from there
    int64_t mismatches = 0;    // frames that are neither the next stream frame nor silence
    int64_t lost = 0;          // stream frames cut because they came too late (time kept)
    std::vector<std::pair<int64_t, int64_t>> gaps;  // inserted silences: capture frame, length
    // The stream frame heard at capture frame j, while the sound runs without an inserted gap.
    int64_t StreamAt(int64_t j) const { return firstStream + (j - firstFrame); }
};

bool Silent(const WavCaptureFile& wav, int64_t j) {
    return wav.samples[2 * j] == 0 && wav.samples[2 * j + 1] == 0;
}

bool Heard(const WavCaptureFile& wav, int64_t j, int64_t n) {
    const auto [l, r] = StreamFrame(n);
    return wav.samples[2 * j] == l && wav.samples[2 * j + 1] == r;
}

// Walks the capture: the sound must be the stream in order, interrupted only by silences, which
// either hold the stream (a pause, a freeze) or stand for frames that came too late. The first
// sound is placed by the longest agreement with the stream, the one nearest `hint` among equals.
Analysis Analyse(const WavCaptureFile& wav, int64_t streamFrames, int64_t hint = 0) {
    Analysis a;
    const auto frames = static_cast<int64_t>(wav.Frames());
    int64_t j = 0;
    while (j < frames && Silent(wav, j)) ++j;
    if (j == frames) return a;
    a.firstFrame = j;
    int64_t best = 0;
    for (int64_t n = 0; n < streamFrames; ++n) {
        int64_t length = 0;
        while (length < 400 && j + length < frames && Heard(wav, j + length, n + length)) ++length;
        if (length > best || (length == best && length > 0 &&
                              std::llabs(n - hint) < std::llabs(a.firstStream - hint))) {
            best = length;
            a.firstStream = n;
        }
    }
    if (a.firstStream < 0) return a;
    int64_t n = a.firstStream, silence = 0;
    for (; j < frames; ++j) {
        if (Silent(wav, j)) {
            ++silence;
            continue;
        }
        if (silence > 0 && !Heard(wav, j, n) && Heard(wav, j, n + silence)) {
            a.lost += silence;
            n += silence;
        } else if (silence > 0) {
            a.gaps.push_back({j - silence, silence});
        }
        silence = 0;
        if (Heard(wav, j, n)) {
            ++a.matched;
        } else {
            ++a.mismatches;
        }
        ++n;
    }
    return a;
}

class PlayerAudio : public PlayerTest {
protected:
    void SetUp() override {
        capture = UseCaptureFile(testing::UnitTest::GetInstance()->current_test_info()->name());
        // Loaded by path here, the module answers the player's load by plain name (same soname).
        ASSERT_NE(
            dlopen((std::string(VEXEL_MODULE_DIR) + "/libAudioFeedFilter.so").c_str(), RTLD_NOW),
            nullptr);
        PlayerTest::SetUp();
    }
    void TearDown() override {
        PlayerTest::TearDown();
        std::remove(capture.c_str());
    }

    // `seconds` of pictures at 25 fps and of sound in 20 ms blocks.
    static ScriptedScript AudioScript(double seconds) {
        ScriptedScript s = Script(static_cast<uint32_t>(seconds * kFps), kFps);
        s.audioBlocks = static_cast<uint32_t>(seconds * 50);
        return s;
    }

    // Waits for the first presented picture; the instant it shows up.
    Clock::time_point FirstPicture() {
        const auto deadline = Clock::now() + milliseconds(5000);
        while (Clock::now() < deadline) {
            InlayBuffer* pre = GetCurrentPreSample(player);
            InlayBuffer_Release(GetCurrentViewSample(player));
            if (pre != nullptr) {
                InlayBuffer_Release(pre);
                return Clock::now();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        ADD_FAILURE() << "no picture presented";
        return Clock::now();
    }

    // Destroys the player (which completes the capture) and reads it.
    WavCaptureFile Finish() {
        destroyStart = Clock::now();
        DestroyPlayer();
        destroyEnd = Clock::now();
        WavCaptureFile wav = ReadWavCapture(capture);
        EXPECT_TRUE(wav.ok) << capture;
        EXPECT_EQ(wav.rate, kRate);
        return wav;
    }

    struct Seen {
        double atMs;    // when the picture was seen, since `origin`
        double timeMs;  // its presentation time
    };
    // Watches the presented pictures until `ms` after `origin`, noting each new one. (The play
    // time reads the start position at once, so the first picture, at that time, goes unnoticed.)
    std::vector<Seen> Watch(Clock::time_point origin, double ms) {
        std::vector<Seen> seen;
        int64_t last = GetCurrentPlayTime(player);
        while (MsSince(origin) < ms) {
            const int64_t now = GetCurrentPlayTime(player);
            if (now != last)
                seen.push_back({MsSince(origin), static_cast<double>(now) / vexel::kTicksPerMs});
            last = now;
            InlayBuffer_Release(GetCurrentPreSample(player));
            InlayBuffer_Release(GetCurrentViewSample(player));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return seen;
    }

    // When the pictures' clock started, since `origin`: a picture is never seen before its time,
    // so the earliest sighting relative to its time is the closest.
    static double ClockStartMs(const std::vector<Seen>& seen) {
        double start = 1e300;
        for (const Seen& s : seen) start = std::min(start, s.atMs - s.timeMs);
        return start;
    }

    // When the capture began, since `origin`: it runs until the device closes, at the end of
    // Destroy. Known to within CaptureStartUncertaintyMs.
    double CaptureStartMs(const WavCaptureFile& wav, Clock::time_point origin) const {
        return std::chrono::duration<double, std::milli>(destroyEnd - origin).count() -
               wav.Seconds() * 1000.0;
    }
    double CaptureStartUncertaintyMs() const {
        return std::chrono::duration<double, std::milli>(destroyEnd - destroyStart).count();
    }

    void SleepUntil(Clock::time_point origin, double ms) {
        std::this_thread::sleep_until(origin +
                                      std::chrono::microseconds(static_cast<int64_t>(ms * 1000)));
    }

    std::string capture;
    Clock::time_point destroyStart, destroyEnd;
};

double Ms(int64_t frames) { return static_cast<double>(frames) * 1000.0 / kRate; }

// Sound that came too late to play (the graph runs the moment the clock starts, with nothing
// queued yet, so a slow first delivery can cost a few milliseconds): small, never a stretch.
void ExpectLittleLost(const Analysis& a) { EXPECT_LT(Ms(a.lost), 30.0) << "ms of stream cut"; }

TEST_F(PlayerAudio, SoundFromAPositionStartsWithThePictureThere) {
    ASSERT_EQ(OpenScript(AudioScript(3.0)), 0);
    Play(player, 12'000'000);  // 1.2 s in: picture 30, sound block 60
    const auto firstPicture = FirstPicture();
    SleepUntil(firstPicture, 800);
    const Analysis a = Analyse(Finish(), 3 * kRate, 9600);
    ASSERT_GE(a.firstStream, 0);
    const double offsetMs = Ms(a.firstFrame) - (Ms(a.firstStream) - 1200.0);
    std::printf("A/V start offset (play from 1.2 s): %+.2f ms\n", offsetMs);
    EXPECT_LT(std::fabs(offsetMs), 20.0);
    EXPECT_NEAR(Ms(a.firstStream), 1200.0, 20.0);
    EXPECT_EQ(a.mismatches, 0);
    ExpectLittleLost(a);
}

TEST_F(PlayerAudio, PauseAndResumeKeepTheSoundUnbroken) {
    ASSERT_EQ(OpenScript(AudioScript(6.0)), 0);
    const auto played = Clock::now();
    Play(player, 0);
    SleepUntil(FirstPicture(), 700);
    // Each call is bracketed by two readings: on a loaded machine a call may take long, and the
    // sound stops and resumes somewhere inside it.
    const double pauseCalledMs = MsSince(played);
    Pause(player);
    const double pausedMs = MsSince(played);
    std::this_thread::sleep_for(milliseconds(400));
    const double playCalledMs = MsSince(played);
    Play(player, -1);
    const double playedMs = MsSince(played);
    // Past the two seconds that were queued at the pause, into blocks stamped after the resume.
    std::this_thread::sleep_for(milliseconds(2600));
    const WavCaptureFile wav = Finish();
    const Analysis a = Analyse(wav, 6 * kRate);
    ASSERT_GE(a.firstStream, 0);
    // Every stream frame once, in order: nothing repeated, no stretch shifted.
    EXPECT_EQ(a.mismatches, 0);
    ExpectLittleLost(a);
    EXPECT_GT(Ms(a.matched), 3100.0);
    ASSERT_EQ(a.gaps.size(), 1u) << "one silence, the pause";
    EXPECT_GT(Ms(a.gaps[0].second), playCalledMs - pausedMs - 30.0);
    EXPECT_LT(Ms(a.gaps[0].second), playedMs - pauseCalledMs + 30.0);
    const double captureStart = CaptureStartMs(wav, played),
                 slack = 30.0 + CaptureStartUncertaintyMs();
    EXPECT_GT(Ms(a.gaps[0].first), pauseCalledMs - captureStart - slack);
    EXPECT_LT(Ms(a.gaps[0].first), pausedMs - captureStart + slack);
}

TEST_F(PlayerAudio, ATimeFreezeInsertsItsSilenceWhereItBegins) {
    ASSERT_EQ(OpenScript(AudioScript(2.0)), 0);
    const double times[] = {500.0}, durations[] = {300.0};
    SetTimeFreeze(player, times, durations, 1);
    Play(player, 0);
    const auto firstPicture = FirstPicture();
    SleepUntil(firstPicture, 1200);
    const Analysis a = Analyse(Finish(), 2 * kRate);
    ASSERT_GE(a.firstStream, 0);
    EXPECT_EQ(a.mismatches, 0);
    ExpectLittleLost(a);
    ASSERT_EQ(a.gaps.size(), 1u);
    // 300 ms of silence right after stream time 500 ms, at presentation time 500 ms.
    EXPECT_EQ(a.StreamAt(a.gaps[0].first), 500 * 8);
    EXPECT_NEAR(Ms(a.gaps[0].second), 300.0, 2.0);
    EXPECT_NEAR(Ms(a.gaps[0].first - a.firstFrame) + Ms(a.firstStream), 500.0, 2.0);
}

TEST_F(PlayerAudio, VolumeScalesTheSoundAndMuteSilencesIt) {
    ASSERT_EQ(OpenScript(AudioScript(4.0)), 0);
    const auto played = Clock::now();
    Play(player, 0);
    const auto start = FirstPicture();
    struct Step {
        double gain;      // expected from the step on
        double calledMs;  // since `played`: when the action was called
        double doneMs;    // and when it returned
    };
    std::vector<Step> steps = {{1.0, 0.0, MsSince(played)}};
    auto step = [&](double afterMs, double gain, auto action) {
        SleepUntil(start, afterMs);
        const double called = MsSince(played);
        action();
        steps.push_back({gain, called, MsSince(played)});
    };
    step(500, 0.1, [&] { SetVolume(player, -2000); });
    step(1000, 0.0, [&] { Mute(player, true); });
    step(1500, 0.1, [&] { SetVolume(player, -2000); });  // while muted: the sound returns at it
    step(2000, 0.1, [&] { Mute(player, false); });       // and stays there
    step(2500, 1.0, [&] { SetVolume(player, 0); });
    step(3000, -1, [] {});
    const WavCaptureFile wav = Finish();
    const Analysis a = Analyse(wav, 4 * kRate);
    ASSERT_GE(a.firstStream, 0);

    // Over each stretch, away from its ends, the sound against the stream it plays.
    const double captureStart = CaptureStartMs(wav, played);
    const double margin = 40.0 + CaptureStartUncertaintyMs();
    for (size_t i = 0; i + 1 < steps.size(); ++i) {
        const auto from =
            static_cast<int64_t>((steps[i].doneMs - captureStart + margin) * kRate / 1000);
        const auto to =
            static_cast<int64_t>((steps[i + 1].calledMs - captureStart - margin) * kRate / 1000);
        double dot = 0, norm = 0, loud = 0;
        for (int64_t j = std::max(from, a.firstFrame);
             j < to && j < static_cast<int64_t>(wav.Frames()); ++j) {
            const auto [l, r] = StreamFrame(a.StreamAt(j));
            dot += double(wav.samples[2 * j]) * l + double(wav.samples[2 * j + 1]) * r;
            norm += double(l) * l + double(r) * r;
            loud = std::max(loud, std::fabs(double(wav.samples[2 * j])));
        }
        ASSERT_GT(norm, 0) << "stretch " << i;
        EXPECT_NEAR(dot / norm, steps[i].gain, 0.002) << "stretch " << i;
        if (steps[i].gain == 0.0) {
            EXPECT_EQ(loud, 0.0);
        }
    }
}

// Sound against pictures over a whole playback: at every new picture, the stream time being heard.
// VEXEL_AV_SECONDS sets the length (4 s by default).
TEST_F(PlayerAudio, SoundAndPicturesStayTogether) {
    const char* env = std::getenv("VEXEL_AV_SECONDS");
    const double seconds = env != nullptr ? std::max(2.0, std::atof(env)) : 4.0;
    ASSERT_EQ(OpenScript(AudioScript(seconds + 1.0)), 0);
    SetViewDim(player, 32, 16);
    const auto played = Clock::now();
    Play(player, 0);
    const std::vector<Seen> seen = Watch(played, seconds * 1000.0);
    const WavCaptureFile wav = Finish();
    const Analysis a = Analyse(wav, static_cast<int64_t>((seconds + 1.0) * kRate));
    ASSERT_GE(a.firstStream, 0);
    EXPECT_EQ(a.mismatches, 0);
    EXPECT_TRUE(a.gaps.empty());
    ExpectLittleLost(a);

    // At each new picture, the stream time being heard minus the picture's time; positive: the
    // sound is ahead. A picture is seen at its presentation or later (later when the test thread
    // waits for a core), which only adds to the offset: the smallest offset over the first and
    // over the last second is the closest to the truth, however loaded the machine.
    const double captureStart = CaptureStartMs(wav, played), clockStart = ClockStartMs(seen);
    std::vector<double> early, late;
    for (const Seen& s : seen) {
        const auto j = static_cast<int64_t>((s.atMs - captureStart) * kRate / 1000.0);
        const double offset = Ms(a.StreamAt(j)) - s.timeMs;
        if (s.atMs - clockStart < 1000.0) early.push_back(offset);
        if (s.atMs - clockStart >= seconds * 1000.0 - 1000.0) late.push_back(offset);
    }
    ASSERT_FALSE(early.empty());
    ASSERT_FALSE(late.empty());
    const double first = *std::min_element(early.begin(), early.end()),
                 final = *std::min_element(late.begin(), late.end());
    std::printf(
        "A/V offset over %.0f s: first second %+.2f ms, last second %+.2f ms (+-%.2f), drift %+.2f "
        "ms\n",
        seconds, first, final, CaptureStartUncertaintyMs(), final - first);
    EXPECT_LT(std::fabs(first), 20.0 + CaptureStartUncertaintyMs());
    EXPECT_LT(std::fabs(final - first), 10.0);
}

}  // namespace
}  // namespace player_test
