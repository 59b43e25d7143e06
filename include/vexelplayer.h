/**
 * @file vexelplayer.h
 * @brief Vexel: a panorama (360-degree) video player library, libVexelPlayer.so.
 *
 * The model: Create a player; Open a recorded equirectangular or fisheye video (the player is then
 * Stopped); Play, Pause, Seek and Stop it while steering a virtual camera (SetView, or the pan and
 * zoom gestures); for every frame that reaches its presentation time the player keeps two samples
 * waiting, the whole panorama picture and the perspective view of it; take them with
 * GetCurrentPreSample and GetCurrentViewSample, read them with the InlayBuffer_ functions and give
 * each back with InlayBuffer_Release; Close the file or Open another; Destroy the player last.
 * Decoding and conversion run in sibling modules (libDecodeHost.so, ...) that the library loads
 * from its own folder or its vexel/ subfolder when a file is opened. Diagnostics go to standard
 * output; the environment variable VEXEL_LOG routes, filters or silences them.
 *
 * Conventions shared by every function below:
 *   - Times are signed or unsigned 64-bit counts of 100-nanosecond ticks (10,000,000 a second),
 *     except InlayBuffer_GetTime (the same ticks, as a double) and the time-freeze functions
 *     (milliseconds, as doubles). Any 64-bit value is accepted: Play and Seek bring a time before
 *     the media to its start and one past its end (the duration plus the time freezes) to its
 *     end. Angles are degrees. Sizes are pixels.
 *   - Pictures are 4 bytes a pixel, in memory blue, green, red, alpha (a little-endian 32-bit
 *     value with alpha in bits 24-31), rows top-down, no row padding.
 *   - A null handle or null sample is never an error: the call returns the "null result" named in
 *     its comment and does nothing else. Only Open reports failure; other calls made in a state
 *     where they have no meaning do nothing.
 *   - Threads: every function may be called from any thread, and every function except Destroy
 *     may run at the same time as any other on the same handle (a UI thread steering the view
 *     while a render loop takes samples, say); the library does not marshal calls to a thread of
 *     its own. The control calls (Open, Close, Play, Pause, Stop) on one player are serialised
 *     inside it and may wait for one another and for a seek being served; Seek, the queries, the
 *     view, time-freeze, sound and sample calls never wait for a seek or a control call. A call
 *     that runs while another thread re-opens acts on the file open when it started, or does
 *     nothing. Destroy must not run while another call on the same handle does, and a sample must
 *     not be released while another thread uses it.
 *   - Samples returned by GetCurrentPreSample, GetCurrentViewSample and InlayBuffer_CreateSample
 *     belong to the caller until InlayBuffer_Release; Destroy does not free them.
 *   - Differences a host might not expect: GetWidth and GetHeight report half the stream's size;
 *     Open keeps the file Stopped (call Play); SetViewDim and the view must be set again after
 *     every Open; a presented sample is handed over once (the next call returns null until another
 *     frame is presented); the end of the video is a sample of width 0; Seek returns at once and
 *     the frame it shows stays until Play or Stop.
 */
#ifndef VEXELPLAYER_H
#define VEXELPLAYER_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

/** Version of this header and of the library it comes with (libVexelPlayer.so.MAJOR). */
#define VEXEL_VERSION_MAJOR 1
#define VEXEL_VERSION_MINOR 0
#define VEXEL_VERSION_PATCH 0

#define VEXEL_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/** Opaque player handle, made by Create and freed by Destroy. */
typedef struct VexelPlayer* PlayerHandle;

/** A picture with its view direction, time stamp and seek flag. Opaque to hosts: use the
 * InlayBuffer_ functions. */
typedef struct InlayBuffer InlayBuffer;

/* ---- Player lifecycle and playback ---- */

/** Builds a player with no file open and starts its command thread.
 * @return the new player, owned by the caller until Destroy; null only when memory runs out. */
VEXEL_API PlayerHandle Create(void);

