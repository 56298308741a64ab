// RTSPTapSetup and RTSPTapStart: the transport asked for, and what becomes of one that does not work.
#include "rtp/stream.h"
#include "tests/support/progress.h"
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

constexpr const char *kUdpAsked = "Transport: RTP/AVP/UDP;unicast;client_port=";
constexpr const char *kSessionNamed = "\r\nSession: {session}\r\n";

const Script kDescribed{{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody(kDescription)}};
const Step kUdpGranted[] = {{{"SETUP {base}/track1 ", kUdpAsked, "!Session"}, SetupReply(1, kUdp)},
                            {{"SETUP {base}/track2 ", kUdpAsked, kSessionNamed}, SetupReply(2, kUdp)}};

// Both streams over TCP, in the session under way or in one of their own, and a packet.
Script OverTcp(bool isWithin) {
    const Reply play = Ok("Session: {session}") + SendBytes(Frame(0, Rtp(7)));
    return {{{"SETUP {base}/track1 ", "RTP/AVP/TCP;unicast;interleaved=0-1", isWithin ? kSessionNamed : "!Session"},
             SetupReply(1, kTcp)},
            {{"SETUP {base}/track2 ", "RTP/AVP/TCP;unicast;interleaved=2-3", kSessionNamed}, SetupReply(2, kTcp)},
            {{"PLAY {base} ", kSessionNamed}, play}};
}

int64_t TransportUsed(intptr_t client) { return NumberSet(client, RTSPTAP_OPTION_TRANSPORT_USED); }

TEST(Transport, GoesOverToTcpWhereUdpIsRefusedOrUnusableOrSilent) {
    const Reply refused = Status(461, "Unsupported Transport");
    const Reply other = Status(400, "Bad Request");
    const Step silent{"PLAY ", Ok()};
    const Step denied{"PAUSE ", Status(455, "Method Not Valid in This State")};
    const Script granted(std::begin(kUdpGranted), std::end(kUdpGranted));
    // What becomes of UDP, and whether TCP goes on in the same session.
    const std::pair<Script, bool> scripts[] = {
        {{{kUdpGranted[0].expect, refused}}, false},
        {{{kUdpGranted[0].expect, other}}, false},
        {{{kUdpGranted[0].expect, refused + Close()}}, false},
        {{kUdpGranted[0], {kUdpGranted[1].expect, refused}}, true},
        {{{"SETUP ", Ok("Session: {session}", "Transport: RTP/AVP;unicast;server_port=x")}}, true},
        {{{"SETUP ", SetupReply(1, kTcp)}}, true}, // asked for UDP
        {{{"SETUP ", Ok("Session: {session}", "Transport: RTP/AVP;multicast;destination=;port=9")}}, true},
        {granted + Script{silent, {"PAUSE ", Ok()}}, true},
        {granted + Script{silent, denied, {{"TEARDOWN ", kSessionNamed}, Ok()}}, false},
        {granted + Script{silent, denied, {"TEARDOWN ", Close()}}, false},
        {granted + Script{silent, {"PAUSE ", Ok()}, {"SETUP ", refused}, {"TEARDOWN ", Ok()}}, false}};
    for (std::size_t row = 0; row < 2 * std::size(scripts); ++row) {
        const std::size_t i = row / 2;
        const bool waits = row % 2 == 0;
        const CapturedStdout output;
        const std::size_t descriptors = CountDescriptors();
        {
            const auto &[script, isWithin] = scripts[i];
            ScriptedServer server(kDescribed + script + OverTcp(isWithin) + Script{{"TEARDOWN ", Ok()}});
            Client client;
            SetNumber(client, RTSPTAP_OPTION_SILENCE_LIMIT, i < 7 ? 10000 : 100);
            EXPECT_EQ(RTSPTapSetRule(client, 126, 1), 0);
            EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
            const RTSPStreamDescription *const described = RTSPClientGetSDPInfo(client, 2);
            EXPECT_EQ(waits ? RTSPTapStart(client, nullptr, nullptr)
                            : Progressed(client, RTSPTapBeginPlay, nullptr, nullptr),
                      0)
                << i;
            EXPECT_EQ(TransportUsed(client), RTSPTAP_TRANSPORT_TCP) << i;
            EXPECT_EQ(RTSPClientGetSDPInfo(client, 2), described);
            EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 1), Numbers(7, 7)) << i;
            EXPECT_EQ(waits ? client.Teardown() : Progressed(client, RTSPTapBeginTeardown), 0);
        }
        EXPECT_EQ(CountDescriptors(), descriptors) << i;
    }
}

