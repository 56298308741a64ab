/* Plays an RTSP session and counts the video packets of its first seconds: count_packets 192.0.2.7 554 live */
#include <rtsptap.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    int count = 0;
    intptr_t client = RTSPClientCreate();
    RTPClientSetAudioVideoBufferSize(client, 4 << 20, 1 << 20); /* bytes, before connecting */
    if (argc < 4 || RTSPClientAutoRTSPConnect(client, argv[1], (uint16_t)atoi(argv[2]), argv[3], "", "",
                                              DATA_PROTO_UDP, 0, 0, 0, 0, 0, NULL, NULL) != RTSP_SUCCESS)
        return 1;
    for (int turn = 0; turn < 500; ++turn) {
        RTPStreamData *packet = NULL; /* left alone when there is no such stream */
        if (RTPClientGetRTPStreamData(client, &packet, RTP_CODEC_H264) != RTSP_SUCCESS || packet == NULL) break;
        count++;
        RTPClientFreeRTPStreamData(client, packet, RTP_CODEC_H264); /* in the order taken */
    }
    printf("%d packets\n", count);
    RTSPClientSendTeardownRequest(client, 0, NULL, NULL);
    return RTSPClientDestroy(client);
}
