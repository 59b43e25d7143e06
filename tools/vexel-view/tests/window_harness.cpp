#include "window_harness.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <thread>

#include "vexel/ticks.h"

namespace viewtest {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Exec(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    std::fprintf(stderr, "cannot run %s: %s\n", argv[0], std::strerror(errno));
    _exit(127);
}

// Waits up to `limit` for the child; its exit code, or -1 if it is still running.
int Reap(pid_t pid, Seconds limit) {
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (done < 0 || Clock::now() > end) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void Kill(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    if (Reap(pid, Seconds(3)) == -1) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

}  // namespace

Child::Child(const std::vector<std::string>& args) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(fds[1], STDOUT_FILENO);
        Exec(args);
    }
    close(fds[1]);
    out_ = fds[0];
}

Child::~Child() {
    Kill(pid_);
    if (out_ >= 0) close(out_);
}

bool Child::ReadMore(Seconds limit) {
    pollfd waiting{out_, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(limit.count() * 1000)) <= 0) return false;
    char chunk[4096];
    const ssize_t got = read(out_, chunk, sizeof chunk);
    if (got <= 0) return false;
    buffer_.append(chunk, static_cast<size_t>(got));
    return true;
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
        const Seconds left = end - Clock::now();
        if (left.count() <= 0 || !ReadMore(left)) return false;
    }
}

int Child::Wait(Seconds limit) {
    WaitForLine("\x01", limit, nullptr);  // collects the rest of the output until the pipe closes
    output_ += buffer_;
    buffer_.clear();
    const int code = Reap(pid_, Seconds(1));
    if (code == -1) return -1;  // the destructor kills it
    pid_ = -1;
    return code;
}

VirtualDisplay::VirtualDisplay() {
    int fds[2];
    if (pipe(fds) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        close(fds[0]);
        const int quiet = open("/dev/null", O_WRONLY);
        dup2(quiet, STDERR_FILENO);
        // -displayfd: the server picks a free display and writes its number when it is ready.
        Exec({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "1024x768x24",
              "-nolisten", "tcp"});
    }
    close(fds[1]);
    std::string number;
    pollfd waiting{fds[0], POLLIN, 0};
    char c = 0;
    while (poll(&waiting, 1, 20'000) > 0 && read(fds[0], &c, 1) == 1 && c != '\n') number += c;
    close(fds[0]);
    if (number.empty() || c != '\n') return;
    name_ = ":" + number;
    setenv("DISPLAY", name_.c_str(), 1);
}

VirtualDisplay::~VirtualDisplay() { Kill(pid_); }

bool Xdotool(const std::vector<std::string>& args, std::string* output) {
    std::vector<std::string> command{"xdotool"};
    command.insert(command.end(), args.begin(), args.end());
    Child child(command);
    const int code = child.Wait(Seconds(20));
    if (output != nullptr) *output = child.output();
    return code == 0;
}

bool ParseShot(const std::string& line, Shot* shot) {
    char file[1024] = {};
    const int fields = std::sscanf(
        line.c_str(),
        "vexel-view: screenshot %1023[^:]: %dx%d, time %lf s, pan %lf, tilt %lf, fov %lf", file,
        &shot->width, &shot->height, &shot->seconds, &shot->pan, &shot->tilt, &shot->fov);
    shot->file = file;
    return fields == 7;
}

Panorama::Panorama(const std::string& clip, double seconds, bool leftEyeOnTop) {
    PlayerHandle player = Create();
    if (Open(player, clip.c_str(), 0, 0, 0) == 0) {
        const auto ticks = static_cast<int64_t>(std::llround(seconds * vexel::kTicksPerSecond));
        SetViewDim(player, 16, 16);
        Seek(player, ticks);
        const Clock::time_point end = Clock::now() + std::chrono::seconds(30);
        while (sample_ == nullptr && Clock::now() < end) {
            if (InlayBuffer* pre = GetCurrentPreSample(player)) {
                if (std::abs(InlayBuffer_GetTime(pre) - static_cast<double>(ticks)) < 1e5) {
                    sample_ = pre;
                } else {
                    InlayBuffer_Release(pre);
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
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
