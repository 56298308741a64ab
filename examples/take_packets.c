/* Plays an RTSP session over TCP and counts the packets of all its streams, whatever they carry, until the streams
 * end, Control-C is pressed or the given number of seconds has passed: take_packets 192.0.2.7 554 live [SECONDS] */
#include <rtsptap_extended.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static intptr_t client;

static void call_off(int number) {
    (void)number;
    RTSPTapInterrupt(client); /* only writes a number: a signal handler may call it */
}

static void *count_packets(void *argument) { /* one thread a stream */
    const int32_t stream = *(int32_t *)argument;
    RTPStreamData *packets[64];
    long long taken = 0;
    int32_t count;
    while ((count = RTSPTapTakePackets(client, stream, packets, 64, 1000)) >= 0) {
        taken += count;
        RTSPTapFreePackets(client, stream, packets, count);
    }
    printf("stream %d: %lld packets, then: %s\n", (int)stream, taken, RTSPTapResultText(count));
    return NULL;
}

int main(int argc, char **argv) {
    pthread_t threads[8];
    int32_t numbers[8];
    int32_t streams;
    client = RTSPClientCreate();
    RTPClientSetAudioVideoBufferSize(client, 4 << 20, 1 << 20);
    RTSPTapSetOption(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    RTSPTapSetOption(client, RTSPTAP_OPTION_DROP_DUPLICATES, 1);
    if (argc < 4 || RTSPClientAutoRTSPConnect(client, argv[1], (uint16_t)atoi(argv[2]), argv[3], "", "",
                                              DATA_PROTO_TCP, 0, 0, 0, 0, 0, NULL, NULL) != RTSP_SUCCESS)
        return 1;
    signal(SIGINT, call_off);
    signal(SIGALRM, call_off);
    if (argc > 4) alarm((unsigned)atoi(argv[4]));
    streams = RTSPClientGetNbStreams(client);
    if (streams > 8) streams = 8;
    for (int32_t i = 0; i < streams; i++) {
        numbers[i] = i + 1;
        pthread_create(&threads[i], NULL, count_packets, &numbers[i]);
    }
    for (int32_t i = 0; i < streams; i++) pthread_join(threads[i], NULL);
    RTSPClientSendTeardownRequest(client, 0, NULL, NULL);
    return RTSPClientDestroy(client);
}