/** Stops playback, closes the file and frees the player; the handle is invalid afterwards.
 * Samples already taken stay valid. Must not run concurrently with any other call on this handle.
 * Null: nothing. */
VEXEL_API void Destroy(PlayerHandle handle);

/** Opens the file or URL at utf8Path (anything FFmpeg reads), replacing a file that is open, and
 * leaves the player Stopped at the start of the play range. Blocks while the file is probed.
 * @param utf8Path  path in UTF-8; not kept after the call.
 * @param start,end play range in ticks, clamped to the stream's duration; an end of 0 plays to the
 *                  end, a start past the end starts at 0.
 * @param fisheyeMode lens layout: 2 one fisheye circle, 3 two back-to-back fisheye circles side by
 *                  side, anything else equirectangular.
 * @return 0 on success; -1 for a null handle or path, a missing decoder module, a file that cannot
 *         be read or holds no video stream. After a failure no file is open. */
VEXEL_API int32_t Open(PlayerHandle handle, const char* utf8Path, uint64_t start, uint64_t end,
                       uint32_t fisheyeMode);

/** Drops pending seeks and closes the file; the handle stays usable for another Open. Without an
 * open file: nothing. Null: nothing. */
VEXEL_API void Close(PlayerHandle handle);

/** Starts playback at time (ticks on the player's timeline) when Stopped or Seeking, resumes from
 * the paused position when Paused (time unused), does nothing while Playing. Pending seeks are
 * dropped. Returns without waiting for the first frame. No file open or null: nothing. */
VEXEL_API void Play(PlayerHandle handle, int64_t time);

/** Pauses while Playing; otherwise nothing. Null: nothing. */
VEXEL_API void Pause(PlayerHandle handle);

/** Stops playback and drops the waiting samples; the file stays open and positioned.
 * Null: nothing. */
VEXEL_API void Stop(PlayerHandle handle);

/** Queues a seek to time (ticks) and returns at once; the player's command thread shows the frame
 * at that time and keeps it until Play or Stop. Of several queued seeks the newest is served. Only
 * an end marker reached while seeking carries the seek flag. No file open or null: nothing. */
VEXEL_API void Seek(PlayerHandle handle, int64_t time);

/* ---- Player queries ---- */

/** Writes the play range fixed by Open, in ticks, to *start and *end (either may be null).
 * Before the first Open both are 0. Null handle: both outputs left untouched. */
VEXEL_API void GetRange(PlayerHandle handle, uint64_t* start, uint64_t* end);

/** @return frames per second of the decoded video; 30.0 when unknown. Null: 30.0. */
VEXEL_API double GetFrameRate(PlayerHandle handle);

/** @return HALF the video stream's width in pixels, fraction dropped (a 3840x1920 stream gives
 *          1920); 0 before the first Open. Null: 0. */
VEXEL_API uint32_t GetWidth(PlayerHandle handle);

/** @return HALF the video stream's height in pixels, fraction dropped (a 3840x1920 stream gives
 *          960); 0 before the first Open. Null: 0. */
VEXEL_API uint32_t GetHeight(PlayerHandle handle);

/** @return time of the last presented frame in ticks on the player's timeline; 0 before the first
 *          Open. Null: 0. */
VEXEL_API int64_t GetCurrentPlayTime(PlayerHandle handle);

/** Hands over the last presented panorama picture (equirectangular, the stream's full size).
 * After the last frame of the play range an empty sample (width and height 0, no picture) marks
 * the end.
 * @return the sample, owned by the caller until InlayBuffer_Release, or null when no frame was
 *         presented since the last call (each frame is handed over once). Null: null. */
VEXEL_API InlayBuffer* GetCurrentPreSample(PlayerHandle handle);

/** Hands over the last presented view picture (SetViewDim's size, the direction it was rendered
 * with stored in the sample). After the last frame an empty sample marks the end.
 * @return the sample, owned by the caller until InlayBuffer_Release, or null when no frame was
 *         presented since the last call. Null: null. */
