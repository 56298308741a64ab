// What a client may ask for of packets that arrive: no duplicates, missing ones waited for, senders told apart.
#include "rtp/rtcp/goodbye.h"
#include "rtp/rtcp/rtcp.h"
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"

#include <sstream>

namespace rtsptap::test {
namespace {

// Packets have names: "a7" is number 7 of the sender a.
struct Receiver : LiveStream {
    ~Receiver() { totalPktLost = 0; } // the process shares it

    void Come(const std::string &names) {
        std::istringstream in(names);
        for (std::string name; in >> name;) {
            const std::string bytes =
                test::Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(std::stoi(name.substr(1))),
                                      .ssrc = static_cast<uint32_t>(name[0])});
            RTPStreamData *const packet = Parse({bytes.begin(), bytes.end()});
            if (packet != nullptr) InsertPacket(*stream, packet, rules);
        }
    }
    // What one call gives: packets, or its code.
    std::string Take(int32_t timeoutMs = 0) {
        std::array<RTPStreamData *, 256> packets;
        const int32_t count = RTSPTapTakePackets(Handle(), 1, packets.data(), 256, timeoutMs);
        std::string names = count < 0 ? std::to_string(count) : "";
        for (int32_t i = 0; i < count; ++i) {
            const RTPHeader &header = *packets[static_cast<std::size_t>(i)]->rtpHeader;
            names += (i > 0 ? " " : "");
            names += static_cast<char>(header.ssrc) + std::to_string(header.sequenceNumber);
        }
        EXPECT_EQ(RTSPTapFreePackets(Handle(), 1, packets.data(), std::max(count, 0)), 0);
        return names;
    }
    void EndWith(int32_t why) { EndReception(*stream, why); }

    CapturedStdout out;
};

TEST(Arrivals, DuplicatesAndSendersAreTold) {
    for (const auto &row : Rows("arrivals.txt")) {
        bool dropsDuplicates = false, restarts = false;
        uint64_t dropped = 0, changes = 0;
        char sender = 0;
        std::istringstream(row.at(2)) >> dropsDuplicates >> restarts >> dropped >> changes >> sender;
        ASSERT_NE(sender, 0) << row[0];
        SCOPED_TRACE(row[0]);
        Receiver receiver;
        receiver.session.dialect.Set(Rule::kSenderRestart, restarts);
        SetDropsDuplicates(receiver.session, dropsDuplicates ? 1 : 0);
        receiver.Come(row[0]);
        EXPECT_EQ(receiver.Take(), row.at(1));
        EXPECT_EQ(static_cast<uint64_t>(receiver.session.duplicatesDropped), dropped);
        EXPECT_EQ(receiver.session.dialect.Uses(Rule::kSenderRestart), changes);
        EXPECT_EQ(receiver.stream->remoteSsrc, static_cast<uint32_t>(sender));
        EXPECT_TRUE(NothingInUse(*receiver.stream));
    }
}

TEST(Arrivals, ReportsStartAnewForANewSender) {
    Receiver receiver;
    receiver.session.dialect.Set(Rule::kSenderRestart, true);
    std::array<uint8_t, 64> report;
    const auto write = [&] { WriteReceiverReport(*receiver.stream, report.data(), 64, {}); };
    const auto word = [&](std::size_t at) { return Word32({report.begin(), report.end()}, at); };
    receiver.Come("a40000 a40009");
    receiver.stream->rtcp.senderReport = {.senderSsrc = 'a', .ntpMsw = 1, .ntpLsw = 2};
    write();
    EXPECT_EQ(word(12) & 0xFFFFFF, 8u);
    receiver.EndWith(RTSPTAP_SENDER_LEFT);
    receiver.Come("b7");
    EXPECT_EQ(receiver.stream->endedWhy, RTSPTAP_SENDER_LEFT);
    receiver.Come("b8");
    EXPECT_EQ(receiver.stream->endedWhy, 0); // somebody else goes on
    write();
    const std::vector<uint32_t> words = {word(8), word(12), word(16), word(24), word(28)};
    EXPECT_EQ(words, std::vector<uint32_t>({'b', 0, 8, 0, 0}));
    EXPECT_EQ(CountOf(receiver.out.Text(), "Pkt Lost"), 1u); // b7 is no loss
}

