/*
 * Vexel: a panorama (360-degree) video player library, libVexelPlayer.so.
 *
 * A host creates a player, opens a recorded equirectangular or fisheye video, drives playback and
 * steers a virtual camera (pan, tilt, horizontal field of view). For every presented frame the
 * player hands out two samples: the whole panorama picture and the perspective view.
 *
 * Conventions shared by every function below:
 *   - Times are signed or unsigned 64-bit counts of 100-nanosecond ticks (10,000,000 per second)
 *     unless a comment says otherwise. Angles are degrees.
 *   - Pictures are 4 bytes per pixel (bits 24-31 alpha), rows top-down, no row padding.
 *   - A null handle or null sample is never an error: the call returns the "null result" given in
 *     its comment and does nothing else. Only Open reports failure.
 *   - Functions may be called from any thread; the library does not marshal calls.
 *   - Samples returned by GetCurrentPreSample, GetCurrentViewSample and InlayBuffer_CreateSample
 *     belong to the caller until InlayBuffer_Release; Destroy does not free them.
 */
#ifndef VEXELPLAYER_H
#define VEXELPLAYER_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#define VEXEL_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque player handle, made by Create and freed by Destroy. */
typedef struct VexelPlayer* PlayerHandle;

/* A picture with its view direction, time stamp and seek flag. Opaque to hosts: use the
 * InlayBuffer_ functions. */
typedef struct InlayBuffer InlayBuffer;

/* ---- Player lifecycle and playback ---- */

/* Builds a player in the Closed state. Never returns null. */
VEXEL_API PlayerHandle Create(void);

/* Stops and frees the player. Null: nothing. */
VEXEL_API void Destroy(PlayerHandle handle);

/* Opens the file at utf8Path, plays only [start, end] (clamped to the file's duration) and
 * leaves the player Stopped; an end of 0 plays to the end of the stream. fisheyeMode is the lens
 * layout: 2 single fisheye, 3 dual fisheye, anything else equirectangular.
 * Returns 0 on success, -1 on failure. Null handle: -1. */
VEXEL_API int32_t Open(PlayerHandle handle, const char* utf8Path, uint64_t start, uint64_t end,
                       uint32_t fisheyeMode);

/* Drops pending seek requests and closes the file; the handle stays usable. Null: nothing. */
VEXEL_API void Close(PlayerHandle handle);

/* Starts, resumes or restarts playback at time. Null: nothing. */
VEXEL_API void Play(PlayerHandle handle, int64_t time);

/* Pauses while playing. Null: nothing. */
VEXEL_API void Pause(PlayerHandle handle);

/* Stops playback. Null: nothing. */
VEXEL_API void Stop(PlayerHandle handle);

/* Queues a seek to time; the player's command thread carries it out. Null: nothing. */
VEXEL_API void Seek(PlayerHandle handle, int64_t time);

/* ---- Player queries ---- */

/* Writes the play range fixed by Open. Null handle: both outputs left untouched. */
VEXEL_API void GetRange(PlayerHandle handle, uint64_t* start, uint64_t* end);

/* Frames per second of the decoded video. Null: 30.0. */
VEXEL_API double GetFrameRate(PlayerHandle handle);

/* Half the video stream's width, fraction dropped. Null: 0. */
VEXEL_API uint32_t GetWidth(PlayerHandle handle);

/* Half the video stream's height, fraction dropped. Null: 0. */
VEXEL_API uint32_t GetHeight(PlayerHandle handle);

/* Time of the last presented frame; 0 before the first Open. Null: 0. */
VEXEL_API int64_t GetCurrentPlayTime(PlayerHandle handle);

/* Hands over the last presented panorama picture, or null if none is waiting. The caller owns
 * it. Null: null. */
VEXEL_API InlayBuffer* GetCurrentPreSample(PlayerHandle handle);

/* Hands over the last presented view picture, or null if none is waiting. The caller owns it.
 * Null: null. */
VEXEL_API InlayBuffer* GetCurrentViewSample(PlayerHandle handle);

/* ---- Sound ---- */

/* Volume in hundredths of a decibel: 0 full, -10000 silent. Null: nothing. */
VEXEL_API void SetVolume(PlayerHandle handle, int32_t volume);

/* Silences (true) or restores the stored volume (false). Null: nothing. */
VEXEL_API void Mute(PlayerHandle handle, bool mute);

/* ---- View control (effective once a file has been opened) ---- */

