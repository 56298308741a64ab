/* A session method by method, with a look at every result: full_client 192.0.2.7 554 live [udp|tcp]
 *
 * OPTIONS, DESCRIBE, SETUP of each stream, PLAY, two seconds of packets, PAUSE, PLAY, two seconds more, TEARDOWN.
 * A server that asks for a password: see "Passwords" in rtsptap.h. */
#include <rtsptap.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { VIDEO_BUFFER = 4 << 20, AUDIO_BUFFER = 1 << 20, LISTEN_MS = 2000, MAX_STREAMS = 8 };

/* What packets are asked for by; taken down once, as every question to the library prints a line. */
static int32_t codecs[MAX_STREAMS];
static int32_t stream_count;

static int failed(const char *what, int32_t result) {
    if (result != RTSP_SUCCESS) fprintf(stderr, "%s: result %d\n", what, (int)result);
    return result != RTSP_SUCCESS;
}

static void print_session_name(intptr_t client) {
    char name[256];
    uint32_t size = sizeof name; /* in: room; out: length with its terminator */
    if (RTSPClientGetSDPFieldInfo(client, 0, "s", name, &size) == RTSP_SUCCESS) printf("session: %s\n", name);
}

/* Connected, described and set up; a header list replaces the default User-Agent. */
static int prepare(intptr_t client, const char *ip, uint16_t port, const char *path, uint32_t transport) {
    intptr_t headers = RTSPCreateHeaderList();
    int32_t result = RTSPAddHeaderToList(headers, "User-Agent", "full_client", 0);
    char reply[4096];
    int32_t size = sizeof reply; /* in: room; out: length, no terminator */

    if (result == RTSP_SUCCESS) result = RTPClientSetAudioVideoBufferSize(client, VIDEO_BUFFER, AUDIO_BUFFER);
    if (result == RTSP_SUCCESS) result = RTSPClientConnect(client, ip, port, path, transport, 0);
    if (result == RTSP_SUCCESS) result = RTSPClientSendOptionsRequest(client, headers, reply, &size);
    if (result == RTSP_SUCCESS) printf("%.*s", (int)size, reply);
    if (result == RTSP_SUCCESS) result = RTSPClientSendDescribeRequest(client, headers, NULL, NULL);
    RTSPDestroyHeaderList(headers);
    if (failed("up to DESCRIBE", result)) return -1;

    print_session_name(client);
    stream_count = RTSPClientGetNbStreams(client);
    if (stream_count > MAX_STREAMS) stream_count = MAX_STREAMS;
    for (int32_t stream = 1; stream <= stream_count; ++stream) {
        if (failed("SETUP", RTSPClientSendSetupRequest(client, stream, 0, NULL, NULL))) return -1;
        codecs[stream - 1] = RTSPClientGetSDPInfo(client, stream)->codecType;
    }
    return 0;
}

/* Takes what has arrived on every stream, without waiting for a stream that is silent. */
static unsigned drain(intptr_t client) {
    unsigned count = 0;
    for (int32_t stream = 0; stream < stream_count; ++stream) {
        const int32_t codec = codecs[stream];
        RTPStreamData *packet = NULL;
        while (codec != 0 && RTPClientGetNbOfPktInBuffer(client, codec) > 0 &&
               RTPClientGetRTPStreamData(client, &packet, codec) == RTSP_SUCCESS && packet != NULL) {
            RTPClientFreeRTPStreamData(client, packet, codec);
            packet = NULL;
            count++;
        }
    }
    return count;
}

static void receive(intptr_t client, const char *what) {
    const uint64_t end = GetTimeValue() + LISTEN_MS;
    unsigned count = 0;
    while (GetTimeValue() < end) {
        count += drain(client);
        MSecDelay(10);
    }
    printf("%s: %u packets\n", what, count);
}

/* Goes on where the pause began: the default range is the beginning, which a live source has left behind. */
static int32_t resume(intptr_t client) {
    intptr_t headers = RTSPCreateHeaderList();
    int32_t result = RTSPAddHeaderToList(headers, "Range", "npt=now-", 0);
    if (result == RTSP_SUCCESS) result = RTSPClientSendPlayRequest(client, 0, headers, NULL, NULL);
    RTSPDestroyHeaderList(headers);
    return result;
}

static int play_pause_play(intptr_t client) {
    if (failed("PLAY", RTSPClientSendPlayRequest(client, 0, 0, NULL, NULL))) return -1;
    receive(client, "playing");
    if (failed("PAUSE", RTSPClientSendPauseRequest(client, 0, 0, NULL, NULL))) return -1;
    drain(client); /* what was under way */
    receive(client, "paused");
    if (failed("PLAY again", resume(client))) return -1;
    receive(client, "playing again");
    return failed("TEARDOWN", RTSPClientSendTeardownRequest(client, 0, NULL, NULL)) ? -1 : 0;
}

int main(int argc, char **argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: full_client IP PORT PATH [udp|tcp]\n");
        return 2;
    }
    const uint32_t transport = argc > 4 && strcmp(argv[4], "tcp") == 0 ? DATA_PROTO_TCP : DATA_PROTO_UDP;
    const intptr_t client = RTSPClientCreate();
    if (ValidateRTSPClientHandle(client) != RTSP_SUCCESS) return 1;
    const int result = prepare(client, argv[1], (uint16_t)atoi(argv[2]), argv[3], transport);
    const int played = result == 0 ? play_pause_play(client) : -1;
    RTSPClientDestroy(client); /* from any state; closes what is open */
    return played == 0 ? 0 : 1;
}
