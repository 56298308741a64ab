/* Plays a stream in a main loop of GLib, in one thread: glib_client rtsp://192.0.2.7/live SECONDS */
#include <glib-unix.h>
#include <rtsptap_extended.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct {
    intptr_t client;
    int32_t streams;
    int32_t end;
    long long taken;
    GMainLoop *loop;
} Reception;

static gboolean on_readable(gint descriptor, GIOCondition condition, gpointer argument) {
    Reception *const reception = argument;
    RTPStreamData *packets[64];
    (void)descriptor;
    (void)condition;
    for (int32_t stream = 1; stream <= reception->streams; stream++) {
        int32_t count;
        while ((count = RTSPTapTakePackets(reception->client, stream, packets, 64, 0)) > 0) {
            reception->taken += count;
            RTSPTapFreePackets(reception->client, stream, packets, count);
        }
        if (count < 0) reception->end = count;
    }
    if (reception->end != 0) g_main_loop_quit(reception->loop);
    return G_SOURCE_CONTINUE;
}

static gboolean on_time(gpointer argument) {
    g_main_loop_quit(((Reception *)argument)->loop);
    return G_SOURCE_CONTINUE;
}

int main(int argc, char **argv) {
    Reception reception = {RTSPClientCreate(), 0, 0, 0, g_main_loop_new(NULL, FALSE)};
    const intptr_t client = reception.client;
    guint source, timer;
    RTSPTapSetOption(client, RTSPTAP_OPTION_THREADS, 0);
    RTSPTapSetOption(client, RTSPTAP_OPTION_KEEP_ALIVE, -1);
    RTSPTapSetOption(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    if (argc < 3 || RTSPTapOpen(client, argv[1]) != 0 || RTSPTapStart(client, NULL, NULL) != 0) return 1;
    reception.streams = RTSPClientGetNbStreams(client);
    source = g_unix_fd_add(RTSPTapGetDescriptor(client), G_IO_IN, on_readable, &reception);
    timer = g_timeout_add_seconds((guint)atoi(argv[2]), on_time, &reception);
    g_main_loop_run(reception.loop);
    printf("%lld packets%s%s\n", reception.taken, reception.end != 0 ? ", then: " : "",
           reception.end != 0 ? RTSPTapResultText(reception.end) : "");
    g_source_remove(timer);
    g_source_remove(source); /* before the descriptor goes with its client */
    g_main_loop_unref(reception.loop);
    RTSPTapTeardown(client);
    return RTSPClientDestroy(client);
}
