/* Plays the first streams of two cameras, of which one may be far behind, and says how they belong together: for
 * each how late its pictures come by the camera's own clock, and from that how long the earlier one has to be held
 * back to be shown beside the other. The cameras' clocks must agree (NTP): align_streams URL URL [SECONDS] */
#include <rtsptap_extended.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

struct camera {
    intptr_t client;
    long long packets;
    long long reported; /* those whose time is by a sender report */
    int64_t behind_ns;  /* how long that one was on its way */
    double drift_ppm;   /* how much faster the camera's clock runs than ours */
};

static int open_camera(struct camera *camera, const char *url) {
    camera->client = RTSPClientCreate();
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_PACKET_TIMES, 1);
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_KEEP_ALIVE, -1);
    if (RTSPTapOpen(camera->client, url) != 0) return -1;
    return RTSPTapStart(camera->client, NULL, NULL);
}

static void note_times(struct camera *camera, const RTPStreamData *packet) {
    RTSPTapPacketTimes times;
    times.recordSize = sizeof times;
    camera->packets++;
    if (RTSPTapGetPacketTimes(camera->client, 1, packet, &times) != 0) return;
    if (times.source != RTSPTAP_TIME_SENDER_REPORT) return; /* before the first one: only right within a camera */
    camera->reported++;
    camera->behind_ns = times.arrivalNs - times.senderNs;
    camera->drift_ppm = times.driftPpm;
}

static int32_t take(struct camera *camera) {
    RTPStreamData *packets[64];
    const int32_t count = RTSPTapTakePackets(camera->client, 1, packets, 64, 10);
    for (int32_t i = 0; i < count; i++) note_times(camera, packets[i]);
    if (count > 0) RTSPTapFreePackets(camera->client, 1, packets, count);
    return count;
}

static void print_camera(int number, const struct camera *camera) {
    printf("camera %d: %lld packets, %lld with the camera's time, %.1f ms on their way, drift %.1f ppm\n", number,
           camera->packets, camera->reported, (double)camera->behind_ns / 1e6, camera->drift_ppm);
}

int main(int argc, char **argv) {
    struct camera cameras[2] = {{0}, {0}};
    const time_t end = time(NULL) + (argc > 3 ? atoi(argv[3]) : 10);
    int32_t count = 0;
    if (argc < 3) return 2;
    for (int i = 0; i < 2; i++)
        if (open_camera(&cameras[i], argv[i + 1]) != 0) return 1;
    while (count >= 0 && time(NULL) < end)
        for (int i = 0; i < 2 && count >= 0; i++) count = take(&cameras[i]);
    for (int i = 0; i < 2; i++) print_camera(i + 1, &cameras[i]);
    if (cameras[0].reported > 0 && cameras[1].reported > 0) {
        const double apart = (double)(cameras[0].behind_ns - cameras[1].behind_ns) / 1e6;
        printf("hold camera %d back by %.1f ms\n", apart < 0 ? 1 : 2, apart < 0 ? -apart : apart);
    }
    for (int i = 0; i < 2; i++) {
        RTSPTapTeardown(cameras[i].client);
        RTSPClientDestroy(cameras[i].client);
    }
    return 0;
}
