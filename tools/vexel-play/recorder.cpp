#include "recorder.h"

#include <ctime>

namespace play {

namespace {

double ThreadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + now.tv_nsec * 1e-9;
}

}  // namespace

Recorder::~Recorder() {
    if (thread_.joinable()) Finish();
}

bool Recorder::Open(const std::string& path, int width, int height, double fps) {
    mediakit::VideoSettings video;
    video.width = width;
    video.height = height;
    video.fps = fps > 0.0 ? static_cast<int>(fps + 0.5) : 30;
    video.keyframeInterval = video.fps * 2;
    video.quality = 23;
    video.preset = "superfast";
    video.threads = 1;  // all encoding on the recorder's thread, where its time is measured
    if (!writer_.Open(path, video, mediakit::AudioSettings{})) {
        error_ = writer_.error();
        return false;
    }
    width_ = width;
    height_ = height;
    thread_ = std::thread([this] { Encode(); });
    return true;
}

bool Recorder::Add(const uint8_t* pixels, int64_t ticks) {
    if (!thread_.joinable() || ticks <= lastTicks_) return false;  // the encoder wants rising times
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (queue_.size() >= kQueueBound || failed_) {
            ++leftOut_;
            return false;
        }
    }
    lastTicks_ = ticks;
    Picture picture;
    picture.pixels.assign(pixels, pixels + static_cast<size_t>(width_) * 4 * height_);
    picture.ticks = ticks;
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(picture));
    changed_.notify_all();
    return true;
}

void Recorder::Encode() {
    for (;;) {
        Picture picture;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [this] { return !queue_.empty() || closing_; });
            if (queue_.empty()) break;
            picture = std::move(queue_.front());
            queue_.pop_front();
        }
        if (!writer_.WriteVideo(picture.pixels.data(), width_ * 4, picture.ticks)) {
            std::lock_guard<std::mutex> lock(mutex_);
            failed_ = true;
            queue_.clear();
            break;
        }
        ++written_;
    }
    cpuSeconds_ = ThreadCpuSeconds();
}

bool Recorder::Finish() {
    if (!thread_.joinable()) return error_.empty();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closing_ = true;
    }
    changed_.notify_all();
    thread_.join();
    if (failed_ || !writer_.Finish()) {
        error_ = writer_.error();
        return false;
    }
    return true;
}

}  // namespace play
