// What a stream says of itself: against series worked out by hand, and against what a bad network says it did.
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"
#include "tools/relay/impairment.h"

#include <random>
#include <set>
#include <sstream>

namespace rtsptap::test {
namespace {

RTSPTapStreamStatistics StatisticsOf(intptr_t client, int32_t stream) {
    RTSPTapStreamStatistics told = {};
    told.recordSize = sizeof told;
    EXPECT_EQ(RTSPTapGetStreamStatistics(client, stream, &told), 0);
    return told;
}

// The local RTP port of the first stream.
uint16_t FirstClientPort(const ScriptedServer &server) {
    for (const std::string &request : server.Requests())
        if (const std::size_t at = request.find("client_port="); at != request.npos)
            return static_cast<uint16_t>(std::stoi(request.substr(at + 12)));
    return 0;
}

// The second stream has what the client asked for after the first one was made.
struct Counted : LiveStream {
    Counted() {
        session.keepsStatistics = 1;
        stream->codecType = 0;
        stream = &AddStream(RTP_CODEC_H264, 16 << 20);
    }
    ~Counted() { totalPktLost = 0; }

    void Come(const std::string &datagram, int64_t arrivedNs = 0) {
        NoteDatagram(*stream->statistics, {arrivedNs, 0});
        Arrive({datagram.begin(), datagram.end()});
    }
    RTSPTapStreamStatistics Told() { return StatisticsOf(Handle(), 2); }

    CapturedStdout out;
};

// Packets have names: "a7" is number 7 of the sender a.
TEST(Statistics, AreThoseOfRfc3550) {
    struct Row {
        std::string come;
        uint64_t packets, expected, missing, duplicates, reordered, strays, restarts;
        uint32_t highest;
    };
    const Row rows[] = {{"", 0, 0, 0, 0, 0, 0, 0, 0},
                        {"a1 a2 a3", 3, 3, 0, 0, 0, 0, 0, 3},
                        {"a1 a2 a2 a5 a4 a4 a1", 7, 5, 1, 3, 1, 0, 0, 5},
                        {"a2 a1 a3", 3, 3, 0, 0, 1, 0, 0, 3}, // the first one came late
                        {"a65534 a0 a65535 a2 a65534", 5, 5, 1, 1, 1, 0, 0, 65538},
                        {"a1 a2500 a2001 a2001 a2502", 5, 2502, 2498, 1, 1, 0, 0, 2502},
                        {"a1 a3001 a2 a3", 3, 3, 0, 0, 0, 1, 0, 3}, // a jump that nothing follows
                        {"a1 a2 a9000 a9001 a9003", 5, 6, 1, 0, 0, 0, 1, 9003},
                        {"a1 b7 a2 b8 b9 b9", 5, 4, 0, 1, 0, 1, 1, 9}, // of b only 8 was in sequence
                        {"a600 a50 a51 a52", 4, 4, 0, 0, 0, 0, 1, 52}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.come);
        Counted receiver;
        std::istringstream in(row.come);
        for (std::string name; in >> name;)
            receiver.Come(Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(std::stoi(name.substr(1))),
                                          .ssrc = static_cast<uint32_t>(name[0])}));
        const RTSPTapStreamStatistics told = receiver.Told();
        const std::vector<uint64_t> figures = {told.packets,   told.expected, told.missing,  told.duplicates,
                                               told.reordered, told.strays,   told.restarts, told.highestNumber};
        EXPECT_EQ(figures, std::vector<uint64_t>({row.packets, row.expected, row.missing, row.duplicates,
                                                  row.reordered, row.strays, row.restarts, row.highest}));
        EXPECT_EQ(told.lost, static_cast<int64_t>(row.expected) - static_cast<int64_t>(row.packets));
        EXPECT_EQ(told.bytes, 20 * row.packets);
        EXPECT_EQ(StatisticsOf(receiver.Handle(), 1).isCounted, 0);
    }
}

// RFC 3550, A.8, with steps of 0, 450, -450 and 0 units, in sixteenths: 0, 450, 450 + 450 - 28, 872 - 55. Then the
// clock is set back by an hour and forth by two, and a timestamp goes round.
TEST(Statistics, JitterIsThatOfASeriesByHand) {
    Counted receiver;
    const int64_t arrivalsMs[] = {1000, 1040, 1085, 1120, 1160, 1200 - 3600000, 1240 - 3600000, 1280 + 3600000};
    for (int i = 0; i < 8; ++i) {
        receiver.Come(Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(i + 1),
                                      .timestamp = static_cast<uint32_t>(3600 * i - 5 * 3600)}),
                      arrivalsMs[i] * 1000000);
        if (i != 4) continue;
        const RTSPTapStreamStatistics told = receiver.Told();
        EXPECT_EQ(told.jitter, 51U);
        EXPECT_NEAR(told.jitterUs, 817 / 16.0 / 0.09, 0.001);
        EXPECT_NEAR(told.meanJitterUs, (450 + 872 + 817) / 4.0 / 16 / 0.09, 0.001);
        EXPECT_NEAR(told.mostJitterUs, 872 / 16.0 / 0.09, 0.001);
        EXPECT_EQ(told.longestGapMs, 45);
        EXPECT_EQ(told.queuedMs, 160);
    }
    EXPECT_EQ(receiver.Told().jitter, (817U - 51) / 16);
    EXPECT_EQ(receiver.Told().longestGapMs, 45);
}

