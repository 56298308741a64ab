#include "rtp/rtcp_packet.h"

#include "platform/printers.h"
#include "platform/wire.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"

#include <cstdio>

namespace rtsptap {

namespace {

// RFC 3550, 6.4.1; every kind of packet starts with these first four bytes:
//
//      0                   1                   2                   3
//      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0 |V=2|P|   RC    |   PT=SR=200   |            length             |
//   4 |                        SSRC of sender                         |
//   8 |              NTP timestamp, most significant word             |
//  12 |             NTP timestamp, least significant word             |
//  16 |                         RTP timestamp                         |
//  20 |                     sender's packet count                     |
//  24 |                      sender's octet count                     |
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr int kRtcpVersion = 2;

enum RtcpType : uint8_t {
    kSenderReport = 200,
    kReceiverReport = 201,
    kBye = 203,
    kIgnored = 100 // Kept: no RTCP type, yet accepted and answered like a receiver report.
};

void KeepSenderReport(RTSPStreamInfo &stream, const wire::ReceivedBytes &bytes) {
    stream.srHeader = bytes.U32(0);
    stream.srSenderSsrc = bytes.U32(4);
    stream.srNtpMsw = bytes.U32(8);
    stream.srNtpLsw = bytes.U32(12);
    stream.srRtpTimestamp.store(bytes.U32(16), std::memory_order_relaxed);
    stream.srPacketCount = bytes.U32(20);
    stream.srOctetCount = bytes.U32(24);
}

} // namespace

int32_t ParseRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t size) {
    DebugPrint(kDebugEntry, "\nENTER: ParseRtcpPacket streamInfoPtr = %d\n\tpacketData = %d\n\tpacketSize = %d",
               PrintableHandle(stream), PrintableHandle(packet), size);
    ShowRtcp(*stream, false, packet, size);
    const wire::ReceivedBytes bytes({packet, size > 0 ? static_cast<std::size_t>(size) : 0});
    const int version = bytes.U8(0) >> 6;
    const uint8_t type = bytes.U8(1);
    if (version != kRtcpVersion) {
        RtpRtspErrorPrint("Invalid RTCP Version : %d Found \n", version);
        return RTSP_FAILURE;
    }
    switch (type) {
    case kSenderReport:
        KeepSenderReport(*stream, bytes);
        break;
    case kBye:
        std::puts("Received RTCP Bye packet");
        break;
    case kReceiverReport:
    case kIgnored:
        break;
    default:
        RtpRtspErrorPrint("Packet type not supported : %d \n", type);
        return RTSP_FAILURE;
    }
    DebugPrint(kDebugEntry, "\tEXIT : \n\tReturning Successfully");
    return RTSP_SUCCESS;
}

void ShowRtcp(const RTSPStreamInfo &stream, bool isSent, const uint8_t *packet, int32_t size) {
    const RTSPClient *const client = stream.client;
    if (client == nullptr || client->rtcpCallback == nullptr || size <= 0) return;
    int32_t number = 1;
    for (const RTSPStreamInfo *other = client->streamList; other != nullptr && other != &stream;
         other = other->next)
        ++number;
    client->rtcpCallback(client->rtcpContext, number, isSent ? 1 : 0, packet, static_cast<uint32_t>(size));
}

void ClearSenderReport(RTSPStreamInfo &stream) { KeepSenderReport(stream, wire::ReceivedBytes({})); }

} // namespace rtsptap
