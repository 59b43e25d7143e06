#include "viewer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#include "png_writer.h"
#include "vexel/ticks.h"

namespace view {

namespace {

using vexel::kTicksPerSecond;
constexpr int64_t kSeekStepTicks = 5 * kTicksPerSecond;
constexpr int kVolumeStep = 300;  // 3 dB
// A gesture commits only its turning points, and the path takes the shorter way round between
// two keyframes; a drag is therefore committed in pieces of at most this many degrees.
constexpr double kMaxGestureTurn = 120.0;
// How long a finished gesture waits for its last value to reach the screen before it ends anyway
// (the player drops values still queued when a gesture ends).
constexpr std::chrono::milliseconds kSettleLimit{500};
constexpr std::chrono::milliseconds kWheelPause{300};  // no wheel for this long ends a zoom
constexpr std::chrono::milliseconds kMessageTime{3000};
constexpr std::chrono::seconds kQuitSettleLimit{2};
constexpr int kTimeBarReach = 6;  // pixels around the time bar that still count as a click on it
// Stereo: the player's own view is not shown, so it is rendered small.
constexpr uint32_t kUnusedViewWidth = 64, kUnusedViewHeight = 36;

double Ms(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

Angles SampleAngles(InlayBuffer* sample) {
    return {InlayBuffer_GetPan(sample), InlayBuffer_GetTilt(sample), InlayBuffer_GetFov(sample)};
}

// The left eye's half of a stereo panorama picture, as a sample of its own with the same view.
InlayBuffer* CropEye(InlayBuffer* picture, mediakit::EyeRegion eye) {
    const uint32_t width = InlayBuffer_GetWidth(picture), height = InlayBuffer_GetHeight(picture);
    const bool columns =
        eye == mediakit::EyeRegion::LeftHalf || eye == mediakit::EyeRegion::RightHalf;
    const uint32_t eyeWidth = columns ? width / 2 : width,
                   eyeHeight = columns ? height : height / 2;
    const uint32_t x0 = eye == mediakit::EyeRegion::RightHalf ? eyeWidth : 0;
    const uint32_t y0 = eye == mediakit::EyeRegion::BottomHalf ? eyeHeight : 0;
    InlayBuffer* crop =
        InlayBuffer_CreateSample(static_cast<int32_t>(eyeWidth), static_cast<int32_t>(eyeHeight));
    const uint8_t* in = InlayBuffer_GetBuffer(picture);
    uint8_t* out = InlayBuffer_GetBuffer(crop);
    if (in == nullptr || out == nullptr) return crop;  // an empty sample renders nothing
    for (uint32_t y = 0; y < eyeHeight; ++y) {
        std::memcpy(out + static_cast<size_t>(y) * eyeWidth * 4,
                    in + (static_cast<size_t>(y0 + y) * width + x0) * 4,
                    static_cast<size_t>(eyeWidth) * 4);
    }
    InlayBuffer_SetView(crop, InlayBuffer_GetPan(picture), InlayBuffer_GetTilt(picture),
                        InlayBuffer_GetFov(picture));
    return crop;
}

}  // namespace

Viewer::Viewer(const Options& options, const mediakit::LayoutChoice& layout)
    : options_(options),
      layout_(layout),
      stereo_(layout.leftEye != mediakit::EyeRegion::Whole),
      overlayOn_(options.overlay),
      fullscreen_(options.fullscreen) {
    target_ = shown_ = {options.view.pan, options.view.tilt, options.view.fov};
}

Viewer::~Viewer() {
    InlayBuffer_Release(panorama_);
    if (player_ != nullptr) Destroy(player_);
    if (overlayTexture_ != nullptr) SDL_DestroyTexture(overlayTexture_);
    if (picture_ != nullptr) SDL_DestroyTexture(picture_);
    if (renderer_ != nullptr) SDL_DestroyRenderer(renderer_);
    if (window_ != nullptr) SDL_DestroyWindow(window_);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

int Viewer::Run() {
    if (!OpenWindow()) return 1;
    if (!OpenFile()) return 1;
    started_ = Clock::now();
    Loop();
    if (!options_.screenshot.empty()) WriteScreenshot();
    return 0;
}

bool Viewer::OpenWindow() {
    // The library plays sound through SDL as well; the video subsystem is this program's.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
        std::fprintf(stderr, "vexel-view: no display: %s\n", SDL_GetError());
        return false;
    }
    const std::string title =
        "vexel-view: " + std::filesystem::path(options_.file).filename().string();
    uint32_t flags = SDL_WINDOW_RESIZABLE;
    if (fullscreen_) flags |= SDL_WINDOW_FULLSCREEN_DESKTOP;
    window_ = SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                               static_cast<int>(options_.width), static_cast<int>(options_.height),
                               flags);
    if (window_ == nullptr) {
        std::fprintf(stderr, "vexel-view: cannot open a window: %s\n", SDL_GetError());
        return false;
    }
    // Any renderer SDL offers; the software one works without a graphics processor.
    renderer_ = SDL_CreateRenderer(window_, -1, 0);
    if (renderer_ == nullptr) renderer_ = SDL_CreateRenderer(window_, -1, SDL_RENDERER_SOFTWARE);
    if (renderer_ == nullptr) {
        std::fprintf(stderr, "vexel-view: cannot draw into the window: %s\n", SDL_GetError());
        return false;
    }
    return true;
}

bool Viewer::OpenFile() {
    player_ = Create();
    const auto start = static_cast<uint64_t>(options_.rangeStart * kTicksPerSecond);
    const auto end = static_cast<uint64_t>(options_.rangeEnd * kTicksPerSecond);
    if (Open(player_, options_.file.c_str(), start, end, layout_.fisheyeMode) != 0) {
        std::fprintf(stderr,
                     "vexel-view: cannot play %s (missing, not a video, or no decoder module)\n",
                     options_.file.c_str());
        return false;
    }
    if (!lensPath_.Bind())
        std::fprintf(stderr, "vexel-view: no lens module loaded: view paths cannot be saved\n");
    GetRange(player_, &rangeStart_, &rangeEnd_);
    const double fps = GetFrameRate(player_);
    if (fps > 0.0) frameTicks_ = std::llround(kTicksPerSecond / fps);

    if (!options_.freezes.empty()) {
        std::vector<double> times, durations;
        for (const Freeze& f : options_.freezes) {
            times.push_back(f.seconds * 1000.0);
            durations.push_back(f.duration * 1000.0);
        }
        SetTimeFreeze(player_, times.data(), durations.data(), static_cast<int32_t>(times.size()));
    }
    // The stretches as the time bar shows them: each freeze moves the ones after it.
    const int32_t count = GetTimeFreeze(player_, nullptr, nullptr, 0);
    std::vector<double> times(static_cast<size_t>(std::max(count, 0))), durations(times.size());
    GetTimeFreeze(player_, times.data(), durations.data(), count);
    const double startMs = static_cast<double>(rangeStart_) / 10'000.0;
    for (size_t i = 0; i < times.size(); ++i) {
        freezes_.push_back({(times[i] - startMs) / 1000.0 + freezeSeconds_, durations[i] / 1000.0});
        freezeSeconds_ += durations[i] / 1000.0;
    }

    OnResize();
    SetView(player_, target_.pan, target_.tilt, target_.fov);
    if (!options_.pathFile.empty()) {
        LoadViewPath(options_.pathFile);
        if (!followingPath_) {
            std::fprintf(stderr, "vexel-view: cannot load the view path %s: %s\n",
                         options_.pathFile.c_str(), message_.c_str());
            return false;
        }
    }
    shownTicks_ = static_cast<int64_t>(rangeStart_);
    if (options_.paused) {
        mode_ = Mode::Paused;
        resumeAt_ = static_cast<int64_t>(rangeStart_);
        Seek(player_, resumeAt_);
    } else {
        Play(player_, static_cast<int64_t>(rangeStart_));
        RestartTiming();
    }
    return true;
}

void Viewer::Loop() {
    Clock::time_point quitRequested{};
    for (;;) {
        SDL_Event event;
        if (SDL_WaitEventTimeout(&event, 2)) {
            OnEvent(event);
            while (SDL_PollEvent(&event)) OnEvent(event);
        }
        const Clock::time_point now = Clock::now();
        if (options_.quitAfter > 0 && Ms(now - started_) >= options_.quitAfter * 1000.0)
            quit_ = true;
        const bool newFrame = TakeSamples();
        PumpGestures(newFrame);
        if (!message_.empty() && now > messageUntil_) {
            message_.clear();
            dirty_ = true;
        }
        if (dirty_) Draw();
        if (quit_) {
            // A picture for the record shows the view the user asked for at the window's size: let
            // the gestures land and a picture of the new size come.
            if (quitRequested == Clock::time_point{}) {
                quitRequested = now;
                dragging_ = false;
                panReleasing_ = true;
                lastWheel_ = {};
            }
            const bool settled = mode_ != Mode::Playing ||
                                 (!panOpen_ && !zoomOpen_ && pictureWidth_ == OutputWidth() &&
                                  pictureHeight_ == OutputHeight());
            if (settled || now - quitRequested > kQuitSettleLimit) break;
        }
    }
    FinishGestures(false);
}

void Viewer::OnEvent(const SDL_Event& event) {
    switch (event.type) {
        case SDL_QUIT:
            quit_ = true;
            break;
        case SDL_WINDOWEVENT:
            if (event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED) OnResize();
            if (event.window.event == SDL_WINDOWEVENT_EXPOSED) dirty_ = true;
            break;
        case SDL_KEYDOWN:
            OnKey(event.key.keysym);
            break;
        case SDL_MOUSEBUTTONDOWN:
            if (event.button.button != SDL_BUTTON_LEFT) break;
            if (overlayOn_) {
                const Rect bar = TimeBarRect(OutputWidth(), OutputHeight());
                if (event.button.y >= bar.y - kTimeBarReach &&
                    event.button.y < bar.y + bar.h + kTimeBarReach) {
                    const double seconds = TimeAtColumn(bar, event.button.x, Overlay().duration);
                    SeekTo(static_cast<int64_t>(rangeStart_) +
                           static_cast<int64_t>(std::llround(seconds * kTicksPerSecond)));
                    break;
                }
            }
            BeginDrag();
            break;
        case SDL_MOUSEMOTION:
            if (!dragging_) break;
            dragX_ += event.motion.xrel;
            dragY_ += event.motion.yrel;
            target_ = Dragged(dragStart_, dragX_, dragY_, OutputWidth());
            if (mode_ == Mode::Playing) {
                if (!panOpen_) {
                    StartPan(player_);
                    panOpen_ = true;
                    panReleasing_ = panSentAny_ = false;
                    panBase_ = target_.pan;
                }
            } else {
                SteerWhilePaused();
            }
            break;
        case SDL_MOUSEBUTTONUP:
            if (event.button.button == SDL_BUTTON_LEFT) EndDrag();
            break;
        case SDL_MOUSEWHEEL:
            Zoom(event.wheel.direction == SDL_MOUSEWHEEL_FLIPPED ? -event.wheel.y : event.wheel.y);
            break;
        default:
            break;
    }
}

void Viewer::OnKey(const SDL_Keysym& key) {
    const bool shift = (key.mod & KMOD_SHIFT) != 0;
    switch (key.sym) {
        case SDLK_ESCAPE:
        case SDLK_q:
            quit_ = true;
            break;
        case SDLK_SPACE:
            TogglePause();
            break;
        case SDLK_COMMA:
            StepFrames(-1);
            break;
        case SDLK_PERIOD:
            StepFrames(1);
            break;
        case SDLK_LEFT:
        case SDLK_RIGHT: {
            const int sign = key.sym == SDLK_LEFT ? -1 : 1;
            if (shift) {
                Nudge(sign * kNudgeDegrees, 0.0);
            } else {
                SeekTo((resumeAt_ >= 0 && mode_ != Mode::Playing ? resumeAt_ : shownTicks_) +
                       sign * kSeekStepTicks);
            }
            break;
        }
        case SDLK_UP:
            Nudge(0.0, kNudgeDegrees);
            break;
        case SDLK_DOWN:
            Nudge(0.0, -kNudgeDegrees);
            break;
        case SDLK_HOME:
            SeekTo(static_cast<int64_t>(rangeStart_));
            break;
        case SDLK_m:
            muted_ = !muted_;
            Mute(player_, muted_);
            dirty_ = true;
            break;
        case SDLK_PLUS:
        case SDLK_EQUALS:
        case SDLK_KP_PLUS:
        case SDLK_MINUS:
        case SDLK_KP_MINUS: {
            const bool up =
                key.sym == SDLK_PLUS || key.sym == SDLK_EQUALS || key.sym == SDLK_KP_PLUS;
            volume_ = std::clamp(volume_ + (up ? kVolumeStep : -kVolumeStep), -10000, 0);
            if (muted_) Mute(player_, muted_ = false);
            SetVolume(player_, volume_);
            dirty_ = true;
            break;
        }
        case SDLK_f:
            fullscreen_ = !fullscreen_;
            SDL_SetWindowFullscreen(window_, fullscreen_ ? SDL_WINDOW_FULLSCREEN_DESKTOP : 0);
            break;
        case SDLK_i:
            overlayOn_ = !overlayOn_;
            dirty_ = true;
            break;
        case SDLK_s:
            SaveViewPath();
            break;
        case SDLK_l:
            LoadViewPath(options_.file + ".view.json");
            break;
        default:
            break;
    }
}

void Viewer::OnResize() {
    const int width = OutputWidth(), height = OutputHeight();
    if (width <= 0 || height <= 0) return;
    if (stereo_) {
        SetViewDim(player_, kUnusedViewWidth, kUnusedViewHeight);
    } else {
        SetViewDim(player_, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
    }
    // The player draws later frames at the new size; the viewer redraws a still picture at once.
    if (mode_ != Mode::Playing || stereo_) RenderFromPanorama(shown_);
    dirty_ = true;
}

// ---- Transport ----

void Viewer::TogglePause() {
    switch (mode_) {
        case Mode::Playing:
            FinishGestures(true);
            Pause(player_);
            mode_ = Mode::Paused;
            resumeAt_ = -1;
            if (!SameView(target_, shown_)) SteerWhilePaused();
            break;
        case Mode::Paused:
            Play(player_, resumeAt_ < 0 ? 0 : resumeAt_);
            mode_ = Mode::Playing;
            RestartTiming();
            break;
        case Mode::Ended:
            Play(player_, static_cast<int64_t>(rangeStart_));
            mode_ = Mode::Playing;
            RestartTiming();
            break;
    }
    dirty_ = true;
}

void Viewer::SeekTo(int64_t ticks) {
    const auto first = static_cast<int64_t>(rangeStart_);
    const int64_t last =
        rangeEnd_ > rangeStart_ ? static_cast<int64_t>(rangeEnd_) - frameTicks_ : first;
    const int64_t end = last + static_cast<int64_t>(std::llround(freezeSeconds_ * kTicksPerSecond));
    ticks = std::clamp(ticks, first, std::max(first, end));
    if (mode_ == Mode::Playing) {
        // The player serves a seek by showing one frame; playing on means starting again there.
        FinishGestures(true);
        Stop(player_);
        Play(player_, ticks);
        RestartTiming();
        shownTicks_ = ticks;
    } else {
        // A seek preview leaves the player Seeking, where further seeks wait for a Stop.
        Stop(player_);
        Seek(player_, ticks);
        resumeAt_ = ticks;
        mode_ = Mode::Paused;
    }
    dirty_ = true;
}

void Viewer::StepFrames(int frames) {
    if (mode_ == Mode::Playing) TogglePause();
    const int64_t from = resumeAt_ >= 0 ? resumeAt_ : shownTicks_;
    SeekTo(from + frames * frameTicks_);
}

void Viewer::RestartTiming() {
    haveOffset_ = false;
    recentFrames_.clear();
}

// ---- Steering ----

void Viewer::TakeOverFromPath() {
    if (!followingPath_) return;
    // The user steers from here: the loaded path would pull the view back after each gesture.
    lensPath_.Clear();
    followingPath_ = false;
    Say("view path dropped");
}

void Viewer::BeginDrag() {
    TakeOverFromPath();
    dragging_ = true;
    dragStart_ = target_;
    dragX_ = dragY_ = 0.0;
    panReleasing_ = false;
    // Relative motion: the pointer is held in the window, so a long drag never meets its edge.
    SDL_SetRelativeMouseMode(SDL_TRUE);
}

void Viewer::EndDrag() {
    if (!dragging_) return;
    dragging_ = false;
    SDL_SetRelativeMouseMode(SDL_FALSE);
    if (panOpen_) panReleasing_ = true;
}

void Viewer::Zoom(int notches) {
    if (notches == 0) return;
    TakeOverFromPath();
    target_ = Zoomed(target_, notches);
    if (mode_ != Mode::Playing) {
        SteerWhilePaused();
        return;
    }
    if (!zoomOpen_) {
        StartZoom(player_);
        zoomOpen_ = true;
        zoomSent_ = shown_.fov;
    }
    lastWheel_ = Clock::now();
}

void Viewer::Nudge(double pan, double tilt) {
    if (dragging_ || panOpen_) return;
    TakeOverFromPath();
    target_.pan = WrappedPan(target_.pan + pan);
    target_.tilt = std::clamp(target_.tilt + tilt, -90.0, 90.0);
    if (mode_ == Mode::Playing) {
        SetView(player_, target_.pan, target_.tilt,
                target_.fov);  // a keyframe the next frames follow
    } else {
        SteerWhilePaused();
    }
}

void Viewer::SteerWhilePaused() {
    SetView(player_, WrappedPan(target_.pan), target_.tilt, target_.fov);
    RenderFromPanorama(target_);
}

void Viewer::PumpGestures(bool newFrame) {
    if (mode_ != Mode::Playing) return;
    const Clock::time_point now = Clock::now();
    if (panOpen_) {
        // One value a presented frame: the player applies one queued value per rendered frame.
        const bool turnedFar = std::abs(panSent_.pan - panBase_) > kMaxGestureTurn;
        if (newFrame && !turnedFar &&
            !SameView(target_, {panSent_.pan, panSent_.tilt, target_.fov})) {
            AddPan(player_, target_.pan, target_.tilt);
            panSent_ = target_;
            panSentAny_ = true;
            panSentAt_ = now;
        }
        if (panReleasing_ || turnedFar) {
            const bool landed = !panSentAny_ || (std::abs(shown_.pan - panSent_.pan) < 0.01 &&
                                                 std::abs(shown_.tilt - panSent_.tilt) < 0.01);
            if (landed || now - panSentAt_ > kSettleLimit) {
                EndPan(player_);
                panOpen_ = false;
                if (!panReleasing_ && dragging_) {  // carry on in a new gesture
                    StartPan(player_);
                    panOpen_ = true;
                    panBase_ = panSent_.pan;
                    panSentAny_ = false;
                }
                panReleasing_ = false;
            }
        }
    }
    if (zoomOpen_) {
        if (newFrame && std::abs(target_.fov - zoomSent_) > 0.01) {
            AddZoom(player_, target_.fov);
            zoomSent_ = target_.fov;
            zoomSentAt_ = now;
        }
        const bool landed = std::abs(shown_.fov - zoomSent_) < 0.01;
        if (now - lastWheel_ > kWheelPause && (landed || now - zoomSentAt_ > kSettleLimit)) {
            EndZoom(player_);
            zoomOpen_ = false;
        }
    }
}

void Viewer::FinishGestures(bool settle) {
    // A gesture records the frames it steers; ending it drops the values still queued. Settling
    // lets the last value reach the screen first (a few frames), so that the path ends on it.
    panReleasing_ = panOpen_;
    lastWheel_ = {};
    const Clock::time_point limit = Clock::now() + kSettleLimit;
    while (settle && mode_ == Mode::Playing && (panOpen_ || zoomOpen_) && Clock::now() < limit) {
        PumpGestures(TakeSamples());
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    const bool steer = (panOpen_ || zoomOpen_) && !SameView(target_, shown_);
    if (panOpen_) EndPan(player_);
    if (zoomOpen_) EndZoom(player_);
    panOpen_ = zoomOpen_ = panReleasing_ = false;
    if (steer) SetView(player_, WrappedPan(target_.pan), target_.tilt, target_.fov);
}

void Viewer::SaveViewPath() {
    FinishGestures(true);  // a gesture reaches the path when it ends
    const std::string file = options_.file + ".view.json";
    const int32_t result = lensPath_.Save(file);
    Say(result == S_OK ? "view path saved"
                       : std::string("view path not saved: ") + DescribeResult(result));
    std::printf("vexel-view: %s %s: %s\n", result == S_OK ? "saved" : "could not save",
                file.c_str(), DescribeResult(result));
    std::fflush(stdout);
}

void Viewer::LoadViewPath(const std::string& file) {
    const int32_t result = lensPath_.Load(file);
    if (result != S_OK) {
        Say(std::string("view path not loaded: ") + DescribeResult(result));
        return;
    }
    FinishGestures(false);
    followingPath_ = true;
    Say("view path loaded");
    std::printf("vexel-view: loaded %s\n", file.c_str());
    std::fflush(stdout);
    if (mode_ != Mode::Playing) {
        // Frames follow the path from now on; a still picture shows the path's view at its time.
        Angles v = target_;
        lensPath_.ViewAt(
            static_cast<double>(shownTicks_ - static_cast<int64_t>(rangeStart_)) / kTicksPerSecond,
            &v.pan, &v.tilt, &v.fov);
        target_ = v;
        RenderFromPanorama(target_);
    }
}

// ---- Pictures ----

bool Viewer::TakeSamples() {
    bool shownNew = false;
    bool ended = false;
    if (InlayBuffer* pre = GetCurrentPreSample(player_)) {
        if (InlayBuffer_GetWidth(pre) == 0) {
            ended = true;
            InlayBuffer_Release(pre);
        } else {
            KeepPanorama(pre);
            if (mode_ != Mode::Playing) {
                // A seek preview: the still picture, with the path's view at its time when
                // following one, else with the view the user asked for.
                shownTicks_ = static_cast<int64_t>(InlayBuffer_GetTime(panorama_));
                if (followingPath_) target_ = SampleAngles(panorama_);
                RenderFromPanorama(target_);
                shownNew = true;
                std::printf("vexel-view: still picture at %.4f s\n",
                            static_cast<double>(shownTicks_) / kTicksPerSecond);
                std::fflush(stdout);
            } else if (stereo_) {
                RenderFromPanorama(SampleAngles(panorama_));
            }
        }
    }
    if (InlayBuffer* sample = GetCurrentViewSample(player_)) {
        const auto ticks = static_cast<int64_t>(InlayBuffer_GetTime(sample));
        if (InlayBuffer_GetWidth(sample) == 0) {
            ended = true;
        } else if (mode_ == Mode::Playing && ticks != lastSampleTicks_) {
            const Clock::time_point now = Clock::now();
            // Late: shown more than half a frame after its time, measured from the best-kept frame.
            const double offset = Ms(now - started_) - static_cast<double>(ticks) / 10'000.0;
            if (!haveOffset_ || offset < minOffsetMs_) minOffsetMs_ = offset;
            haveOffset_ = true;
            if (offset - minOffsetMs_ > static_cast<double>(frameTicks_) / 20'000.0) ++lateFrames_;
            recentFrames_.push_back(now);
            while (now - recentFrames_.front() > std::chrono::seconds(1)) recentFrames_.pop_front();

            shown_ = SampleAngles(sample);
            if (!stereo_)
                Upload(InlayBuffer_GetBuffer(sample),
                       static_cast<int>(InlayBuffer_GetWidth(sample)),
                       static_cast<int>(InlayBuffer_GetHeight(sample)));
            shownTicks_ = ticks;
            // Without a gesture of the user's the view is the player's (the path's).
            if (!dragging_ && !panOpen_) target_.pan = shown_.pan, target_.tilt = shown_.tilt;
            if (!zoomOpen_) target_.fov = shown_.fov;
            shownNew = true;
        }
        lastSampleTicks_ = ticks;
        InlayBuffer_Release(sample);
    }
    if (ended && mode_ == Mode::Playing) {
        mode_ = Mode::Ended;  // no frame will take a gesture's values any more
        FinishGestures(false);
        Stop(player_);
        resumeAt_ = static_cast<int64_t>(rangeStart_);
        shownNew = true;
    }
    if (shownNew && !firstShown_) {
        firstShown_ = true;
        std::printf("vexel-view: first picture shown\n");
        std::fflush(stdout);
    }
    dirty_ |= shownNew;
    return shownNew;
}

void Viewer::KeepPanorama(InlayBuffer* pre) {
    InlayBuffer_Release(panorama_);
    if (stereo_) {
        panorama_ = CropEye(pre, layout_.leftEye);
        InlayBuffer_Release(pre);
    } else {
        panorama_ = pre;
    }
}

void Viewer::RenderFromPanorama(const Angles& angles) {
    if (panorama_ == nullptr) return;
    const int width = OutputWidth(), height = OutputHeight();
    if (width <= 0 || height <= 0) return;
    InlayBuffer_SetView(panorama_, WrappedPan(angles.pan), angles.tilt, angles.fov);
    rendered_.resize(static_cast<size_t>(width) * height * 4);
    InlayBuffer_ExtractView(panorama_, rendered_.data(), static_cast<uint32_t>(width),
                            static_cast<uint32_t>(height));
    Upload(rendered_.data(), width, height);
    shown_ = angles;
    dirty_ = true;
}

void Viewer::Upload(const uint8_t* pixels, int width, int height) {
    if (pixels == nullptr || width <= 0 || height <= 0) return;
    if (picture_ == nullptr || width != pictureWidth_ || height != pictureHeight_) {
        if (picture_ != nullptr) SDL_DestroyTexture(picture_);
        // The player's pictures are B, G, R, A bytes: ARGB8888 words on this little-endian machine.
        picture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888,
                                     SDL_TEXTUREACCESS_STREAMING, width, height);
        pictureWidth_ = width;
        pictureHeight_ = height;
        if (picture_ == nullptr) return;
    }
    SDL_UpdateTexture(picture_, nullptr, pixels, width * 4);
}

void Viewer::Compose() {
    SDL_SetRenderDrawColor(renderer_, 0, 0, 0, 255);
    SDL_RenderClear(renderer_);
    if (picture_ != nullptr) SDL_RenderCopy(renderer_, picture_, nullptr, nullptr);
    if (!overlayOn_) return;
    const int width = OutputWidth();
    DrawOverlay(Overlay(), width, &overlayCanvas_);
    if (overlayTexture_ == nullptr || overlayWidth_ != width) {
        if (overlayTexture_ != nullptr) SDL_DestroyTexture(overlayTexture_);
        overlayTexture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888,
                                            SDL_TEXTUREACCESS_STREAMING, width, OverlayHeight());
        if (overlayTexture_ != nullptr)
            SDL_SetTextureBlendMode(overlayTexture_, SDL_BLENDMODE_BLEND);
        overlayWidth_ = width;
    }
    if (overlayTexture_ == nullptr) return;
    SDL_UpdateTexture(overlayTexture_, nullptr, overlayCanvas_.bytes(), width * 4);
    const SDL_Rect band{0, OutputHeight() - OverlayHeight(), width, OverlayHeight()};
    SDL_RenderCopy(renderer_, overlayTexture_, nullptr, &band);
}

void Viewer::Draw() {
    dirty_ = false;
    Compose();
    SDL_RenderPresent(renderer_);
}

void Viewer::WriteScreenshot() {
    // Read before presenting: after a present the back buffer's contents are undefined.
    Compose();
    mediakit::Canvas canvas(OutputWidth(), OutputHeight());
    std::string error;
    if (SDL_RenderReadPixels(renderer_, nullptr, SDL_PIXELFORMAT_ARGB8888, canvas.pixels.data(),
                             canvas.width * 4) != 0) {
        error = SDL_GetError();
    } else {
        mediakit::WritePng(options_.screenshot, canvas, &error);
    }
    SDL_RenderPresent(renderer_);
    if (!error.empty()) {
        std::fprintf(stderr, "vexel-view: no screenshot: %s\n", error.c_str());
        return;
    }
    std::printf("vexel-view: screenshot %s: %dx%d, time %.4f s, pan %.3f, tilt %.3f, fov %.3f\n",
                options_.screenshot.c_str(), canvas.width, canvas.height,
                static_cast<double>(shownTicks_) / kTicksPerSecond, WrappedPan(shown_.pan),
                shown_.tilt, shown_.fov);
    std::fflush(stdout);
}

OverlayInfo Viewer::Overlay() const {
    OverlayInfo info;
    info.time =
        static_cast<double>(shownTicks_ - static_cast<int64_t>(rangeStart_)) / kTicksPerSecond;
    info.duration = static_cast<double>(rangeEnd_ - rangeStart_) / kTicksPerSecond + freezeSeconds_;
    info.freezes = freezes_;
    info.view = {WrappedPan(shown_.pan), shown_.tilt, shown_.fov};
    info.fps = mode_ == Mode::Playing ? static_cast<double>(recentFrames_.size()) : 0.0;
    info.lateFrames = lateFrames_;
    info.paused = mode_ != Mode::Playing;
    info.muted = muted_;
    info.volume = volume_;
    info.followingPath = followingPath_;
    info.message = message_;
    return info;
}

void Viewer::Say(const std::string& message) {
    message_ = message;
    messageUntil_ = Clock::now() + kMessageTime;
    dirty_ = true;
}

int Viewer::OutputWidth() const {
    int width = 0, height = 0;
    if (renderer_ != nullptr) SDL_GetRendererOutputSize(renderer_, &width, &height);
    return width;
}

int Viewer::OutputHeight() const {
    int width = 0, height = 0;
    if (renderer_ != nullptr) SDL_GetRendererOutputSize(renderer_, &width, &height);
    return height;
}

}  // namespace view