VEXEL_API InlayBuffer* GetCurrentViewSample(PlayerHandle handle);

/* ---- Sound ---- */

/** Sets the volume in hundredths of a decibel: 0 full, -10000 silent; values outside that range
 * leave the volume unchanged. Without sound hardware the sound plays on a silent device. Null:
 * nothing. */
VEXEL_API void SetVolume(PlayerHandle handle, int32_t volume);

/** Silences the sound (true) or restores the volume last set (false). Null: nothing. */
VEXEL_API void Mute(PlayerHandle handle, bool mute);

/* ---- View control (effective once a file has been opened; nothing before) ---- */

/** Sets the size in pixels of the rendered view. Every Open starts again at 320 x 180. An empty
 * view, a side over 16384 or a picture over 512 MiB (width * height * 4 bytes) is ignored (the size
 * stays). A frame whose view cannot be rendered (memory) is presented without a view sample, with
 * one line in the diagnostics. Null: nothing. */
VEXEL_API void SetViewDim(PlayerHandle handle, uint32_t width, uint32_t height);

/** Sets the view direction and horizontal field of view in degrees (pan round the horizon, tilt
 * up from it), in any state; stored as a keyframe of the view path at the current time.
 * Non-finite values are refused. Null: nothing. */
VEXEL_API void SetView(PlayerHandle handle, double pan, double tilt, double fov);

/** Begins a pan gesture. Only while Playing (otherwise nothing). Null: nothing. */
VEXEL_API void StartPan(PlayerHandle handle);

/** Stores two pan step values with the gesture; they do not change how AddPan values apply.
 * Only while Playing. Null: nothing. */
VEXEL_API void SetPanStep(PlayerHandle handle, double x, double y);

/** Queues one pan/tilt change in degrees for the pan gesture; one queued value is applied per
 * rendered frame. Only while Playing. Null: nothing. */
VEXEL_API void AddPan(PlayerHandle handle, double pan, double tilt);

/** Ends the pan gesture and stores its path as keyframes. Only while Playing. Null: nothing. */
VEXEL_API void EndPan(PlayerHandle handle);

/** Begins a zoom gesture. Only while Playing (otherwise nothing). Null: nothing. */
VEXEL_API void StartZoom(PlayerHandle handle);

/** Queues one field of view in degrees for the zoom gesture; one is applied per rendered frame.
 * Only while Playing. Null: nothing. */
VEXEL_API void AddZoom(PlayerHandle handle, double fov);

/** Ends the zoom gesture and stores its path as keyframes. Only while Playing. Null: nothing. */
VEXEL_API void EndZoom(PlayerHandle handle);

/* ---- Time freeze: stretches where the picture holds still while time runs on (milliseconds) ----
 */

/** Replaces the freeze segments with count pairs (times[i], durations[i]) in milliseconds of media
 * time, rounded to whole milliseconds and sorted by time. A time or duration must lie between 0
 * and 86,400,000 (24 hours); other pairs (negative, too large, not finite) are skipped, and of the
 * rest the first 1024 are kept: a player holds at most 1024 segments. The arrays are read during
 * the call only. A count of 0 or less, or a null array, clears them. No file opened yet or null:
 * nothing. */
VEXEL_API void SetTimeFreeze(PlayerHandle handle, const double* times, const double* durations,
                             int32_t count);

/** Copies the segments (milliseconds) into the caller's arrays when capacity holds them all;
 * with a smaller capacity or a null array nothing is copied (call with 0 to learn the count).
 * @return the number of segments; 0 when no file was ever opened. Null: 0. */
VEXEL_API int32_t GetTimeFreeze(PlayerHandle handle, double* times, double* durations,
                                int32_t capacity);

/** Inserts one freeze of duration milliseconds at presentation time (milliseconds); both within
 * the bounds of SetTimeFreeze (0 to 86,400,000), and refused when 1024 segments are held already.
 * @return the media time of the freeze in milliseconds; time unchanged when refused or when no file
 *         was ever opened. Null: time, unchanged. */
