/* Plays a stream in a loop of libuv, in one thread: libuv_client rtsp://192.0.2.7/live SECONDS */
#include <rtsptap_extended.h>
#include <stdio.h>
#include <stdlib.h>
#include <uv.h>

static intptr_t client;
static int32_t streams;
static long long taken;
static int32_t end;

static void on_readable(uv_poll_t *poll, int status, int events) {
    RTPStreamData *packets[64];
    (void)events;
    for (int32_t stream = 1; status == 0 && stream <= streams; stream++) {
        int32_t count;
        while ((count = RTSPTapTakePackets(client, stream, packets, 64, 0)) > 0) {
            taken += count;
            RTSPTapFreePackets(client, stream, packets, count);
        }
        if (count < 0) end = count;
    }
    if (end != 0 || status != 0) uv_stop(poll->loop);
}

static void on_time(uv_timer_t *timer) { uv_stop(timer->loop); }

int main(int argc, char **argv) {
    uv_loop_t *const loop = uv_default_loop();
    uv_poll_t poll;
    uv_timer_t timer;
    client = RTSPClientCreate();
    RTSPTapSetOption(client, RTSPTAP_OPTION_THREADS, 0);
    RTSPTapSetOption(client, RTSPTAP_OPTION_KEEP_ALIVE, -1);
    RTSPTapSetOption(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    if (argc < 3 || RTSPTapOpen(client, argv[1]) != 0 || RTSPTapStart(client, NULL, NULL) != 0) return 1;
    streams = RTSPClientGetNbStreams(client);
    uv_poll_init(loop, &poll, RTSPTapGetDescriptor(client)); /* the same one also after another RTSPTapOpen */
    uv_poll_start(&poll, UV_READABLE, on_readable);
    uv_timer_init(loop, &timer);
    uv_timer_start(&timer, on_time, 1000 * (uint64_t)atoi(argv[2]), 0);
    uv_run(loop, UV_RUN_DEFAULT);
    printf("%lld packets%s%s\n", taken, end != 0 ? ", then: " : "", end != 0 ? RTSPTapResultText(end) : "");
    uv_close((uv_handle_t *)&poll, NULL); /* before the descriptor goes with its client */
    uv_close((uv_handle_t *)&timer, NULL);
    uv_run(loop, UV_RUN_DEFAULT);
    uv_loop_close(loop);
    RTSPTapTeardown(client);
    return RTSPClientDestroy(client);
}
