#include "rtp/rtcp/rtcp.h"
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"

#include <set>

namespace rtsptap {
namespace {

class StreamFixture : public testing::Test, protected LiveStream {
protected:
    CapturedStdout out;
};

// A packet's way: place in the ring, header, queue, application. Order, limits and latency of the queue:
// tests/impair.
TEST(ReceiveRing, PlacesThePacketWhereAWholeMtuFits) {
    const char *const verdicts[] = {"Ready", "Wrapped", "FullBehind", "FullAtEnd", "NoMemory"};
    for (const auto &row : test::Rows("ring_places.txt")) {
        int64_t read = -1, write = -1, mtu = -1;
        std::istringstream(row[0]) >> read >> write >> mtu;
        ReceiveRing ring;
        ASSERT_TRUE(AllocateRing(ring, 1000));
        ring.readIndex = read;
        ring.writeIndex = write;
        const RingPlace place = PlaceNextPacket(ring, static_cast<uint32_t>(mtu));
        EXPECT_EQ(verdicts[static_cast<int>(place.verdict)] + std::string(" ") + std::to_string(place.room) + " " +
                      std::to_string(ring.writeIndex),
                  row.at(1))
            << row[0];
        ReleaseRing(ring);
    }
}

class RtpPacket : public StreamFixture {
protected:
    ~RtpPacket() override { totalPktLost = 0; } // the process shares it
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
    const std::vector<uint32_t> figures = {
        header.payloadType, header.sequenceNumber, header.timestamp,        header.ssrc,
        header.csrcCount,   header.csrc[1],        packet->extensionProfile};
    EXPECT_EQ(figures, std::vector<uint32_t>({97, 0xF00D, 0xDEADBEEF, 0x11223344, 2, 0xFF000002, 0xBEDE}));
    EXPECT_EQ(Bytes(packet->extensionData, packet->extensionData + packet->extensionLength), Bytes({9, 8, 7, 6}));
    EXPECT_EQ(packet->packetLength, bytes.size());
    EXPECT_EQ(packet->payload, packet->packetData + 28);
    EXPECT_EQ(packet->payloadLength, 4u);
    FreePacketRecord(packet);
}

TEST_F(RtpPacket, AcceptsTheKnownPayloadTypesOnly) {
    const std::set<int> accepted = {0, 8, 10, 11, 14, 26, 33};
    session.dataProto = DATA_PROTO_TCP; // no gaps
    for (int type = 0; type < 128; ++type) {
        RTPStreamData *const packet = Parse(Packet(7, 0, static_cast<unsigned>(type)));
        EXPECT_EQ(packet != nullptr, type >= 96 || accepted.contains(type)) << type;
        FreePacketRecord(packet);
    }
}

TEST_F(RtpPacket, MayClaimMoreThanItHolds) {
    const std::tuple<Bytes, uint32_t, uint32_t> cases[] = {
        {{0x80, 96}, 2u - 12, 0},
        {{0xAF, 96, 0, 1}, 4u - 72 - 1, 0}, // its last byte is the padding count
        {{0x90, 96, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 5}, 17u - 16 - 65532, 65532},
        {{0x9F, 96}, 2u - 72 - 4, 0}};
    for (const auto &[bytes, payloadLength, extensionLength] : cases) {
        RTPStreamData *const packet = Parse(bytes);
        EXPECT_EQ(packet->payloadLength, payloadLength);
        EXPECT_EQ(packet->extensionLength, extensionLength);
        EXPECT_EQ(extensionLength > 0 ? packet->extensionData[0] + packet->extensionData[65531] : 5, 5);
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
    const std::tuple<uint16_t, uint16_t, int> cases[] = {
        {10, 11, 0}, {10, 13, 2}, {10, 10, 1},       {12, 11, 2},   {11, 13, 1},       {5, 0, 6},
        {0, 500, 0}, {0, 0, 0},   {65534, 65535, 0}, {65535, 0, 0}, {65535, 1, 65535}, {65534, 0, 65535}};
    for (const uint32_t proto : {DATA_PROTO_TCP, DATA_PROTO_UDP})
        for (const auto &[last, number, udpGap] : cases) {
            const int gap = proto == DATA_PROTO_UDP ? udpGap : 0; // nothing is lost on the RTSP connection
            session.dataProto = proto;
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

// Order, limits and latency: tests/impair.
class PacketQueue : public StreamFixture {
protected:
    PacketQueue() { session.dataProto = DATA_PROTO_TCP; } // no lines of the loss accounting between ours
};

TEST_F(PacketQueue, TellsWhatItDropsFromAnInterleavedStream) {
    rules = {.announceDrops = true, .channel = 6};
    for (int number = 1; number <= 1025; ++number) Arrive(Packet(number));
    Drain();
    session.targetLatency = session.overflowLimit = 100;
    Arrive(Packet(1, 0));
    Arrive(Packet(2, 101 * 90));
    EXPECT_EQ(out.Text(), "Discarding packet :1025 : 1025 stream:6 (too many packets)\n"
                          "Removed old packet from queue (stream 6)\n");
}

// Kept: a taken packet keeps its links, and the new head its prev, which points to a packet that is gone.
TEST_F(PacketQueue, LooksNoFurtherThanTheHeadForALatePacket) {
    for (const int number : {10, 11, 12}) Arrive(Packet(number));
    RTPStreamData *const taken = Get();
    EXPECT_EQ(taken->next, stream->packetListHead);
    EXPECT_EQ(taken->next->prev, taken);
    Free(taken);
    Arrive(Packet(9));
    EXPECT_EQ(Queued(), std::vector<int>({9, 11, 12}));
}

TEST_F(PacketQueue, KeepsAShownPacketUntilTheNextLook) {
    session.targetLatency = session.overflowLimit = 100;
    Arrive(Packet(1, 0));
    Arrive(Packet(2, 90));
    RTPStreamData *shown = nullptr;
    EXPECT_EQ(RTPClientPeekRTPStreamData(Handle(), &shown, RTP_CODEC_H264), 0);
    Arrive(Packet(3, 90000)); // 1 and 2 leave the queue
    EXPECT_EQ(shown->rtpHeader->sequenceNumber, 1);
    session.targetLatency = 0;
    RTPStreamData *const next = Get();
    EXPECT_EQ(next->rtpHeader->sequenceNumber, 3);
    EXPECT_EQ(stream->deferredPacket, nullptr);
    EXPECT_FALSE(NothingInUse(*stream));
    Free(next);
    EXPECT_TRUE(NothingInUse(*stream));
}

using PacketAccess = StreamFixture;

TEST_F(PacketAccess, WaitsForTheNextDatagramWhateverItIs) {
    for (const unsigned payloadType : {96u, 34u}) {
        std::thread sender([this, payloadType] {
            while (stream->waitingReaders == 0) std::this_thread::yield();
            Arrive(Packet(5, 0, payloadType));
        });
        RTPStreamData *packet = nullptr;
        EXPECT_EQ(RTPClientGetRTPStreamData(Handle(), &packet, RTP_CODEC_H264), payloadType == 96 ? 0 : -1);
        sender.join();
        if (packet != nullptr) Free(packet);
    }
    EXPECT_EQ(out.Text().find("No data received"), std::string::npos);
}

TEST_F(PacketAccess, IsNotWokenForPacketsItHasTakenAlready) {
    InsertPacket(*stream, Parse(Packet(5)), rules);
    Free(Get());
    std::thread sender([this] {
        while (stream->waitingReaders == 0) std::this_thread::yield();
        SignalReaders(*stream); // of packet 5, late
        MSecDelay(20);
        Arrive(Packet(6));
    });
    RTPStreamData *const packet = Get();
    sender.join();
    ASSERT_NE(packet, nullptr);
    Free(packet);
}

TEST_F(PacketAccess, GivesAPacketBackToItsOwnStreamWhateverItIsFreedWith) {
    RTSPStreamInfo &other = AddStream(RTP_CODEC_PCMA);
    for (const int number : {1, 2, 3}) Arrive(Packet(number));
    EXPECT_EQ(RTPClientFreeRTPStreamData(Handle(), Get(), RTP_CODEC_PCMA), 0);
    EXPECT_EQ(RTPClientFreeRTPStreamData(Handle(), Get(), RTP_CODEC_G726), 0);
    EXPECT_EQ(other.ring.readIndex, 0);
    EXPECT_EQ(stream->ring.readIndex, 2 * 20);
    RTPStreamData *const last = Get();
    for (int looks = 0; looks < 2; ++looks) EXPECT_FALSE(NothingInUse(*stream)); // the second counts from the first
    Free(last);
    EXPECT_TRUE(NothingInUse(*stream) && NothingInUse(other));
}

// Packets come back while the session ends: whichever is last, the ring goes with it and not before.
TEST_F(PacketAccess, ReturnsTheRingOfAnEndedSessionWithItsLastPacket) {
    for (int round = 0; round < 200; ++round) {
        LiveStream ending;
        std::vector<RTPStreamData *> held;
        for (const int number : {1, 2, 3, 4}) ending.Arrive(Packet(number));
        for (int taken = 0; taken < round % 4; ++taken) held.push_back(ending.Get());
        RTPStreamData *const last = round % 2 == 0 ? ending.Get() : nullptr;
        std::thread application([&] { std::ranges::for_each(held, [&](auto *packet) { ending.Free(packet); }); });
        EndStream(*ending.stream);
        application.join();
        EXPECT_EQ(ending.stream->ring.storage != nullptr, last != nullptr);
        if (last != nullptr) ending.Free(last);
        EXPECT_EQ(ending.stream->ring.storage, nullptr);
    }
}

TEST_F(PacketAccess, ComputesTheTimestampOffset) {
    uint32_t offset = 77;
    stream->srRtpTimestamp = 1000;
    for (const int32_t codecType : {RTP_CODEC_MPEG4_GENERIC, RTP_CODEC_H264})
        EXPECT_EQ(RTPClientGetTSOffset(Handle(), codecType, &offset, 8000), -1) << "no audio stream";
    AddStream(RTP_CODEC_MPEG4_GENERIC);
    RTSPStreamInfo &audio = AddStream(RTP_CODEC_MPEG4_GENERIC); // of several the last one counts
    for (const int32_t codecType : {RTP_CODEC_PCMA, RTP_CODEC_H264})
        EXPECT_EQ(RTPClientGetTSOffset(Handle(), codecType, &offset, 8000), 0);
    EXPECT_EQ(offset, 77u);
    EXPECT_EQ(RTPClientGetTSOffset(Handle(), RTP_CODEC_PCMA, nullptr, 8000), 0);
    EXPECT_EQ(RTPClientGetTSOffset(Handle(), RTP_CODEC_MPEG4_GENERIC, nullptr, 8000), -99);
    const std::tuple<uint32_t, int32_t, uint32_t> cases[] = {{16000, 8000, 180000},
                                                             {16000, 0, 0},
                                                             {50000, 44100, 4649}, // 4500000000 has wrapped
                                                             {134217728, -1, 0x80000000}};
    for (const auto &[audioTimestamp, clockRate, audioTicks] : cases) {
        audio.srRtpTimestamp = audioTimestamp;
        EXPECT_EQ(RTPClientGetTSOffset(Handle(), RTP_CODEC_MPEG4_GENERIC, &offset, clockRate), 0);
        EXPECT_EQ(offset, audioTicks - 1000) << audioTimestamp;
    }
}

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
    const auto &told = stream->rtcp.senderReport;
    EXPECT_EQ(told.senderSsrc, 0x01000000u);
    EXPECT_EQ(told.ntpMsw | told.ntpLsw | stream->srRtpTimestamp | told.octetCount, 0u);
}

TEST_F(Rtcp, WritesTheWholeReportOrNothing) {
    const std::string longest(27, 'h');
    EXPECT_EQ(Report(longest, 72).size(), 72u);
    EXPECT_EQ(Report("h").size(), 44u);
    EXPECT_EQ(Report("h").back(), 0) << "padding is zeros";
    for (const auto &[name, room] : {std::pair(std::string(), 63), {longest, 71}})
        EXPECT_EQ(Report(name, room), Bytes());
    EXPECT_EQ(test::OnOneLine(out.Text()), test::Literal("<2*Error: can't send RTCP: block is too small|>"));
}

TEST_F(Rtcp, CountsSequenceNumberCycles) {
    // Before any wrap one is expected from 50000 on; 60000 is from before the wrap; at 32768 one is
    // expected again, and 16383 is not yet far enough over.
    const std::pair<uint16_t, uint32_t> looks[] = {{50000, 0}, {100, 1},   {60000, 0}, {32767, 1}, {49152, 1},
                                                   {32768, 1}, {65000, 1}, {16383, 1}, {16382, 2}};
    for (const auto &[last, cycles] : looks) {
        stream->lastSeqNum = last;
        const Bytes report = Report();
        EXPECT_EQ(test::Word32(std::string(report.begin(), report.end()), 16), cycles * 65536 + last) << last;
    }
}

// Kept: all expected packets are the denominator; the quotient is cut to 8 bits, a falling total counts as 0.
TEST_F(Rtcp, ReportsTheFractionLost) {
    const std::tuple<int32_t, uint32_t, uint32_t, uint32_t> cases[] = {
        {-1, 150, 0, 128}, {299, 3, 0, 3 * 256 % 256}, {100, 100, 101, 0}, {289, 0x7FFFFFFF, 0, 0xB3}};
    for (const auto &[base, lost, previous, fraction] : cases) {
        stream->baseSeqNum = base;
        stream->cumulativeLost = lost;
        stream->rtcp.prevCumulativeLost = previous;
        EXPECT_EQ(Report()[12], fraction);
    }
}

// What is sent, and where to: RtcpCallback, in udp_session_test.cpp.
TEST_F(Rtcp, AnEmptyDatagramFailsAndOneThatIsRefusedDoesNot) {
    const Bytes packet(52, 7);
    stream->rtcpSocket = socket(AF_INET, SOCK_DGRAM, 0);
    stream->serverPort = 9;
    session.server.Set(ReadAddress("127.0.0.1", 0));
    EXPECT_EQ(SendRtcpPacket(stream, packet.data(), 0), -1);
    EXPECT_EQ(out.Text(), "!!!ERROR!!! : Error in Sending RTCP Data\n");
    close(std::exchange(stream->rtcpSocket, -1));
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
