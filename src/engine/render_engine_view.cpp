// The render engine's view decision at presentation: the frame about to be shown gets the newest
// view, and is drawn again only when that differs from the view it was drawn with ahead.
#include <chrono>

#include "engine/render_engine.h"
#include "vexel/tick_math.h"

namespace vexel {

namespace {

// The time from one frame to the next: one frame interval of the stream, or the sample's length.
int64_t FrameInterval(const FrameRecord& frame, double frameRate) {
    if (frameRate > 0.0) return Truncate(SecondsToTicksF(1.0 / frameRate)).count();
    return frame.stopTime > frame.streamTime ? frame.stopTime - frame.streamTime : 0;
}

}  // namespace

void RenderEngine::PresentView(FrameRecord& frame) {
    // The next frame is taken after this one is shown: its time is the next rendered frame's, or
    // estimated while none is rendered yet.
    const int64_t next =
        renderedQueue_.FrontTime(frame.time + FrameInterval(frame, videoStreamInfo_.frameRate));
    ViewAngles view;
    {
        std::lock_guard<std::mutex> guard(viewDecisionLock_);
        view = StepView(ToSeconds(Ticks(SubTicks(frame.time, static_cast<int64_t>(rangeStart_)))));
        SetNextViewTime(next);
    }
    const uint64_t dim = viewDim_.load();
    const bool sameSize =
        frame.viewWidth == static_cast<uint32_t>(dim) && frame.viewHeight == dim >> 32;
    const bool sameView = view.pan == frame.pan && view.tilt == frame.tilt && view.fov == frame.fov;
    if (frame.viewPixels && sameSize && sameView) return;
    redraws_.fetch_add(1, std::memory_order_relaxed);
    DrawView(frame, view, presentRowTable_);
}

float RenderEngine::DrawLeadMs() const {
    return std::chrono::duration<float, std::milli>(
               std::chrono::steady_clock::duration(drawTicks_.load()))
        .count();
}

void RenderEngine::NoteDrawTime(std::chrono::steady_clock::duration took) {
    const int64_t ticks = took.count();
    int64_t old = drawTicks_.load();
    int64_t next;
    do {
        next = old +
               (ticks - old) / 8;  // an average: one drawing held up by the machine moves it little
    } while (!drawTicks_.compare_exchange_weak(old, next));
}

}  // namespace vexel
