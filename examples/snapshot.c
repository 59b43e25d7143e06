/* snapshot: plays the first two seconds of a panorama video with libVexelPlayer, takes the last
 * presented panorama and view, and writes the view to a PPM picture.
 * Usage: snapshot video.mp4 [view.ppm] */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <time.h>
#include <vexelplayer.h>

static void sleep_ms(long ms) {
    struct timespec wait = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&wait, NULL);
}

/* Pictures are 4 bytes a pixel, in memory blue, green, red, alpha; PPM wants red, green, blue. */
static int write_ppm(const char* path, InlayBuffer* picture) {
    uint32_t width = InlayBuffer_GetWidth(picture), height = InlayBuffer_GetHeight(picture);
    const uint8_t* pixel = InlayBuffer_GetBuffer(picture);
    FILE* file = fopen(path, "wb");
    if (file == NULL) return -1;
    fprintf(file, "P6\n%u %u\n255\n", width, height);
    for (size_t i = 0; i < (size_t)width * height; ++i, pixel += 4) {
        const uint8_t rgb[3] = {pixel[2], pixel[1], pixel[0]};
        fwrite(rgb, 1, 3, file);
    }
    return fclose(file);
}

/* Keeps sample in *kept unless it is the end marker; returns whether it was. */
static int keep_newest(InlayBuffer** kept, InlayBuffer* sample) {
    if (InlayBuffer_GetWidth(sample) == 0) {
        InlayBuffer_Release(sample);
        return 1;
    }
    InlayBuffer_Release(*kept);
    *kept = sample;
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s video [view.ppm]\n", argv[0]);
        return 2;
    }
    const char* out = argc > 2 ? argv[2] : "view.ppm";

    PlayerHandle player = Create();
    if (Open(player, argv[1], 0, 0, 0 /* equirectangular */) != 0) {
        fprintf(stderr, "%s: cannot open %s\n", argv[0], argv[1]);
        Destroy(player);
        return 1;
    }
    SetViewDim(player, 640, 360);      /* after every Open */
    SetView(player, 90.0, 0.0, 100.0); /* look east, 100 degrees wide */
    Play(player, 0);

    /* Each presented frame is handed over once; keep the newest panorama and view. Samples
     * without a picture mark the end of the video. */
    InlayBuffer* panorama = NULL;
    InlayBuffer* view = NULL;
    int ended = 0;
    for (int step = 0; step < 100 && !ended; ++step) { /* two seconds */
        sleep_ms(20);
        InlayBuffer* sample;
        if ((sample = GetCurrentPreSample(player)) != NULL) {
            ended |= keep_newest(&panorama, sample);
        }
        if ((sample = GetCurrentViewSample(player)) != NULL) {
            ended |= keep_newest(&view, sample);
        }
    }
    Stop(player);

    int status = 1;
    if (panorama != NULL && view != NULL) {
        printf("panorama %ux%u, view %ux%u at %.2f s looking %.0f/%.0f/%.0f degrees\n",
               InlayBuffer_GetWidth(panorama), InlayBuffer_GetHeight(panorama),
               InlayBuffer_GetWidth(view), InlayBuffer_GetHeight(view),
               InlayBuffer_GetTime(view) / 1e7, InlayBuffer_GetPan(view), InlayBuffer_GetTilt(view),
               InlayBuffer_GetFov(view));
        status = write_ppm(out, view) == 0 ? 0 : 1;
    } else {
        fprintf(stderr, "%s: no frame was presented\n", argv[0]);
    }
    InlayBuffer_Release(panorama);
    InlayBuffer_Release(view);
    Close(player);
    Destroy(player);
    return status;
}