VEXEL_API double TimeFreeze(PlayerHandle handle, double time, double duration);

/* ---- Samples ---- */

/** Makes a sample with a width x height picture (contents undefined), view 0/0/0, time 0, seek
 * false. Zero, negative or oversized dimensions (more than 1 GiB of pixels) give an empty sample
 * with width, height and size 0 and no picture.
 * @return the sample, owned by the caller until InlayBuffer_Release; null only when memory runs
 *         out. */
VEXEL_API InlayBuffer* InlayBuffer_CreateSample(int32_t width, int32_t height);

/** Frees the picture and the sample; the pointer is invalid afterwards. Null: nothing. */
VEXEL_API void InlayBuffer_Release(InlayBuffer* sample);

/** @return the sample's picture (width * height * 4 bytes, writable), owned by the sample and
 *          valid until InlayBuffer_Release; null for an empty sample. Null: null. */
VEXEL_API uint8_t* InlayBuffer_GetBuffer(InlayBuffer* sample);

/** Copies the picture (width * height * 4 bytes) into destination, which must hold that many.
 * @return destination. If sample or destination is null, or the sample is empty, nothing is
 *         copied. */
VEXEL_API uint8_t* InlayBuffer_ReadBuffer(InlayBuffer* sample, uint8_t* destination);

/** @return picture width in pixels. Null: 0. */
VEXEL_API uint32_t InlayBuffer_GetWidth(InlayBuffer* sample);

/** @return picture height in pixels. Null: 0. */
VEXEL_API uint32_t InlayBuffer_GetHeight(InlayBuffer* sample);

/** @return presentation time in 100-ns TICKS, as a double (2 seconds is 20000000.0), not seconds.
 *          Null: 0.0. */
VEXEL_API double InlayBuffer_GetTime(InlayBuffer* sample);

/** @return whether the frame was shown by a seek. Null: TRUE (unlike every other getter). */
VEXEL_API bool InlayBuffer_GetSeek(InlayBuffer* sample);

/** @return the pan in degrees the sample was rendered with (or SetView stored). Null: 0.0. */
VEXEL_API double InlayBuffer_GetPan(InlayBuffer* sample);

/** @return the tilt in degrees the sample was rendered with (or SetView stored). Null: 0.0. */
VEXEL_API double InlayBuffer_GetTilt(InlayBuffer* sample);

/** @return the horizontal field of view in degrees of the sample. Null: 0.0. */
VEXEL_API double InlayBuffer_GetFov(InlayBuffer* sample);

/** Stores a view direction and field of view in degrees in the sample, for InlayBuffer_GetView and
 * InlayBuffer_ExtractView. Null: nothing. */
VEXEL_API void InlayBuffer_SetView(InlayBuffer* sample, double pan, double tilt, double fov);

/** Renders the sample's picture (a panorama) for its stored direction into destination at the
 * player's view size (SetViewDim); destination must hold width * height * 4 bytes of that size and
 * be 4-byte aligned. Tilts beyond +-90 degrees look back over the pole. Does nothing while
 * Playing, before the first Open, for a sample without picture, or if any argument is null. */
VEXEL_API void InlayBuffer_GetView(PlayerHandle handle, InlayBuffer* sample, uint8_t* destination);

/** Renders the sample's picture (a panorama) for its stored direction into destination at width x
 * height; destination must hold width * height * 4 bytes and be 4-byte aligned. Needs no player;
 * any thread. Does nothing if sample or destination is null, the sample has no picture, or the
 * view is empty or over 4 GiB. */
VEXEL_API void InlayBuffer_ExtractView(InlayBuffer* sample, uint8_t* destination, uint32_t width,
                                       uint32_t height);

#ifdef __cplusplus
}
#endif

#endif /* VEXELPLAYER_H */