TEST(Transport, IsTheOneAskedForAndNoOther) {
    const CapturedStdout output;
    const Step refused{kUdpAsked, Status(461, "Unsupported Transport")};
    const UdpPeer media;
    ScriptedServer server(kDescribed + Script{refused} + kDescribed + OverTcp(false) + kDescribed +
                          Script{kUdpGranted[0], kUdpGranted[1], {"PLAY ", Ok()}} + kDescribed +
                          Script{{"Transport: RTP/AVP;multicast\r\n", SetupReply(1, kUdp)}});
    Client client;
    const auto open = [&](int64_t transport) {
        SetNumber(client, RTSPTAP_OPTION_TRANSPORT, transport);
        EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
        EXPECT_EQ(TransportUsed(client), RTSPTAP_TRANSPORT_DEFAULT);
    };
    open(RTSPTAP_TRANSPORT_UDP);
    EXPECT_EQ(RTSPTapStart(client, nullptr, nullptr), RTSP_CLIENT_ERROR);
    open(RTSPTAP_TRANSPORT_TCP);
    EXPECT_EQ(RTSPTapStart(client, nullptr, nullptr), 0);
    open(RTSPTAP_TRANSPORT_UDP);
    SetNumber(client, RTSPTAP_OPTION_SILENCE_LIMIT, 100);
    EXPECT_EQ(RTSPTapStart(client, nullptr, nullptr), RTSPTAP_NO_MEDIA);
    EXPECT_EQ(TransportUsed(client), RTSPTAP_TRANSPORT_UDP);
    media.SendTo(RecordOf(client).media.streamList.load()->clientPort, Rtp(3)); // it plays all the same
    EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 1), Numbers(3, 3));
    open(RTSPTAP_TRANSPORT_MULTICAST);
    EXPECT_EQ(RTSPTapSetup(client, 1), RTSP_MULTICAST_FAILED); // unicast was granted
}

TEST(Transport, AnyStreamBeginsTheSessionAndAlternativesAreSetUpOnce) {
    const CapturedStdout output;
    const std::string sdp = "v=0\r\nm=video 0 RTP/AVP 96\r\na=control:a\r\nm=video 0 RTP/AVP 97\r\na=control:a\r\n"
                            "m=audio 0 RTP/AVP 0\r\na=control:b\r\n";
    const Script described{{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody(sdp)}};
    ScriptedServer server(described +
                          Script{{{"SETUP {base}/b ", "!Session"}, SetupReply(3, kUdp)},
                                 {{"SETUP {base}/a ", kSessionNamed}, SetupReply(1, kUdp)}} +
                          described +
                          Script{{{"SETUP {base}/a ", "!Session"}, SetupReply(1, kUdp)},
                                 {{"SETUP {base}/b ", kSessionNamed}, SetupReply(3, kUdp)}});
    const Client client;
    EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
    EXPECT_EQ(RTSPTapSetup(client, 3) + RTSPTapSetup(client, 1), 0);
    EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
    EXPECT_EQ(RTSPTapSetup(client, 0), 0);
}

// ---- multicast: groups live in the network namespace of the tests ----

struct Group {
    const char *host; // the server's
    const char *group;
    const char *wanted; // the only sender
    const char *other;  // another address of this machine; empty where packets cannot come by the group
    const char *filter; // what the system lists the membership by; empty: not looked at
};

class OverMulticast : public testing::TestWithParam<Group> {};
INSTANTIATE_TEST_SUITE_P(Families, OverMulticast,
                         testing::Values(Group{"127.0.0.1", "232.1.1.1", "127.0.0.3", "127.0.0.4", ""},
                                         Group{
                                             "[::1]", "ff15::5", "fd00::7", "",
                                             "ff150000000000000000000000000005 fd000000000000000000000000000007"}),
                         [](const auto &is) { return is.index == 0 ? "Ipv4" : "Ipv6"; });

