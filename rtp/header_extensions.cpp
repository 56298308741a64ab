// What lies in the header extension of a packet, for who asks: elements (RFC 8285, 4.2 and 4.3) and the times of
// replayed recordings (ONVIF). Pure; the extension was copied from the packet, and what did not arrive is 0.
#include "platform/printers.h"
#include "platform/wire.h"
#include "rtp/statistics.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cstring>
#include <span>

using namespace rtsptap;

namespace {

constexpr uint16_t kOneByteHeaders = 0xBEDE;
constexpr uint16_t kTwoByteHeaders = 0x1000; // and 4 bits of the application's
constexpr uint16_t kReplay = 0xABAC;
constexpr uint8_t kStop = 15; // of one-byte headers

std::span<const uint8_t> ExtensionOf(const RTPStreamData &packet) {
    return {packet.extensionData, packet.extensionData != nullptr ? packet.extensionLength : std::size_t{0}};
}

// One element: its header is taken off the front, and it may claim more than there is.
struct Element {
    uint8_t id;
    std::size_t size;
};

Element TakeHeader(std::span<const uint8_t> &rest, bool isOneByte) {
    const uint8_t first = rest[0];
    Element element{first, 0};
    std::size_t header = 1;
    if (isOneByte)
        element = {static_cast<uint8_t>(first >> 4), static_cast<std::size_t>(first & 0x0F) + 1};
    else if (first != 0 && rest.size() > 1)
        element.size = rest[header++];
    if (first == 0) element = {0, 0}; // padding
    rest = rest.subspan(header);
    return element;
}

} // namespace

int32_t RTSPTapGetHeaderExtension(const RTPStreamData *packet, int32_t id, const uint8_t **data, uint32_t *size) {
    const CallTrace trace(__func__);
    if (packet == nullptr || data == nullptr || size == nullptr || id < 1 || id > UINT8_MAX)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    const bool isOneByte = packet->extensionProfile == kOneByteHeaders;
    if (!isOneByte && (packet->extensionProfile & 0xFFF0) != kTwoByteHeaders) return RTSP_FAILURE;
    for (std::span<const uint8_t> rest = ExtensionOf(*packet); !rest.empty();) {
        const Element element = TakeHeader(rest, isOneByte);
        if ((isOneByte && element.id == kStop) || element.size > rest.size()) return RTSP_FAILURE;
        if (element.id == id) {
            *data = element.size > 0 ? rest.data() : nullptr;
            *size = static_cast<uint32_t>(element.size);
            return RTSP_SUCCESS;
        }
        rest = rest.subspan(element.size);
    }
    return RTSP_FAILURE;
}

//      0                   1                   2                   3
//      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0 |                    NTP time, 64 bits                          |
//   8 |C|E|D|T|  0    |     CSeq      |            padding            |
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
int32_t RTSPTapGetReplayHeader(const RTPStreamData *packet, RTSPTapReplayHeader *header) {
    const CallTrace trace(__func__);
    if (packet == nullptr || header == nullptr || header->recordSize < sizeof header->recordSize)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    constexpr std::size_t kReplayBytes = 12;
    const std::span<const uint8_t> extension = ExtensionOf(*packet);
    if (packet->extensionProfile != kReplay || extension.size() < kReplayBytes) return RTSP_FAILURE;
    const uint32_t flags = extension[8];
    RTSPTapReplayHeader full = {};
    full.recordSize = header->recordSize;
    full.ntp = uint64_t{wire::U32(extension.data())} << 32 | wire::U32(extension.data() + 4);
    full.recordedNs = NtpInNs(full.ntp);
    full.cSeq = extension[9];
    full.isCleanPoint = flags >> 7 & 1;
    full.isEndOfSection = flags >> 6 & 1;
    full.isDiscontinuity = flags >> 5 & 1;
    full.isLast = flags >> 4 & 1;
    memcpy(header, &full, std::min<std::size_t>(full.recordSize, sizeof full));
    return RTSP_SUCCESS;
}
