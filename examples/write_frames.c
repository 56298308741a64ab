/* Plays an RTSP session and writes the frames of one stream to a file that players read (H.264, H.265: Annex B; AAC:
 * ADTS; JPEG: one file behind the other): write_frames 192.0.2.7 554 live 1 500 video.h264 */
#include <inttypes.h>
#include <rtsptap_frames.h>
#include <stdio.h>
#include <stdlib.h>

static intptr_t client;

static RTSPTapFrames *assemble(int32_t number, int32_t *codec) {
    RTSPTapStreamDescription description;
    description.recordSize = sizeof description;
    if (RTSPTapGetStreamDescription(client, number, &description) != RTSP_SUCCESS) return NULL;
    *codec = description.codecType;
    printf("%s\n", description.encodingName);
    return RTSPTapFramesCreate(&description, RTSPTAP_FRAMES_STREAM, 0);
}

/* Of the frames that are whole; returns how many there were. */
static int write_frames(RTSPTapFrames *frames, FILE *file) {
    RTSPTapFrame frame;
    int count = 0;
    frame.recordSize = sizeof frame;
    for (; RTSPTapFramesNext(frames, &frame) == RTSP_SUCCESS; count++) {
        fwrite(frame.data, 1, frame.size, file);
        printf("%s%" PRId64 "%s\n", frame.isKey ? "key " : "", frame.time, frame.isDamaged ? " damaged" : "");
    }
    return count;
}

int main(int argc, char **argv) {
    FILE *file;
    RTSPTapFrames *frames;
    int32_t codec = 0;
    int missing;
    client = RTSPClientCreate();
    RTPClientSetAudioVideoBufferSize(client, 4 << 20, 1 << 20);
    RTSPTapSetOption(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    if (argc < 7 || RTSPClientAutoRTSPConnect(client, argv[1], (uint16_t)atoi(argv[2]), argv[3], "", "",
                                              DATA_PROTO_TCP, 0, 0, 0, 0, 0, NULL, NULL) != RTSP_SUCCESS)
        return 1;
    frames = assemble(atoi(argv[4]), &codec);
    file = fopen(argv[6], "wb");
    if (frames == NULL || file == NULL) return 1;
    for (missing = atoi(argv[5]); missing > 0; missing -= write_frames(frames, file)) {
        RTPStreamData *packet = NULL;
        if (RTPClientGetRTPStreamData(client, &packet, codec) != RTSP_SUCCESS || packet == NULL) break;
        RTSPTapFramesAdd(frames, packet);
        RTPClientFreeRTPStreamData(client, packet, codec);
    }
    RTSPTapFramesEnd(frames);
    write_frames(frames, file);
    RTSPTapFramesDestroy(frames);
    fclose(file);
    RTSPClientSendTeardownRequest(client, 0, NULL, NULL);
    return RTSPClientDestroy(client);
}