TEST_P(OverMulticast, OneSourceIsHeardAndReportsGoToTheGroup) {
    const CapturedStdout output;
    const Group &is = GetParam();
    const uint16_t port = FreePair();
    const std::string ports = std::to_string(port) + "-" + std::to_string(port + 1);
    ScriptedServer server(kDescribed +
                          Script{{"Transport: RTP/AVP;multicast;ttl=3\r\n",
                                  Ok("Session: {session}", "Transport: RTP/AVP;multicast;destination=" +
                                                               std::string(is.group) + ";port=" + ports)},
                                 {"PLAY ", Ok()}});
    std::atomic<int> reportsSent{0};
    Client client;
    const auto count = [](void *sent, int32_t, int32_t isSent, const uint8_t *, uint32_t) {
        *static_cast<std::atomic<int> *>(sent) += isSent;
    };
    EXPECT_EQ(RTSPTapSetRtcpCallback(client, count, &reportsSent), 0);
    SetNumber(client, RTSPTAP_OPTION_TRANSPORT, RTSPTAP_TRANSPORT_MULTICAST);
    SetNumber(client, RTSPTAP_OPTION_MULTICAST_TTL, 3);
    EXPECT_EQ(RTSPTapSetOptionText(client, RTSPTAP_OPTION_MULTICAST_INTERFACE, "lo"), 0);
    EXPECT_EQ(RTSPTapSetOptionText(client, RTSPTAP_OPTION_MULTICAST_SOURCE, is.wanted), 0);
    EXPECT_EQ(RTSPTapOpen(client, server.Url(is.host).c_str()), 0);
    ASSERT_EQ(RTSPTapSetup(client, 1), 0);
    EXPECT_EQ(TransportUsed(client), RTSPTAP_TRANSPORT_MULTICAST);
    EXPECT_EQ(client.Play(), 0);
    const std::string memberships = ContentOf("/proc/net/mcfilter6");
    EXPECT_TRUE(memberships.find(is.filter) != memberships.npos) << memberships;
    const bool isByGroup = *is.other != '\0';
    const char *const aim = isByGroup ? is.group : "::1";
    const UdpPeer wanted(0, isByGroup ? is.wanted : aim), other(0, isByGroup ? is.other : "127.0.0.1");
    if (isByGroup) other.SendTo(port, Rtp(1), aim);
    wanted.SendTo(port, Rtp(2), aim);
    EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 1), Numbers(2, 2));
    wanted.SendTo(Plus(port, 1), SenderReport(), aim);
    EXPECT_TRUE(Eventually([&] { return reportsSent == 1; }));
}

TEST(Transport, WithoutRtspPacketsComeToTheAddressThatIsListenedTo) {
    const CapturedStdout output;
    const auto start = [](intptr_t client, const char *address, uint16_t port) {
        EXPECT_EQ(RTSPTapSetOptionText(client, RTSPTAP_OPTION_LISTEN_ADDRESS, address), 0);
        return StartThirdPartyClient(client, 1, kVideo, port, 1 << 20, 0, 0, 0, 0, 0, 0);
    };
    for (const char *const address : {"127.0.0.5", "239.1.2.3", "::1"}) {
        const Client client;
        const uint16_t port = FreePair();
        EXPECT_EQ(RTSPTapSetOptionText(client, RTSPTAP_OPTION_MULTICAST_INTERFACE, "127.0.0.1"), 0);
        EXPECT_EQ(start(client, address, port), 0) << address;
        UdpPeer(0, address[0] == ':' ? address : "127.0.0.1").SendTo(port, Rtp(4), address);
        EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 1), Numbers(4, 4)) << address;
    }
    for (const char *const address : {"10.250.1.1", "name", "[::1"}) {
        const Client client;
        EXPECT_EQ(start(client, address, FreePair()), RTSP_FAILURE) << address;
    }
}

} // namespace
} // namespace rtsptap::test