TEST(Statistics, SayWhatTheNetworkDid) {
    struct Row {
        double loss;
        int run;
        double duplicates, reordering;
        int depth, jitterMs;
    };
    for (const Row &row : {Row{5, 1, 0, 0, 0, 0},
                           {10, 7, 5, 0, 0, 0},
                           {0, 1, 0, 5, 50, 0},
                           {5, 3, 5, 5, 400, 0},
                           {1, 1, 9, 0, 0, 90}}) {
        Counted receiver;
        relay::Impairment network({row.loss, row.run, row.duplicates, row.reordering, row.depth, row.jitterMs});
        constexpr uint16_t kFirst = 60000; // past the wrap
        constexpr int kPackets = 20000;
        std::set<int> came;
        int highest = 0;
        uint64_t reordered = 0;
        const auto deliver = [&](const std::string &packet) {
            const int number = static_cast<uint16_t>(Word16(packet, 2) - kFirst); // in order of sending
            reordered += came.insert(number).second && number < highest ? 1 : 0;
            highest = std::max(highest, number);
            receiver.Come(packet);
            receiver.Drain();
        };
        deliver(Rtp(kFirst));
        for (int i = 1; i <= kPackets; ++i) {
            network.Arrive(i * 1000, Rtp(static_cast<uint16_t>(kFirst + i)));
            for (const std::string &packet : network.Depart(i * 1000)) deliver(packet);
        }
        for (const std::string &packet : network.Depart(INT64_MAX)) deliver(packet);
        deliver(Rtp(static_cast<uint16_t>(kFirst + kPackets + 1)));
        const RTSPTapStreamStatistics told = receiver.Told();
        EXPECT_EQ(told.expected, kPackets + 2U);
        EXPECT_EQ(told.missing, network.lost);
        EXPECT_EQ(told.duplicates, network.duplicated);
        EXPECT_EQ(told.lost, static_cast<int64_t>(network.lost - network.duplicated));
        EXPECT_EQ(told.reordered, reordered);
        if (row.loss + row.duplicates + row.jitterMs == 0) {
            EXPECT_EQ(told.reordered, network.heldBack);
        }
    }
}

TEST(Statistics, SayWhatBecameOfPacketsInTheQueue) {
    Counted receiver;
    for (int i = 1; i <= 1034; ++i) receiver.Come(Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(i)}));
    // The one that takes the place of a dropped one is not counted in the queue: it drops every second one.
    EXPECT_EQ(receiver.Told().droppedByLimit, 5U);
    EXPECT_EQ(receiver.Told().queuedPackets, receiver.stream->packetCount);
    receiver.Drain();
    RTPClientConfigLatency(receiver.Handle(), 100, 0, 100);
    for (const uint32_t ms : {0U, 10U, 120U})
        receiver.Come(Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(2000 + ms), .timestamp = ms * 90}));
    EXPECT_EQ(receiver.Told().droppedByLatency, 2U);
}

// What the system dropped, with what came, is what was sent; and a session that is over still tells.
TEST(Statistics, OfSessionsTellWhatTheSystemSays) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        const UdpPeer media;
        const UdpPeer rtcp;
        ScriptedServer server(StepsTo(CLIENT_PLAYING_STATE, proto, rtcp.Port()) + Script{{"TEARDOWN ", Ok()}});
        Client client(proto == kUdp ? 4000 : 1 << 20, proto);
        client.serverPort = server.Port();
        EXPECT_EQ(RTSPTapSetOption(client, RTSPTAP_OPTION_STATISTICS, 1), 0);
        EXPECT_EQ(RTSPTapSetOption(client, RTSPTAP_OPTION_RECEIVE_BUFFER, 5000), 0);
        RTSPClientSetMTUSize(client, 1500);
        EXPECT_EQ(client.Reach(CLIENT_PLAYING_STATE), 0);
        const uint16_t port = proto == kUdp ? FirstClientPort(server) : 0;
        const auto send = [&](const std::string &packet) {
            proto == kUdp ? media.SendTo(port, packet) : void(server.Send(Frame(0, packet)));
        };
        constexpr uint16_t kSent = 400;
        for (uint16_t i = 1; i <= kSent; ++i) send(Rtp(i, std::string(500, 'x')));
        const std::string report = SenderReport(7, 9);
        const auto told = [&] { return StatisticsOf(client, 1); };
        const auto takeAll = [&] {
            RTPStreamData *packets[64];
            for (int32_t count = 1; count > 0;) {
                count = RTSPTapTakePackets(client, 1, packets, 64, 100);
                RTSPTapFreePackets(client, 1, packets, std::max(count, 0));
            }
        };
        takeAll();
        send(Rtp(kSent + 1)); // tells of what was dropped before it
        takeAll();
        EXPECT_TRUE(Eventually([&] { return told().highestNumber == kSent + 1; }));
        EXPECT_EQ(told().packets + told().droppedByKernel, kSent + 1U);
        EXPECT_EQ(told().droppedByKernel > 0, proto == kUdp);
        EXPECT_LT(std::abs(told().lastPacketNs - WallClockNs()), int64_t{60} * 1000000000);
        EXPECT_GE(told().roundTripUs, 0);
        proto == kUdp ? rtcp.SendTo(Plus(port, 1), report) : void(server.Send(Frame(1, report)));
        send("no RTP");
        EXPECT_TRUE(Eventually([&] { return told().senderReports == 1 && told().refused == 1; }));
        EXPECT_EQ(told().reportNtp, (uint64_t{7} << 32) + 9);
        EXPECT_EQ(client.Teardown(), 0);
        EXPECT_EQ(told().endedWhy, RTSPTAP_TORN_DOWN);
        EXPECT_EQ(told().highestNumber, kSent + 1U);
    }
}

} // namespace
} // namespace rtsptap::test
