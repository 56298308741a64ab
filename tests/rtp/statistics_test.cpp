// What a stream says of itself: against series worked out by hand, and against what a bad network says it did.
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"
#include "tools/relay/impairment.h"

#include <iterator>
#include <random>
#include <set>
#include <sstream>

namespace rtsptap::test {
namespace {

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

TEST(Statistics, AreThoseOfRfc3550) {
    for (const auto &row : Rows("statistics.txt")) {
        SCOPED_TRACE(row[0]);
        Counted receiver;
        std::istringstream in(row[0] == "none" ? "" : row[0]), of(row.at(1));
        for (std::string name; in >> name;)
            receiver.Come(Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(std::stoi(name.substr(1))),
                                          .ssrc = static_cast<uint32_t>(name[0])}));
        const RTSPTapStreamStatistics told = receiver.Told();
        const std::vector<uint64_t> figures = {told.packets,   told.expected, told.missing,  told.duplicates,
                                               told.reordered, told.strays,   told.restarts, told.highestNumber};
        EXPECT_EQ(figures, std::vector<uint64_t>(std::istream_iterator<uint64_t>(of), {}));
        EXPECT_EQ(told.lost, static_cast<int64_t>(told.expected) - static_cast<int64_t>(told.packets));
        EXPECT_EQ(told.bytes, 20 * told.packets);
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
    const relay::ImpairmentSettings rows[] = {
        {5, 1, 0, 0, 0, 0}, {10, 7, 5, 0, 0, 0}, {0, 1, 0, 5, 50, 0}, {5, 3, 5, 5, 400, 0}, {1, 1, 9, 0, 0, 90}};
    for (const relay::ImpairmentSettings &row : rows) {
        Counted receiver;
        relay::Impairment network(row);
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
        if (row.lossPercent + row.duplicatePercent + row.jitterMs == 0) {
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
        const auto prepare = [](intptr_t created) {
            SetNumber(created, RTSPTAP_OPTION_STATISTICS, 1);
            SetNumber(created, RTSPTAP_OPTION_RECEIVE_BUFFER, 5000);
            RTSPClientSetMTUSize(created, 1500);
        };
        Session client(proto, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}}, proto == kUdp ? 4000 : 1 << 20, prepare);
        constexpr uint16_t kSent = 400;
        for (uint16_t i = 1; i <= kSent; ++i) client.Arrive(1, Rtp(i, std::string(500, 'x')));
        const auto told = [&] { return StatisticsOf(client, 1); };
        const auto takeAll = [&] {
            RTPStreamData *packets[64];
            for (int32_t count = 1; count > 0;) {
                count = RTSPTapTakePackets(client, 1, packets, 64, 100);
                RTSPTapFreePackets(client, 1, packets, std::max(count, 0));
            }
        };
        takeAll();
        client.Arrive(1, Rtp(kSent + 1)); // tells of what was dropped before it
        takeAll();
        EXPECT_TRUE(Eventually([&] { return told().highestNumber == kSent + 1; }));
        EXPECT_EQ(told().packets + told().droppedByKernel, kSent + 1U);
        EXPECT_EQ(told().droppedByKernel > 0, proto == kUdp);
        EXPECT_LT(std::abs(told().lastPacketNs - WallClockNs()), int64_t{60} * 1000000000);
        EXPECT_GE(told().roundTripUs, 0);
        client.ArriveRtcp(1, SenderReport(7, 9));
        client.Arrive(1, "no RTP");
        EXPECT_TRUE(Eventually([&] { return told().senderReports == 1 && told().refused == 1; }));
        EXPECT_EQ(told().reportNtp, (uint64_t{7} << 32) + 9);
        EXPECT_EQ(client.Teardown(), 0);
        EXPECT_EQ(told().endedWhy, RTSPTAP_TORN_DOWN);
        EXPECT_EQ(told().highestNumber, kSent + 1U);
    }
}

} // namespace
} // namespace rtsptap::test
