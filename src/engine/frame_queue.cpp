#include "engine/frame_queue.h"

namespace vexel {

void FrameQueue::Push(std::unique_ptr<FrameRecord> frame) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        frames_.push_back(std::move(frame));
    }
    changed_.notify_all();
}

int64_t FrameQueue::FrontTime(int64_t otherwise) {
    std::lock_guard<std::mutex> guard(lock_);
    return frames_.empty() || frames_.front()->IsEndMarker() ? otherwise : frames_.front()->time;
}

void FrameQueue::Clear() {
    std::deque<std::unique_ptr<FrameRecord>> dropped;
    {
        std::lock_guard<std::mutex> guard(lock_);
        dropped.swap(frames_);
    }
    changed_.notify_all();
}  // the pictures are freed here, outside the lock

void FrameQueue::MarkEnd(bool ended) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        ended_ = ended;
    }
    changed_.notify_all();
}

void FrameQueue::WakeAll() {
    {
        std::lock_guard<std::mutex> guard(lock_);
    }  // a waiter between its test and its wait sees the change
    changed_.notify_all();
}

}  // namespace vexel
