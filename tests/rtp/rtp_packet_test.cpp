#include "rtp/rtp_packet.h"
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"

#include <set>

namespace rtsptap {
namespace {

class RtpPacket : public StreamFixture {
protected:
    ~RtpPacket() override { totalPktLost = 0; } // the process shares it

    CapturedStdout out;
};

TEST_F(RtpPacket, ReadsEveryFieldOfTheHeader) {
    Bytes bytes = Packet(0xF00D, 0xDEADBEEF, 0x80 | 97); // marker
    bytes.resize(12);
    bytes[0] = 0xB2;                                              // padding, extension, two CSRCs
    bytes.insert(bytes.end(), {0, 0, 0, 1, 0xFF, 0, 0, 2});       // CSRCs
    bytes.insert(bytes.end(), {0xBE, 0xDE, 0xC0, 1, 9, 8, 7, 6}); // only 14 bits of the length count
    bytes.insert(bytes.end(), {'d', 'a', 't', 'a', 0, 2});
    RTPStreamData *const packet = Parse(bytes);
    const RTPHeader &header = *packet->rtpHeader;
    EXPECT_TRUE(header.version == 2 && header.padding && header.extension && header.marker);
    EXPECT_EQ(header.payloadType, 97);
    EXPECT_EQ(header.sequenceNumber, 0xF00D);
    EXPECT_EQ(header.timestamp, 0xDEADBEEF);
    EXPECT_EQ(header.ssrc, 0x11223344u);
    EXPECT_EQ(header.csrcCount, 2);
    EXPECT_EQ(header.csrc[1], 0xFF000002u);
    EXPECT_EQ(packet->extensionProfile, 0xBEDE);
    EXPECT_EQ(Bytes(packet->extensionData, packet->extensionData + packet->extensionLength), Bytes({9, 8, 7, 6}));
    EXPECT_EQ(packet->packetLength, bytes.size());
    EXPECT_EQ(packet->payload, packet->packetData + 28);
    EXPECT_EQ(packet->payloadLength, 4u);
    FreePacketRecord(packet);
}

TEST_F(RtpPacket, AcceptsTheKnownPayloadTypesOnly) {
    const std::set<int> accepted = {0, 8, 10, 11, 14, 26, 33};
    client.dataProto = DATA_PROTO_TCP; // no gaps
    for (int type = 0; type < 128; ++type) {
        RTPStreamData *const packet = Parse(Packet(7, 0, static_cast<unsigned>(type)));
        EXPECT_EQ(packet != nullptr, type >= 96 || accepted.contains(type)) << type;
        FreePacketRecord(packet);
    }
}

TEST_F(RtpPacket, MayClaimMoreThanItHolds) {
    const struct {
        Bytes bytes;
        uint32_t payloadLength, extensionLength;
    } cases[] = {{{0x80, 96}, 2u - 12, 0},
                 {{0xAF, 96, 0, 1}, 4u - 72 - 1, 0}, // its last byte is the padding count
                 {{0x90, 96, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 5}, 17u - 16 - 65532, 65532},
                 {{0x9F, 96}, 2u - 72 - 4, 0}};
    for (const auto &expected : cases) {
        RTPStreamData *const packet = Parse(expected.bytes);
        EXPECT_EQ(packet->payloadLength, expected.payloadLength);
        EXPECT_EQ(packet->extensionLength, expected.extensionLength);
        EXPECT_EQ(expected.extensionLength > 0 ? packet->extensionData[0] + packet->extensionData[65531] : 5, 5);
        EXPECT_LE(packet->payload, stream->ring.storage + stream->ring.size + kRingSlackBytes);
        FreePacketRecord(packet);
    }
}

TEST_F(RtpPacket, TakesMemoryForExtensionsOnlyAsMuchAsTheRingHas) {
    const Bytes claimsMost = {0x90, 96, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 3; ++i) Arrive(claimsMost);
        Arrive(Packet(2));
        EXPECT_EQ(Queued(), std::vector<int>({1, 2}));
        Drain();
    }
    AllocateRing(stream->ring, 1000);
    Arrive(claimsMost); // one alone may be longer than the ring
    EXPECT_EQ(Queued(), std::vector<int>({1}));
    EXPECT_EQ(test::CountOf(out.Text(), "EXIT : ParseRTPData: Memory Allocation Failed\n"), 6u);
}

// Kept: the SSRC is taken once, and 0 does not count as one.
TEST_F(RtpPacket, TakesTheFirstSsrcThatIsNotZero) {
    for (const uint8_t byte : Bytes{0, 5, 6}) {
        Bytes bytes = Packet(1);
        std::fill_n(&bytes[8], 4, byte);
        FreePacketRecord(Parse(bytes));
    }
    EXPECT_EQ(stream->remoteSsrc, 0x05050505u);
}

TEST_F(RtpPacket, CountsEveryStepThatIsNotTheNextNumber) {
    const struct {
        uint16_t last, number;
        int gap; // 0: none
    } cases[] = {{10, 11, 0}, {10, 13, 2}, {10, 10, 1},       {12, 11, 2},   {11, 13, 1},       {5, 0, 6},
                 {0, 500, 0}, {0, 0, 0},   {65534, 65535, 0}, {65535, 0, 0}, {65535, 1, 65535}, {65534, 0, 65535}};
    for (const uint32_t proto : {DATA_PROTO_TCP, DATA_PROTO_UDP})
        for (const auto &[last, number, udpGap] : cases) {
            const int gap = proto == DATA_PROTO_UDP ? udpGap : 0; // nothing is lost on the RTSP connection
            client.dataProto = proto;
            totalPktLost = 1000;
            stream->lastSeqNum = last;
            const std::size_t printed = out.Text().size();
            RTPStreamData *const packet = Parse(Packet(number));
            SCOPED_TRACE(testing::Message() << last << " then " << number);
            const std::string line =
                "Pkt Lost/Total " + std::to_string(gap) + ":" + std::to_string(1000 + gap) + " \n";
            EXPECT_EQ(out.Text().substr(printed), gap > 0 ? line : "");
            EXPECT_EQ(packet->lossFlag, gap > 0 ? 1u : 0u);
            EXPECT_EQ(stream->lastSeqNum, number);
            FreePacketRecord(packet);
        }
    EXPECT_EQ(stream->cumulativeLost, 1000u + 65535);
}

TEST_F(RtpPacket, TotalStartsOverAtAHundredThousandWhenItTurnsNegative) {
    for (const auto &[before, after] :
         {std::pair{0x7FFFFFFFu, 100000u}, {0xFFFFFFFFu - 19999, 0xFFFFFFFFu - 19996}}) {
        totalPktLost = before;
        stream->lastSeqNum = 10;
        FreePacketRecord(Parse(Packet(14)));
        EXPECT_EQ(totalPktLost, after);
    }
}

} // namespace
} // namespace rtsptap
