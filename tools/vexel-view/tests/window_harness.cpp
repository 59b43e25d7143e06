#include "window_harness.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <utility>

#include "../../../tests/wait_until.h"
#include "vexel/ticks.h"

namespace viewtest {

using Clock = std::chrono::steady_clock;

Child::Child(const std::vector<std::string>& args, int stopSignal) : stopSignal_(stopSignal) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(fds[1], STDOUT_FILENO);
        std::vector<char*> argv;
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        std::fprintf(stderr, "cannot run %s: %s\n", argv[0], std::strerror(errno));
        _exit(127);
    }
    close(fds[1]);
    out_ = fds[0];
}

Child::~Child() {
    if (pid_ > 0) {
        kill(pid_, stopSignal_);
        waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) close(out_);
}

bool Child::WaitForLine(const std::string& prefix, Seconds limit, std::string* line) {
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    for (;;) {
        for (size_t newline; (newline = buffer_.find('\n')) != std::string::npos;) {
            const std::string next = buffer_.substr(0, newline);
            buffer_.erase(0, newline + 1);
            output_ += next + "\n";
            if (next.rfind(prefix, 0) == 0) {
                if (line != nullptr) *line = next;
                return true;
            }
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        pollfd waiting{out_, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0)
            return false;
        char chunk[4096];
        const ssize_t got = read(out_, chunk, sizeof chunk);
        ended_ = got == 0;
        if (got <= 0) return false;
        buffer_.append(chunk, static_cast<size_t>(got));
    }
}

int Child::Wait(Seconds limit) {
    WaitForLine("\x01", limit, nullptr);  // collects the rest of the output until the pipe closes
    output_ += buffer_;
    buffer_.clear();
    if (!ended_) return -1;  // still running: the destructor kills it
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// -displayfd: the server picks a free display and writes its number when it is ready. SIGTERM ends
// it, so it removes its lock file.
VirtualDisplay::VirtualDisplay()
    : server_({"Xvfb", "-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten", "tcp"},
              SIGTERM) {
    if (!server_.WaitForLine("", Seconds(20), &name_) || name_.empty()) return;
    name_ = ":" + name_;
    setenv("DISPLAY", name_.c_str(), 1);
}

bool Xdotool(const std::vector<std::string>& args, std::string* output) {
    std::vector<std::string> command{"xdotool"};
    command.insert(command.end(), args.begin(), args.end());
    Child child(command);
    const int code = child.Wait(Seconds(20));
    if (output != nullptr) *output = child.output();
    return code == 0;
}

bool ParseShot(const std::string& line, Shot* shot) {
    return std::sscanf(
               line.c_str(),
               "vexel-view: screenshot %*[^:]: %dx%d, time %lf s, pan %lf, tilt %lf, fov %lf",
               &shot->width, &shot->height, &shot->seconds, &shot->pan, &shot->tilt,
               &shot->fov) == 6;
}

Panorama::Panorama(const std::string& clip, double seconds, bool leftEyeOnTop) {
    PlayerHandle player = Create();
    if (Open(player, clip.c_str(), 0, 0, 0) == 0) {
        const auto ticks = static_cast<int64_t>(std::llround(seconds * vexel::kTicksPerSecond));
        SetViewDim(player, 16, 16);
        Seek(player, ticks);
        vexel::testing::WaitUntil(
            [&] {
                InlayBuffer* pre = GetCurrentPreSample(player);
                if (pre != nullptr && std::abs(InlayBuffer_GetTime(pre) - double(ticks)) < 1e5) {
                    sample_ = pre;
                } else {
                    InlayBuffer_Release(pre);
                }
                return sample_ != nullptr;
            },
            std::chrono::seconds(30));
    }
    Destroy(player);
    if (sample_ == nullptr || !leftEyeOnTop) return;
    const uint32_t width = InlayBuffer_GetWidth(sample_),
                   height = InlayBuffer_GetHeight(sample_) / 2;
    InlayBuffer* eye =
        InlayBuffer_CreateSample(static_cast<int32_t>(width), static_cast<int32_t>(height));
    std::memcpy(InlayBuffer_GetBuffer(eye), InlayBuffer_GetBuffer(sample_),
                static_cast<size_t>(width) * height * 4);
    InlayBuffer_Release(sample_);
    sample_ = eye;
}

Panorama::~Panorama() { InlayBuffer_Release(sample_); }

mediakit::Canvas Panorama::View(double pan, double tilt, double fov, int width, int height) const {
    mediakit::Canvas view(width, height);
    InlayBuffer_SetView(sample_, pan, tilt, fov);
    InlayBuffer_ExtractView(sample_, view.bytes(), static_cast<uint32_t>(width),
                            static_cast<uint32_t>(height));
    return view;
}

double MeanDifference(const mediakit::Canvas& a, const mediakit::Canvas& b, int rows) {
    if (a.width != b.width || a.height != b.height || a.pixels.empty()) return 255.0;
    const size_t count = rows > 0 ? size_t(a.width) * std::min(rows, a.height) : a.pixels.size();
    double sum = 0.0;
    for (size_t i = 0; i < count; ++i) {
        for (int shift = 0; shift < 24; shift += 8) {
            sum += std::abs(static_cast<int>((a.pixels[i] >> shift) & 0xFF) -
                            static_cast<int>((b.pixels[i] >> shift) & 0xFF));
        }
    }
    return sum / (3.0 * static_cast<double>(count));
}

}  // namespace viewtest
