// Shared ground of the decoder tests: where the generated clips are, polling with a deadline, and
// reading the frame number that the generator draws into every picture.
//
// Threads: helpers run on the test's thread.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "../../../tests/wait_until.h"
#include "frame_code.h"
#include "vexel/ticks.h"

namespace vexel::decodehost_test {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int64_t kSecond = vexel::kTicksPerSecond;
constexpr int64_t kFrame = kSecond / 10;  // the test clips run at 10 frames per second

// A clip made by make_clips.sh (equirect.mp4: 128x64, 20 frames, keyframe every 10, stereo).
inline std::string Clip(const std::string& name) {
    return std::string(DECODEHOST_TEST_CLIPS) + "/" + name;
}

using vexel::testing::WaitUntil;

// Frame number drawn into a picture of B,G,R,A pixels stored last row first.
inline int64_t FrameNumber(const uint8_t* pixels, int width, int height) {
    const size_t stride = static_cast<size_t>(width) * 4;
    const int rows = std::min(height, framecode::CellSize(width));
    std::vector<uint8_t> top(stride * rows);
    for (int y = 0; y < rows; ++y) {
        std::copy_n(pixels + (height - 1 - y) * stride, stride, top.data() + y * stride);
    }
    return framecode::Read(top.data(), width, rows);
}

}  // namespace vexel::decodehost_test
