// Input a careless or hostile host hands the codec host: positions at the ends of 64 bits, paths
// that would block open(2) for ever, protocols it does not allow, and a network peer that never
// answers.
#include <poll.h>
#include <unistd.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <limits>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>

#include "reader_fixture.h"

namespace vexel::decodehost_test {
namespace {

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
// Far below the 15 s network deadline: only an interrupt or a refusal returns this soon.
constexpr milliseconds kPrompt{3000};

// Positions beyond the stream are brought onto it: the start to 0..duration, the stop to the
// duration; what each span delivers matches the span it was brought to.
TEST_F(ReaderTest, PositionsAtTheEndsOf64BitsAreBroughtOntoTheStream) {
    OpenStream("equirect.mp4", kStreamKindVideo);
    const struct {
        int64_t current, stop;
        std::vector<int64_t> frames;
    } cases[] = {
        {kMin, kMax, Sequence(0, 19)},
        {-5 * kSecond, 15 * kFrame, Sequence(0, 14)},
        {15 * kFrame, kMax, Sequence(15, 19)},
        {kMax, kMax, {}},
        {kMax, kMin, {}},
        {kMin, kMin, Sequence(0, 19)},  // a stop of 0 or less is the end
    };
    for (const auto& c : cases) {
        sink_.Clear();
        Span(c.current, c.stop);
        ASSERT_TRUE(WaitForState(kEnded)) << c.current << ".." << c.stop;
        EXPECT_EQ(Frames(sink_.Records()), c.frames) << c.current << ".." << c.stop;
        EXPECT_EQ(sink_.EndOfStreams(), 1);
        for (const PushedRecord& r : sink_.Records()) {  // whole pictures, bottom-up, timed
            EXPECT_EQ(r.start, r.frame * kFrame);
            EXPECT_EQ(r.stop, r.start + kFrame);
        }
    }
}

// What is not a regular file is refused before anything opens it (a FIFO with no writer would
// block open(2) for ever), and so is a protocol outside the allow list.
TEST_F(ReaderTest, OnlyRegularFilesAndAllowedProtocolsAreOpened) {
    const std::string fifo =
        ::testing::TempDir() + "decodehost-fifo-" + std::to_string(getpid()) + ".mp4";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    CountedRef<MediaDescription> description;
    for (const std::string& path : std::vector<std::string>{
             fifo, "file:" + fifo, ::testing::TempDir(), "/dev/zero", "ftp://127.0.0.1:9/clip.mp4",
             "udp://127.0.0.1:9", "tcp://127.0.0.1:9", "pipe:0",
             "subfile,,start,0,end,0,,:/etc/hostname"}) {
        const auto start = Clock::now();
        EXPECT_LT(reader_->Open(path.c_str(), description.put()), 0) << path;
        EXPECT_FALSE(description);
        EXPECT_LT(Clock::now() - start, kPrompt) << path;
    }
    unlink(fifo.c_str());
    // The list is the host's to change: without file, local clips are refused too; by default they
    // are opened.
    setenv("VEXEL_PROTOCOLS", "http,https", 1);
    EXPECT_LT(reader_->Open(Clip("equirect.mp4").c_str(), description.put()), 0);
    EXPECT_LT(reader_->Open(("file:" + Clip("equirect.mp4")).c_str(), description.put()), 0);
    unsetenv("VEXEL_PROTOCOLS");
    EXPECT_EQ(reader_->Open(("file:" + Clip("equirect.mp4")).c_str(), description.put()), 0);
}

// A server on the loopback interface that never says a word: the kernel completes connections
// into its backlog, where nobody accepts them.
class SilentServer {
public:
    SilentServer() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
            listen(listener_, 4) == 0 &&
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
            port_ = ntohs(address.sin_port);
        }
    }
    ~SilentServer() { close(listener_); }
    int port() const { return port_; }
    bool connected() const {
        pollfd waiting{listener_, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }

private:
    int listener_ = socket(AF_INET, SOCK_STREAM, 0);
    int port_ = 0;
};

TEST_F(ReaderTest, StopInterruptsAnOpenWaitingForTheNetwork) {
    SilentServer server;
    ASSERT_NE(server.port(), 0);
    control_.QueryFrom(reader_.get(), IID_PlaybackControl);
    ASSERT_TRUE(control_);

    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/clip.mp4";
    std::atomic<int32_t> result{1};
    std::thread opener([&] {
        CountedRef<MediaDescription> description;
        result.store(reader_->Open(url.c_str(), description.put()));
    });
    ASSERT_TRUE(WaitUntil([&] { return server.connected(); }));
    std::this_thread::sleep_for(milliseconds(100));  // the request is sent; the reply never comes
    EXPECT_EQ(result.load(), 1) << "the open did not wait for the server";
    const auto stopped = Clock::now();
    control_->Stop();
    opener.join();
    EXPECT_LT(Clock::now() - stopped, kPrompt);
    EXPECT_LT(result.load(), 0);

    // A stop before the open does not spoil it.
    OpenStream("equirect.mp4", kStreamKindVideo);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    EXPECT_EQ(Frames(sink_.Records()), Sequence(0, 19));
}

// Files whose time stamps begin at 1.5 s report the length of their own 4 s of pictures, and their
// first picture comes at media time 0.
class LateStartTest : public ReaderTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(LateStartTest, StreamLengthCountsFromItsFirstFrame) {
    uint64_t ticks = 0;
    const StreamInfo info = OpenStream(GetParam(), kStreamKindVideo, &ticks);
    EXPECT_NEAR(info.duration, 4.0, 0.05);
    EXPECT_NEAR(static_cast<double>(ticks), 4.0 * kSecond, 0.05 * kSecond);
    Span(0, 0);
    ASSERT_TRUE(WaitForState(kEnded));
    const std::vector<PushedRecord> records = sink_.Records();
    ASSERT_EQ(Frames(records), Sequence(0, 39));
    EXPECT_NEAR(static_cast<double>(records.front().start), 0.0, 0.05 * kSecond);
    EXPECT_LE(records.back().start, static_cast<int64_t>(ticks));
}

INSTANTIATE_TEST_SUITE_P(Containers, LateStartTest, ::testing::Values("late.mkv", "late.ts"),
                         ClipName);

}  // namespace
}  // namespace vexel::decodehost_test
