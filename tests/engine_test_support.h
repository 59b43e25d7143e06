// Shared ground of the render engine tests: the format of delivered pictures, and waiting (on the
// wall clock, briefly) for the next presented picture.
//
// Threads: test thread only.
#pragma once

#include <chrono>
#include <thread>

#include "engine/render_engine.h"
#include "vexel/conversion.h"

namespace vexel::testing {

inline MediaFormatPayload PictureFormat(uint32_t width, uint32_t height,
                                        uint32_t pixelFormat = kPixelFormatBgra32) {
    MediaFormatPayload payload{};
    payload.video.width = width;
    payload.video.height = height;
    payload.video.pixelFormat = pixelFormat;
    return payload;
}

// The next presented panorama sample (its view sample released), or null after ten seconds.
inline InlayBuffer* AwaitPreSample(RenderEngine& engine) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (; std::chrono::steady_clock::now() < deadline;
         std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        ReleaseInlayBuffer(engine.TakeCurrentViewSample());
        if (InlayBuffer* pre = engine.TakeCurrentPreSample()) return pre;
    }
    return nullptr;
}

}  // namespace vexel::testing
