// The PCM source filter of libAudioFeedFilter.so and the runtime's audio renderer in one graph:
// media-type negotiation, and delivery that blocks and is released by a stop. (Blocks placed at
// their stream times: the PCM timeline's tests to the sample, the player's sound tests end to end.)
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "audio/audio_output.h"
#include "mediagraph/e_filter.h"
#include "mediagraph/e_graph_builder.h"
#include "platform/module.h"
#include "vexel/pcm_feed.h"
#include "vexel/ticks.h"
#include "wait_until.h"
#include "wav_reader.h"

namespace vexel {
namespace {

using Clock = std::chrono::steady_clock;

// The module from the build folder, by path.
SiblingModule& FeedModule() {
    static const std::string path = std::string(VEXEL_MODULE_DIR) + "/libAudioFeedFilter.so";
    static SiblingModule module(path.c_str());
    return module;
}

// 8 kHz stereo 16-bit.
WAVEFORMATEX Stereo16() { return {WAVE_FORMAT_PCM, 2, 8000, 32000, 4, 16, 0}; }

// The two filters of the audio output in a graph, not yet connected.
struct TwoFilterGraph {
    TwoFilterGraph() {
        EXPECT_TRUE(FeedModule().Load());
        EXPECT_TRUE(graph.CoCreateInstance(FailThrow));
        EXPECT_TRUE(source.FilterGetClassObject(graph, FeedModule(), CLSID_PcmFeedFilter,
                                                u"PCM File Source", FailThrow));
        EXPECT_TRUE(
            renderer.CoCreateInstance(graph, CLSID_AudioRenderer, u"audio Renderer", FailThrow));
        feed.QueryFrom(source.Filter(), IID_IPcmFeed);
        EXPECT_TRUE(feed);
    }
    bool Connect(const WAVEFORMATEX& format) {
        feed->SetFormat(&format);
        return source.ConnectTo(renderer, 0, 0, FailReturn);
    }

    EGraphBuilder graph;
    EFilter source;
    EFilter renderer;
    CountedRef<IPcmFeed> feed;
};

TEST(FeedFilterModule, PinsConnectOnlyWithAPlayableFormat) {
    TwoFilterGraph g;
    // No format yet: nothing to offer.
    const ComException* failure = nullptr;
    try {
        g.source.ConnectTo(g.renderer, 0, 0, FailThrow);
    } catch (ComException* thrown) {
        failure = thrown;
    }
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->errorText, ErrorText(GRAPH_E_NO_ACCEPTABLE_TYPES));
    delete failure;

    // 24-bit PCM is a format the source takes but the renderer does not play.
    EXPECT_FALSE(g.Connect({WAVE_FORMAT_PCM, 2, 48000, 288000, 6, 24, 0}));
    ASSERT_TRUE(g.Connect(Stereo16()));

    MediaType onSource{}, onRenderer{};
    ASSERT_EQ(g.source.GetOutputPin(0)->ConnectionMediaType(&onSource), S_OK);
    ASSERT_EQ(g.renderer.GetInputPin(0)->ConnectionMediaType(&onRenderer), S_OK);
    EXPECT_EQ(onSource.majorType, onRenderer.majorType);
    EXPECT_EQ(onSource.subType, MEDIASUBTYPE_PCM);
    EXPECT_EQ(std::memcmp(&onSource.format, &onRenderer.format, sizeof(WAVEFORMATEX)), 0);
    EXPECT_EQ(onRenderer.format.nSamplesPerSec, 8000u);
    EXPECT_FALSE(g.source.ConnectTo(g.renderer, 0, 0, FailReturn));  // already connected
    const WAVEFORMATEX other = {WAVE_FORMAT_PCM, 1, 8000, 16000, 2, 16, 0};
    EXPECT_EQ(g.feed->SetFormat(&other), GRAPH_E_ALREADY_CONNECTED);
}

TEST(FeedFilterModule, DeliverBlocksOnAFullBufferAndAStopReleasesIt) {
    UseCaptureFile("blocking");
    TwoFilterGraph g;
    ASSERT_TRUE(g.Connect(Stereo16()));
    ASSERT_EQ(g.graph.Pause(), S_OK);  // paused: everything is kept, nothing is played

    const std::vector<uint8_t> block(800 * 4, 1);  // 100 ms
    std::atomic<int> delivered{0};
    std::thread delivery([&] {
        for (int i = 0; i < 40; ++i) {
            g.feed->Deliver(block.data(), static_cast<uint32_t>(block.size()),
                            i * 100 * kTicksPerMs, (i + 1) * 100 * kTicksPerMs);
            delivered.fetch_add(1);
        }
    });
    // About two seconds are taken, then the delivery thread waits.
    testing::WaitUntil([&] { return delivered.load() >= 20; });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_GE(delivered.load(), 19);
    EXPECT_LE(delivered.load(), 21);

    const auto stopAt = Clock::now();
    ASSERT_EQ(g.graph.Stop(), S_OK);
    delivery.join();  // every later Deliver returns at once while stopped
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - stopAt).count(), 2.0);
    EXPECT_EQ(delivered.load(), 40);
}

}  // namespace
}  // namespace vexel
