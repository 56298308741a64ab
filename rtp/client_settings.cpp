// The client's latency limits and ring sizes. Application thread; receive threads read the limits with each
// packet, the sizes when they start.
#include "platform/call_trace.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/registry.h"

using namespace rtsptap;

int32_t RTPClientConfigLatency(intptr_t clientHandle, int32_t tLInMS, int32_t uFInMS, int32_t oFInMS) {
    const CallTrace trace(__func__);
    DebugPrint(kDebugEntry, "Input: : clientHandle %d\n", PrintableHandle(clientHandle));
    DebugPrint(kDebugEntry, "Input: : tLInMS %d\n", tLInMS);
    DebugPrint(kDebugEntry, "Input: : uFInMS %d\n", uFInMS);
    DebugPrint(kDebugEntry, "Input: : oFInMS %d\n", oFInMS);
    const bool negative = tLInMS < 0 || uFInMS < 0 || oFInMS < 0;
    if (negative || uFInMS > oFInMS || uFInMS > tLInMS || oFInMS < tLInMS)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input arguments\n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");

    client->targetLatency = tLInMS;
    client->underflowLimit = uFInMS;
    client->overflowLimit = oFInMS;
    RtpRtspInfoPrint("Target Latency : %d \n", tLInMS);
    RtpRtspInfoPrint("Underflow Condition : %d \n", uFInMS);
    RtpRtspInfoPrint("Overflow  Condition : %d \n", oFInMS);
    return RTSP_SUCCESS;
}

int32_t RTSPTapSetRtcpCallback(intptr_t clientHandle, RTSPTapRtcpCallback callback, void *context) {
    const CallTrace trace(__func__);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Client Handle\n");
    const bool used = client->connected != 0 || client->cSeq != 0 || client->streamList != nullptr;
    if (used) return trace.Fail(RTSP_FAILURE, "EXIT : %s :Client has connected before\n");
    client->rtcpCallback = callback;
    client->rtcpContext = context;
    return RTSP_SUCCESS;
}

int32_t RTPClientSetAudioVideoBufferSize(intptr_t clientHandle, int32_t videoBufferSize, int32_t audioBufferSize) {
    const CallTrace trace(__func__);
    DebugPrint(kDebugEntry, "Input:  videoBufferSize    : %d\n", videoBufferSize);
    DebugPrint(kDebugEntry, "Input:  audioBufferSize    : %d\n", audioBufferSize);
    if (clientHandle == 0 || videoBufferSize < 0 || audioBufferSize < 0)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Client Handle\n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : Argument error. Invalid handle in stack.\n");

    client->videoBufferSize = videoBufferSize;
    client->audioBufferSize = audioBufferSize;
    RtpRtspInfoPrint("Setting Video Buffer Size : %d and Audio Buffer Size : %d \n", videoBufferSize,
                     audioBufferSize);
    return RTSP_SUCCESS;
}
