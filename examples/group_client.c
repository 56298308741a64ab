/* Many cameras in one thread: counts the packets of every stream of every camera, and opens one again that has ended.
 * group_client SECONDS rtsp://192.0.2.7/live rtsp://192.0.2.8/live ... */
#include <rtsptap_extended.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

typedef struct {
    const char *url;
    intptr_t client;
    long long packets;
    int openings;
} Camera;

static int begin(RTSPTapGroup *group, Camera *camera) {
    camera->openings++;
    camera->client = RTSPClientCreate();
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_THREADS, 0);
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_KEEP_ALIVE, -1);
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_SILENCE_LIMIT, 0); /* PLAY alone: nobody else waits for it */
    RTSPTapSetOption(camera->client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    if (RTSPTapOpen(camera->client, camera->url) == 0 && RTSPTapStart(camera->client, NULL, NULL) == 0)
        return RTSPTapGroupAdd(group, camera->client, camera);
    fprintf(stderr, "%s can not be opened\n", camera->url);
    return -1;
}

static void end(Camera *camera) {
    RTSPTapTeardown(camera->client);
    RTSPClientDestroy(camera->client); /* leaves the group, too */
    camera->client = 0;
}

int main(int argc, char **argv) {
    RTSPTapGroup *group = RTSPTapGroupCreate();
    const int count = argc - 2;
    Camera *cameras = calloc(argc > 2 ? (size_t)count : 1, sizeof *cameras);
    const time_t until = argc > 2 ? time(NULL) + atoi(argv[1]) : 0;
    int failed = argc < 3;
    for (int i = 0; i < count; i++) {
        cameras[i].url = argv[i + 2];
        if (begin(group, &cameras[i]) != 0) failed = 1;
    }
    while (!failed && time(NULL) < until) {
        RTSPTapGroupPacket packets[256];
        Camera *ended = NULL;
        const int32_t taken = RTSPTapGroupTakePackets(group, packets, 256, 500);
        for (int32_t i = 0; i < taken; i++) {
            Camera *const camera = packets[i].context;
            if (packets[i].packet != NULL)
                camera->packets++; /* its payload lies in packets[i].packet->payload */
            else
                ended = camera;
        }
        RTSPTapGroupFreePackets(packets, taken);
        if (ended == NULL) continue;
        end(ended);
        begin(group, ended);
    }
    for (int i = 0; i < count; i++) {
        printf("%s: %lld packets, opened %d times\n", cameras[i].url, cameras[i].packets, cameras[i].openings);
        if (cameras[i].client > 0) end(&cameras[i]);
    }
    RTSPTapGroupDestroy(group);
    free(cameras);
    return failed;
}