// Looked at twice: what was under way comes before the first look.
TEST(Arrivals, AGoodbyeOfASenderThatGoesOnIsNone) {
    for (const bool goesOn : {false, true}) {
        Receiver receiver;
        RTSPStreamInfo &stream = *receiver.stream;
        receiver.session.dialect.Set(Rule::kGoodbyeAndOn, true);
        NoteGoodbye(stream);
        for (const bool comes : {true, goesOn}) {
            JudgeGoodbye(stream); // too early
            if (comes) ++stream.handled;
            stream.rtcp.goodbye.lookMs = 1;
            EXPECT_EQ(GoodbyesDueIn(receiver.session), 0);
            JudgeGoodbyes(receiver.session);
        }
        EXPECT_EQ(stream.endedWhy, goesOn ? 0 : RTSPTAP_SENDER_LEFT);
        EXPECT_EQ(receiver.session.dialect.Uses(Rule::kGoodbyeAndOn), goesOn ? 1U : 0U);
        EXPECT_EQ(GoodbyesDueIn(receiver.session), -1);
    }
}

// Limits are generous upwards only: the machine may be slow.
TEST(Arrivals, MissingPacketsAreWaitedFor) {
    constexpr double kWait = 0.058; // seconds, nearly
    Receiver receiver;
    SetReorderWait(receiver.session, 60);
    receiver.Come("a65533 a65535 a0");
    EXPECT_EQ(receiver.Take(), "a65533");
    EXPECT_EQ(receiver.Take(), "");
    receiver.Come("a65534"); // across the wrap: at once
    EXPECT_EQ(receiver.Take(), "a65534 a65535 a0");
    receiver.Come("a4 a2"); // 1 and 3 are lost
    std::string taken;
    EXPECT_GE(SecondsOf([&] { taken = receiver.Take(60000); }), kWait);
    EXPECT_EQ(taken, "a2 a4");
    receiver.Come("a1 a3"); // too late
    EXPECT_EQ(receiver.Take(1), "");
    EXPECT_EQ(receiver.session.lateDropped, 2);
    receiver.Come("a6 b1"); // of another sender nothing is missing
    RTPStreamData *shown = nullptr;
    EXPECT_GE(SecondsOf([&] { RTPClientPeekRTPStreamData(receiver.Handle(), &shown, RTP_CODEC_H264); }), kWait);
    RTPStreamData *const packet = receiver.Get();
    EXPECT_TRUE(packet != nullptr && packet == shown && packet->rtpHeader->sequenceNumber == 6);
    receiver.Free(packet);
    EXPECT_EQ(receiver.Take(), "b1");
    receiver.Come("b3");
    EXPECT_EQ(receiver.Take(), "");
    receiver.EndWith(RTSPTAP_CONNECTION_CLOSED);
    for (const char *expected : {"b3", "-107"}) EXPECT_EQ(receiver.Take(), expected);
    EXPECT_TRUE(NothingInUse(*receiver.stream));
    RTPClientConfigLatency(receiver.Handle(), 1000, 1000, 1000); // nor does that hold back what ends
    receiver.Come("b4");
    EXPECT_EQ(receiver.Take(), "b4");
}

// A stream that loses every other packet is late by one wait, not by one for each.
TEST(Arrivals, NoPacketWaitsLongerThanItIsAskedTo) {
    Receiver receiver;
    SetReorderWait(receiver.session, 100);
    for (int number = 1; number < 200; number += 2) receiver.Come("a" + std::to_string(number));
    std::string taken;
    const auto takeAll = [&] {
        for (int calls = 0; calls < 100 && !taken.ends_with("a199"); ++calls) taken = receiver.Take(5000);
    };
    EXPECT_LT(SecondsOf(takeAll), 5);
    EXPECT_TRUE(taken.ends_with("a199"));
    SetReorderWait(receiver.session, 0);
    receiver.Come("a300");
    EXPECT_EQ(receiver.Take(), "a300");
}

} // namespace
} // namespace rtsptap::test
