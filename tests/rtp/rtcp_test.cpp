#include "rtp/rtcp/rtcp_packet.h"
#include "rtp/rtcp/rtcp_service.h"
#include "tests/rtp/stream_fixture.h"
#include "tests/support/texts.h"

#include <array>
#include <sys/socket.h>
#include <unistd.h>

namespace rtsptap {
namespace {

const Bytes kSenderReport = {0x80, 200,  0,    6,    0xAA, 0xBB, 0xCC, 0xDD, 0x11, 0x12, 0x13, 0x14, 0x21, 0x22,
                             0x23, 0x24, 0x31, 0x32, 0x33, 0x34, 0,    0,    1,    2,    0,    0,    3,    4};

class Rtcp : public StreamFixture {
protected:
    Rtcp() {
        stream->localSsrc = 0x01020304;
        stream->remoteSsrc = 0x05060708;
        stream->baseSeqNum = 100;
        stream->lastSeqNum = 299;
    }
    int32_t Accept(const Bytes &packet) {
        return ParseRtcpPacket(stream, packet.data(), static_cast<int32_t>(packet.size()));
    }
    Bytes Report(std::string_view hostName = {}, int32_t bufferSize = 512) {
        Bytes report(512, 0xEE);
        const int32_t size = WriteReceiverReport(*stream, report.data(), bufferSize, hostName);
        report.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return report;
    }

