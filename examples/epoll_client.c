/* Plays a stream without any thread of the library's, in a loop of the program's own over epoll(7), beside a timer
 * of its own: epoll_client rtsp://192.0.2.7/live SECONDS */
#include <rtsptap_extended.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

static long long taken[8];

/* What there is; 0, or why nothing more comes. */
static int32_t take_all(intptr_t client, int32_t streams) {
    RTPStreamData *packets[64];
    int32_t end = 0;
    for (int32_t stream = 1; stream <= streams && stream <= 8; stream++) {
        int32_t count;
        while ((count = RTSPTapTakePackets(client, stream, packets, 64, 0)) > 0) {
            taken[stream - 1] += count;
            RTSPTapFreePackets(client, stream, packets, count);
        }
        if (count < 0) end = count;
    }
    return end;
}

static void watch(int loop, int descriptor) {
    struct epoll_event event = {.events = EPOLLIN, .data = {.fd = descriptor}};
    epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &event);
}

/* Takes what was begun to its end; whatever else the loop waits on would be served here, too. */
static int32_t finish(int loop, intptr_t client, int32_t result) {
    while (result == 0 && (result = RTSPTapProgress(client)) == RTSPTAP_PENDING) {
        struct epoll_event event;
        epoll_wait(loop, &event, 1, -1);
        take_all(client, RTSPClientGetNbStreams(client));
        result = 0;
    }
    return result;
}

int main(int argc, char **argv) {
    const intptr_t client = RTSPClientCreate();
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    struct itimerspec once = {{0, 0}, {1, 0}};
    int32_t streams, result, end = 0;
    int isOver = 0;
    RTSPTapSetOption(client, RTSPTAP_OPTION_THREADS, 0);
    RTSPTapSetOption(client, RTSPTAP_OPTION_KEEP_ALIVE, -1); /* sent by the calls that take packets */
    RTSPTapSetOption(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    if (argc < 3) return 1;
    watch(loop, RTSPTapGetDescriptor(client));
    result = finish(loop, client, RTSPTapBeginOpen(client, argv[1]));
    if (result == 0) result = finish(loop, client, RTSPTapBeginPlay(client, NULL, NULL));
    if (result != 0) {
        puts(RTSPTapResultText(result));
        return 1;
    }
    streams = RTSPClientGetNbStreams(client);
    once.it_value.tv_sec = atoi(argv[2]);
    timerfd_settime(timer, 0, &once, NULL);
    watch(loop, timer);
    while (!isOver && end == 0) {
        struct epoll_event events[8];
        const int count = epoll_wait(loop, events, 8, -1);
        for (int i = 0; i < count; i++) {
            if (events[i].data.fd == timer)
                isOver = 1;
            else
                end = take_all(client, streams);
        }
    }
    for (int32_t i = 0; i < streams && i < 8; i++) printf("stream %d: %lld packets\n", (int)i + 1, taken[i]);
    if (end != 0) printf("%s\n", RTSPTapResultText(end));
    epoll_ctl(loop, EPOLL_CTL_DEL, timer, NULL);
    finish(loop, client, RTSPTapBeginTeardown(client));
    close(timer);
    close(loop);
    return RTSPClientDestroy(client);
}
