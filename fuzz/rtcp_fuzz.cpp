// A hostile RTCP packet, then the report that answers it. Input: ten bytes of sequence and loss figures, buffer
// size and host-name length, then the packet.
#include "fuzz/fuzz_target.h"
#include "rtp/media_session.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/stream.h"

#include <vector>

using namespace rtsptap;
using fuzz::Require;

namespace {

// What is handed out of a packet lies in it.
void Look(void *context, const RTSPTapReport *report) {
    const auto &packet = *static_cast<const std::vector<uint8_t> *>(context);
    const uint8_t *const end = packet.data() + packet.size();
    if (report->size == 0) return;
    Require(report->data >= packet.data() && report->data <= end &&
            report->size <= static_cast<std::size_t>(end - report->data));
}

// The same packet for a client that has all of its parts read, and what it then reports.
void ReadByParts(std::vector<uint8_t> &packet) {
    MediaSession session;
    session.trueReports = 1;
    session.reportCallback = Look;
    session.reportContext = &packet;
    RTSPStreamInfo &stream = *AppendStream(session);
    Require(ParseRtcpPacket(&stream, packet.data(), static_cast<int32_t>(packet.size())) == -1);
    ReportText text;
    AddReport(stream, text);
    AddName(stream, text);
    Require(text.size % 4 == 0 && text.size <= text.bytes.size());
    ReleaseStream(&stream);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    constexpr std::size_t kFigures = 10;
    if (size < kFigures) return 0;
    MediaSession session;
    RTSPStreamInfo stream;
    stream.session = &session;
    stream.baseSeqNum = data[0] - 1;
    stream.lastSeqNum = static_cast<uint16_t>(data[1] << 8 | data[2]);
    stream.rtcp.seqCycles = static_cast<uint16_t>(data[3] * 257);
    stream.rtcp.seqWrapPending = data[4] & 1u;
    stream.cumulativeLost = data[5] * 0x01010101u;
    stream.rtcp.prevCumulativeLost = data[6] * 0x01010101u;
    const std::string hostName(data[7] % 28, 'h');
    std::vector<uint8_t> report(data[8]); // exactly as large as the report is told

    std::vector<uint8_t> packet(data + kFigures, data + size);
    const int32_t accepted = ParseRtcpPacket(&stream, packet.data(), static_cast<int32_t>(packet.size()));
    const bool answered = !packet.empty() && packet.size() > 1 &&
                          (packet[1] == 100 || packet[1] == 200 || packet[1] == 201 || packet[1] == 203);
    Require((accepted == 0) == (answered && packet[0] >> 6 == 2));

    const int32_t written = WriteReceiverReport(stream, report.data(), data[8], hostName);
    Require(written == -1 || (written <= data[8] && written % 4 == 0));
    Require(written != -1 || data[8] < 72);
    if (written > 32) Require(report[35] * 4 + 4 + 32 == written && report[41] == hostName.size() + 1);
    ReadByParts(packet);
    return 0;
}
