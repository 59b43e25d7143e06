// vexel-play's own logic: the command line, the timed view path and the timing figures.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options.h"
#include "timing_stats.h"

namespace play {
namespace {

// Parses the arguments after the program name; the exit code is -1 when parsing succeeded.
bool Parse(std::vector<std::string> args, Options* options, int* exitCode = nullptr) {
    args.insert(args.begin(), "vexel-play");
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    int code = -1;
    const bool ok = ParseOptions(static_cast<int>(argv.size()), argv.data(), options, &code);
    if (exitCode != nullptr) *exitCode = ok ? -1 : code;
    return ok;
}

TEST(VexelPlayOptions, RejectsBadValues) {
    int code = 0;
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--layout", "cubemap"},
                                               {"--range", "5:2"},
                                               {"--range", "x:2"},
                                               {"--size", "10x10"},
                                               {"--view", "0,0"},
                                               {"--view", "0,0,180"},
                                               {"--path", "1=0,0"},
                                               {"--size"},
                                               {"a.mp4", "b.mp4"},
                                               {"--frobnicate", "1"}}) {
        Options o;
        EXPECT_FALSE(Parse(args, &o, &code)) << args[0];
        EXPECT_EQ(code, 2) << args[0];
    }
    Options o;
    EXPECT_FALSE(Parse({"--help"}, &o, &code));
    EXPECT_EQ(code, 0);
}

TEST(VexelPlayOptions, ViewPathInterpolatesBetweenSortedKeys) {
    Options o;
    ASSERT_TRUE(Parse({"--view", "5,5,50", "--path", "10=360,0,90;0=0,20,90;5=180,0,60"}, &o));
    ASSERT_EQ(o.path.size(), 3u);
    EXPECT_DOUBLE_EQ(o.path.front().seconds, 0.0);

    EXPECT_DOUBLE_EQ(ViewAt(o, -1.0).tilt, 20.0) << "before the first key: the first view";
    const View quarter = ViewAt(o, 2.5);
    EXPECT_DOUBLE_EQ(quarter.pan, 90.0);
    EXPECT_DOUBLE_EQ(quarter.tilt, 10.0);
    EXPECT_DOUBLE_EQ(quarter.fov, 75.0);
    EXPECT_DOUBLE_EQ(ViewAt(o, 7.5).pan, 270.0);
    EXPECT_DOUBLE_EQ(ViewAt(o, 60.0).pan, 360.0) << "after the last key: the last view";

    Options still;
    ASSERT_TRUE(Parse({"--view", "5,6,50"}, &still));
    EXPECT_DOUBLE_EQ(ViewAt(still, 3.0).tilt, 6.0) << "without a path the starting view stays";
}

TEST(VexelPlayTiming, CountsLateAndSkippedFrames) {
    TimingStats stats(40.0);  // 25 fps
    const int64_t frame = 400'000;
    stats.Add(1.0, 0);
    stats.Add(25.0, frame);     // more than half a frame late
    stats.Add(3.0, 4 * frame);  // two frames never seen
    stats.Add(-2.0, 5 * frame);
    EXPECT_EQ(stats.presented(), 4u);
    EXPECT_EQ(stats.late(), 1u);
    EXPECT_EQ(stats.skipped(), 2u);
    EXPECT_DOUBLE_EQ(stats.meanMs(), 6.75);
    EXPECT_DOUBLE_EQ(stats.maxMs(), 25.0);
    EXPECT_DOUBLE_EQ(stats.percentileMs(50.0), 1.0);
    EXPECT_DOUBLE_EQ(stats.percentileMs(99.0), 25.0);
}

}  // namespace
}  // namespace play
