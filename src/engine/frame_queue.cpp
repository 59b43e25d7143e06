#include "engine/frame_queue.h"

namespace vexel {

namespace {
// Waits re-check their condition at least this often, so a missed wake-up costs no more than it.
constexpr std::chrono::milliseconds kPollStep{10};
}  // namespace

void FrameQueue::WaitForRoom(const std::atomic<bool>& stop) {
    std::unique_lock<std::mutex> guard(lock_);
    while (frames_.size() >= bound_ && !stop.load()) changed_.wait_for(guard, kPollStep);
}

void FrameQueue::WaitForFrame(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(lock_);
    if (frames_.empty()) changed_.wait_for(guard, timeout);
}

void FrameQueue::Push(std::unique_ptr<FrameRecord> frame) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        frames_.push_back(std::move(frame));
    }
    changed_.notify_all();
}

std::unique_ptr<FrameRecord> FrameQueue::Pop() {
    std::unique_ptr<FrameRecord> frame;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (frames_.empty()) return nullptr;
        frame = std::move(frames_.front());
        frames_.pop_front();
    }
    changed_.notify_all();
    return frame;
}

void FrameQueue::Clear() {
    std::deque<std::unique_ptr<FrameRecord>> dropped;
    {
        std::lock_guard<std::mutex> guard(lock_);
        dropped.swap(frames_);
    }
    changed_.notify_all();
}  // the pictures are freed here, outside the lock

size_t FrameQueue::Count() const {
    std::lock_guard<std::mutex> guard(lock_);
    return frames_.size();
}

void FrameQueue::WakeAll() {
    { std::lock_guard<std::mutex> guard(lock_); }
    changed_.notify_all();
}

}  // namespace vexel
