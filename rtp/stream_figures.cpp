// Queue figures and the offset between the clocks of sound and picture. Application threads.
#include "platform/scope.h"
#include "rtp/packet_access.h"
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/registry.h"

namespace rtsptap {

namespace {

constexpr uint32_t kVideoClockRate = 90000;

RTSPClient *CheckFigureCall(const CallTrace &trace, intptr_t clientHandle, int32_t codecType) {
    RTSPClient *const none = nullptr;
    DebugPrint(kDebugEntry, "Input: clientHandle      : %d\n", PrintableHandle(clientHandle));
    if (clientHandle == 0) return trace.Fail(none, "EXIT : %s :Invalid Client Handle \n");
    if (!IsCodecType(codecType)) return trace.Fail(none, "EXIT : %s :Invalid Codec Type \n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(none, "EXIT : %s : Argument error. Invalid handle in stack.\n");
    return client;
}

// The last stream of the description with that codec, where packet access takes the first.
const RTSPStreamInfo *LastStreamByCodec(const RTSPClient &client, int32_t codecType) {
    const RTSPStreamInfo *found = nullptr;
    const RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (int32_t left = client.streamCount.load(std::memory_order_acquire); stream != nullptr && left > 0; --left) {
        if (stream->codecType.load(std::memory_order_acquire) == codecType) found = stream;
        stream = stream->next.load(std::memory_order_acquire);
    }
    return found;
}

// 32-bit arithmetic throughout; divided as signed 64-bit numbers, where no pair of values traps.
uint32_t InVideoClock(uint32_t audioTimestamp, int32_t audioClockRate) {
    if (audioClockRate == 0) return 0;
    const auto product = static_cast<int32_t>(audioTimestamp * kVideoClockRate);
    return static_cast<uint32_t>(int64_t{product} / audioClockRate);
}

uint32_t ReportedTimestamp(const RTSPStreamInfo &stream) {
    return stream.srRtpTimestamp.load(std::memory_order_relaxed);
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTPClientGetTSOffset(intptr_t clientHandle, int32_t codecType, uint32_t *tsOffset, int32_t audioClockRate) {
    const CallTrace trace(__func__);
    const RTSPClient *const client = CheckPacketCall(trace, clientHandle, codecType);
    if (client == nullptr) return RTSP_INVALID_ARGUMENT;
    const RTSPStreamInfo *const audio = LastStreamByCodec(*client, RTP_CODEC_MPEG4_GENERIC);
    const RTSPStreamInfo *const video = LastStreamByCodec(*client, RTP_CODEC_H264);
    if (audio == nullptr && video == nullptr) return RTSP_FAILURE;
    if (codecType == RTP_CODEC_H264 && audio == nullptr) return RTSP_FAILURE;
    if (codecType != RTP_CODEC_MPEG4_GENERIC) return RTSP_SUCCESS;
    if (audio == nullptr || video == nullptr) return RTSP_FAILURE;
    if (tsOffset == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    *tsOffset = InVideoClock(ReportedTimestamp(*audio), audioClockRate) - ReportedTimestamp(*video);
    return RTSP_SUCCESS;
}

int32_t RTPClientGetNbOfPktInBuffer(intptr_t clientHandle, int32_t codecType) {
    const CallTrace trace(__func__);
    const RTSPClient *const client = CheckFigureCall(trace, clientHandle, codecType);
    if (client == nullptr) return RTSP_INVALID_ARGUMENT;
    const RTSPStreamInfo *const stream = FindStreamByCodec(*client, codecType);
    return stream != nullptr ? stream->packetCount.load(std::memory_order_relaxed) : RTSP_FAILURE;
}

// Kept: every failure is 0 here, like an empty queue.
int32_t RTPClientGetStreamPktCount(intptr_t clientHandle, int32_t codecType) {
    const CallTrace trace(__func__);
    const RTSPClient *const client = CheckFigureCall(trace, clientHandle, codecType);
    if (client == nullptr) return 0;
    RTSPStreamInfo *const stream = FindStreamByCodec(*client, codecType);
    if (stream == nullptr) return 0;
    const ScopedLock lock(stream->packetListLock);
    const RTPStreamData *const head = stream->packetListHead.load(std::memory_order_relaxed);
    return head != nullptr ? static_cast<int32_t>(head->packetIndex) : 0;
}