    CapturedStdout out;
};

TEST_F(Rtcp, AnswersReportsAndByesOnly) {
    for (const int type : {100, 200, 201, 203}) EXPECT_EQ(Accept({0x80, static_cast<uint8_t>(type)}), 0) << type;
    for (const Bytes &refused : {Bytes{0x81, 202, 0, 7}, Bytes{0x40, 200}, Bytes{}}) EXPECT_EQ(Accept(refused), -1);
    EXPECT_EQ(out.Text(), "Received RTCP Bye packet\n"
                          "!!!ERROR!!! : Packet type not supported : 202 \n"
                          "!!!ERROR!!! : Invalid RTCP Version : 1 Found \n"
                          "!!!ERROR!!! : Invalid RTCP Version : 0 Found \n");
}

TEST_F(Rtcp, ReportsByteForByte) {
    stream->cumulativeLost = 0x12000050; // its low 24 bits are reported
    stream->rtcp.prevCumulativeLost = 0x12000000;
    Bytes expected = {0x81, 201, 0, 7, 1, 2, 3, 4, 5, 6, 7, 8, 80 * 256 / 199, 0, 0, 0x50, 0, 0, 1, 43,
                      0,    0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Report(), expected);
    EXPECT_EQ(Accept(kSenderReport), 0);
    expected[12] = 0; // nothing was lost since
    std::ranges::copy(Bytes{0x13, 0x14, 0x21, 0x22, 0, 0, 0, 1}, &expected[24]);
    const Bytes description = {0x81, 202, 0, 4, 1, 2, 3, 4, 1, 10, 'c', 'a', 'm', '-', 'h', 'o', 's', 't', '1', 0};
    expected.insert(expected.end(), description.begin(), description.end());
    EXPECT_EQ(Report("cam-host1"), expected);
    EXPECT_EQ(stream->srRtpTimestamp, 0x31323334u);
    EXPECT_EQ(Accept({0x80, 200, 0, 6, 1}), 0); // cut short: what is missing is 0
    EXPECT_EQ(stream->rtcp.senderReport.senderSsrc, 0x01000000u);
    EXPECT_EQ(stream->rtcp.senderReport.ntpMsw | stream->rtcp.senderReport.ntpLsw | stream->srRtpTimestamp |
                  stream->rtcp.senderReport.octetCount,
              0u);
}

TEST_F(Rtcp, WritesTheWholeReportOrNothing) {
    const std::string longest(27, 'h');
    EXPECT_EQ(Report(longest, 72).size(), 72u);
    EXPECT_EQ(Report("h").size(), 44u);
    EXPECT_EQ(Report("h").back(), 0) << "padding is zeros";
    EXPECT_EQ(Report({}, 63), Bytes());
    EXPECT_EQ(Report(longest, 71), Bytes());
    EXPECT_EQ(out.Text(),
              "Error: can't send RTCP: block is too small\nError: can't send RTCP: block is too small\n");
}

TEST_F(Rtcp, CountsSequenceNumberCycles) {
    const struct {
        uint16_t last;
        uint32_t extended;
    } looks[] = {{50000, 50000}, // before any wrap one is expected from here on
                 {100, 65536 + 100},
                 {60000, 60000}, // from before the wrap
                 {32767, 65536 + 32767},
                 {49152, 65536 + 49152},
                 {32768, 65536 + 32768}, // a wrap is expected
                 {65000, 65536 + 65000},
                 {16383, 65536 + 16383}, // not yet far enough over
                 {16382, 2 * 65536 + 16382}};
    for (const auto &look : looks) {
        stream->lastSeqNum = look.last;
        const Bytes report = Report();
        EXPECT_EQ(test::Word32(std::string(report.begin(), report.end()), 16), look.extended) << look.last;
    }
}

// Kept: all expected packets are the denominator; the quotient is cut to 8 bits, a falling total counts as 0.
TEST_F(Rtcp, ReportsTheFractionLost) {
    const struct {
        int32_t base;
        uint32_t lost, previous, fraction;
    } cases[] = {{-1, 150, 0, 128}, {299, 3, 0, 3 * 256 % 256}, {100, 100, 101, 0}, {289, 0x7FFFFFFF, 0, 0xB3}};
    for (const auto &at : cases) {
        stream->baseSeqNum = at.base;
        stream->cumulativeLost = at.lost;
        stream->rtcp.prevCumulativeLost = at.previous;
        EXPECT_EQ(Report()[12], at.fraction);
    }
}

TEST_F(Rtcp, SendsDatagramsToThePortAboveTheServers) {
    const test::UdpPeer server;
    stream->rtcpSocket = socket(AF_INET, SOCK_DGRAM, 0);
    stream->serverPort = static_cast<uint16_t>(server.Port() - 1);
    session.server.Set(ReadAddress("127.0.0.1", 0));
    const Bytes packet(52, 7);
    EXPECT_EQ(SendRtcpPacket(stream, packet.data(), 52), 0);
    EXPECT_EQ(server.Receive(), std::string(52, 7));
    EXPECT_EQ(SendRtcpPacket(stream, packet.data(), 0), -1);
    EXPECT_EQ(out.Text(), "!!!ERROR!!! : Error in Sending RTCP Data\n");
    close(stream->rtcpSocket);
    stream->rtcpSocket = -1;
    EXPECT_EQ(SendRtcpPacket(stream, packet.data(), 52), 0); // Kept: sendto failed
}

TEST_F(Rtcp, SendsFramesWithoutEverWaiting) {
    std::array<int, 2> ends;
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    session.connection.socket = ends[0];
    stream->interleavedChannel = 2;
    const Bytes packet(124, 7);
    Bytes received(200);
    EXPECT_EQ(SendRtcpPacketTCP(stream, packet.data(), 123), 0);
    EXPECT_EQ(recv(ends[1], received.data(), received.size(), 0), 127);
    EXPECT_EQ(Bytes(received.begin(), received.begin() + 5), Bytes({'$', 3, 0, 123, 7}));
    EXPECT_EQ(SendRtcpPacketTCP(stream, packet.data(), 124), -1);
    MutexLock(&session.connection.sendLock); // a request is being sent
    EXPECT_EQ(SendRtcpPacketTCP(stream, packet.data(), 8), 0);
    MutexUnlock(&session.connection.sendLock);
    EXPECT_EQ(recv(ends[1], received.data(), received.size(), MSG_DONTWAIT), -1);
    while (send(ends[0], received.data(), received.size(), MSG_DONTWAIT) > 0) {
    } // the server does not read
    EXPECT_EQ(SendRtcpPacketTCP(stream, packet.data(), 8), 0);
    close(ends[1]);
    EXPECT_EQ(SendRtcpPacketTCP(stream, packet.data(), 8), -93);
    EXPECT_EQ(out.Text(),
              "!!!ERROR!!! : RTCP : SendRtcpPacketTCP : Can't send RTCP packet; packet too long 124/128\n"
              "!!!ERROR!!! : \tEXIT : SendRtcpPacketTCP :Problem in Sending RTCP packet to Server 2\n");
    close(ends[0]);
}

} // namespace
} // namespace rtsptap
