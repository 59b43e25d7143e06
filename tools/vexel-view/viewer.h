// Viewer: one window playing one file through the public C interface of libVexelPlayer.so.
//
// While playing, the window shows each presented view picture; drags and wheel turns go through
// the player's pan and zoom gestures, so they are recorded into the view path. While paused (or
// after the end) the player's gestures do nothing, so the viewer steers with SetView and renders
// the view itself from the last panorama picture with InlayBuffer_ExtractView, at once. For
// stereo files it renders every view itself, from the left eye's half of the panorama picture.
//
// Threads: built and run on the main thread (SDL's video calls belong there); the player's own
// threads never call back.
#pragma once

#include <SDL.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "camera.h"
#include "canvas.h"
#include "lens_path.h"
#include "overlay.h"
#include "panorama_layout.h"
#include "vexelplayer.h"
#include "view_options.h"

namespace view {

class Viewer {
public:
    Viewer(const Options& options, const mediakit::LayoutChoice& layout);
    ~Viewer();
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    // Opens the window and the file and plays until the user quits; the process exit code.
    int Run();

private:
    using Clock = std::chrono::steady_clock;
    enum class Mode { Playing, Paused, Ended };

    bool OpenWindow();
    bool OpenFile();
    void Loop();

    void OnEvent(const SDL_Event& event);
    void OnKey(const SDL_Keysym& key);
    void OnResize();

    // Transport.
    void TogglePause();
    void SeekTo(int64_t ticks);
    void StepFrames(int frames);
    void RestartTiming();

    // Steering.
    void TakeOverFromPath();
    void BeginDrag();
    void EndDrag();
    void Zoom(int notches);
    void Nudge(double pan, double tilt);
    void SteerWhilePaused();  // SetView and render the target view at once
    void PumpGestures(bool newFrame);
    void FinishGestures(bool settle);
    void SaveViewPath();
    void LoadViewPath(const std::string& file);

    // Pictures.
    bool TakeSamples();  // true when a new picture is to be shown
    void KeepPanorama(InlayBuffer* pre);
    void RenderFromPanorama(const Angles& angles);
    void Upload(const uint8_t* pixels, int width, int height);
    void Compose();  // the picture and the overlay, into the renderer's back buffer
    void Draw();
    void WriteScreenshot();
    OverlayInfo Overlay() const;
    void Say(const std::string& message);

    int OutputWidth() const;
    int OutputHeight() const;

    Options options_;
    mediakit::LayoutChoice layout_;
    bool stereo_ = false;

    SDL_Window* window_ = nullptr;
    SDL_Renderer* renderer_ = nullptr;
    SDL_Texture* picture_ = nullptr;
    int pictureWidth_ = 0, pictureHeight_ = 0;
    SDL_Texture* overlayTexture_ = nullptr;
    int overlayWidth_ = 0;
    mediakit::Canvas overlayCanvas_;
    bool overlayOn_ = true;
    bool fullscreen_ = false;

    PlayerHandle player_ = nullptr;
    LensPath lensPath_;
    uint64_t rangeStart_ = 0, rangeEnd_ = 0;
    int64_t frameTicks_ = 333'333;
    std::vector<Stretch> freezes_;
    double freezeSeconds_ = 0.0;

    Mode mode_ = Mode::Playing;
    int64_t resumeAt_ = -1;   // while paused: -1 resumes where Pause stopped, else Play from here
    int64_t shownTicks_ = 0;  // time of the picture on screen
    int64_t lastSampleTicks_ = -1;
    bool firstShown_ = false;
    InlayBuffer* panorama_ = nullptr;  // the last panorama picture (for stereo, its left eye)
    std::vector<uint8_t> rendered_;    // views the viewer renders itself

    Angles shown_;   // the view on screen
    Angles target_;  // the view the user asks for
    bool followingPath_ = false;

    // The mouse drag, and the player's pan gesture that carries it while playing.
    bool dragging_ = false;
    Angles dragStart_;
    double dragX_ = 0.0, dragY_ = 0.0;
    bool panOpen_ = false;
    bool panReleasing_ = false;
    double panBase_ = 0.0;  // pan where the open gesture began
    Angles panSent_;
    bool panSentAny_ = false;
    Clock::time_point panSentAt_;
    // The wheel, and the zoom gesture.
    bool zoomOpen_ = false;
    double zoomSent_ = 0.0;
    Clock::time_point zoomSentAt_, lastWheel_;

    // Sound.
    int volume_ = 0;
    bool muted_ = false;

    // Presentation figures.
    std::deque<Clock::time_point> recentFrames_;
    size_t lateFrames_ = 0;
    bool haveOffset_ = false;
    double minOffsetMs_ = 0.0;

    std::string message_;
    Clock::time_point messageUntil_;
    Clock::time_point started_;
    bool quit_ = false;
    bool dirty_ = true;
};

}  // namespace view