/* Size of the rendered view; every Open starts again at 320 x 180. Null: nothing. */
VEXEL_API void SetViewDim(PlayerHandle handle, uint32_t width, uint32_t height);

/* Sets the view direction and horizontal field of view, in any state. Null: nothing. */
VEXEL_API void SetView(PlayerHandle handle, double pan, double tilt, double fov);

/* Pan gesture: only while playing. Null: nothing. */
VEXEL_API void StartPan(PlayerHandle handle);
VEXEL_API void SetPanStep(PlayerHandle handle, double x, double y);
VEXEL_API void AddPan(PlayerHandle handle, double pan, double tilt);
VEXEL_API void EndPan(PlayerHandle handle);

/* Zoom gesture: only while playing. Null: nothing. */
VEXEL_API void StartZoom(PlayerHandle handle);
VEXEL_API void AddZoom(PlayerHandle handle, double fov);
VEXEL_API void EndZoom(PlayerHandle handle);

/* ---- Time freeze (times and durations in milliseconds) ---- */

/* Replaces the freeze segments with count pairs (times[i], durations[i]). Null: nothing. */
VEXEL_API void SetTimeFreeze(PlayerHandle handle, const double* times, const double* durations,
                             int32_t count);

/* Copies up to capacity segments and returns the number of segments; 0 when no file was ever
 * opened. Null: 0. */
VEXEL_API int32_t GetTimeFreeze(PlayerHandle handle, double* times, double* durations,
                                int32_t capacity);

/* Inserts one freeze of duration at presentation time and returns its media time.
 * Null: time, unchanged. */
VEXEL_API double TimeFreeze(PlayerHandle handle, double time, double duration);

/* ---- Samples ---- */

/* New sample with a width x height picture (contents undefined), view 0/0/0, time 0, seek false.
 * Zero, negative or oversized dimensions (more than 1 GiB of pixels) give an empty sample with
 * width, height and size 0 and no picture. Never returns null. */
VEXEL_API InlayBuffer* InlayBuffer_CreateSample(int32_t width, int32_t height);

/* Frees the picture and the sample. Null: nothing. */
VEXEL_API void InlayBuffer_Release(InlayBuffer* sample);

/* The sample's picture, still owned by the sample. Null: null. */
VEXEL_API uint8_t* InlayBuffer_GetBuffer(InlayBuffer* sample);

/* Copies the picture (width * height * 4 bytes) into destination and returns destination.
 * If sample or destination is null nothing is copied and destination is returned. */
VEXEL_API uint8_t* InlayBuffer_ReadBuffer(InlayBuffer* sample, uint8_t* destination);

/* Picture width and height in pixels. Null: 0. */
VEXEL_API uint32_t InlayBuffer_GetWidth(InlayBuffer* sample);
VEXEL_API uint32_t InlayBuffer_GetHeight(InlayBuffer* sample);

/* Presentation time in ticks, as a double (2 seconds is 20000000.0). Null: 0.0. */
VEXEL_API double InlayBuffer_GetTime(InlayBuffer* sample);

/* Whether the frame was shown by a seek. Null: true. */
VEXEL_API bool InlayBuffer_GetSeek(InlayBuffer* sample);

/* The view direction the sample was rendered with. Null: 0.0. */
VEXEL_API double InlayBuffer_GetPan(InlayBuffer* sample);
VEXEL_API double InlayBuffer_GetTilt(InlayBuffer* sample);
VEXEL_API double InlayBuffer_GetFov(InlayBuffer* sample);

/* Stores a view direction in the sample, for GetView and ExtractView. Null: nothing. */
VEXEL_API void InlayBuffer_SetView(InlayBuffer* sample, double pan, double tilt, double fov);

/* Renders the sample's picture for its stored direction into destination at the player's view
 * size; destination must hold width * height * 4 bytes of that size and be 4-byte aligned. Does
 * nothing while playing, before the first Open, or if any argument is null. */
VEXEL_API void InlayBuffer_GetView(PlayerHandle handle, InlayBuffer* sample, uint8_t* destination);

/* Renders the sample's picture for its stored direction into destination at width x height;
 * destination must hold width * height * 4 bytes and be 4-byte aligned. Does nothing if sample
 * or destination is null, the sample has no picture, or the view is empty or over 4 GiB. */
VEXEL_API void InlayBuffer_ExtractView(InlayBuffer* sample, uint8_t* destination, uint32_t width,
                                       uint32_t height);

#ifdef __cplusplus
}
#endif

#endif /* VEXELPLAYER_H */
