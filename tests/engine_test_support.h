// Shared ground of the render engine tests: the format of delivered pictures, and waiting (on the
// wall clock, briefly) for the next presented picture.
//
// Threads: test thread only.
#pragma once

#include "engine/render_engine.h"
#include "vexel/conversion.h"
#include "wait_until.h"

namespace vexel::testing {

inline MediaFormatPayload PictureFormat(uint32_t width, uint32_t height,
                                        uint32_t pixelFormat = kPixelFormatBgra32) {
    MediaFormatPayload payload{};
    payload.video.width = width;
    payload.video.height = height;
    payload.video.pixelFormat = pixelFormat;
    return payload;
}

// The next presented panorama sample (its view sample released), or null when none comes.
inline InlayBuffer* AwaitPreSample(RenderEngine& engine) {
    InlayBuffer* pre = nullptr;
    WaitUntil([&] {
        ReleaseInlayBuffer(engine.TakeCurrentViewSample());
        return (pre = engine.TakeCurrentPreSample()) != nullptr;
    });
    return pre;
}

}  // namespace vexel::testing
