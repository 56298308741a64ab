#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace rtsptap::test;

namespace {

const std::string kExit = "EXIT : RTSPClientSendSetupRequest :";

int32_t SetupWith(Session &session, int32_t stream, intptr_t list) {
    return RTSPClientSendSetupRequest(session.client, stream, list, nullptr, nullptr);
}

// A pair of neighbouring ports that were free a moment ago; first is even.
uint16_t FreePair() {
    const auto start = static_cast<uint16_t>(20000 + getpid() % 500 * 20); // away from other test processes
    for (uint16_t port = start; port < 32000; port = static_cast<uint16_t>(port + 2)) {
        const UdpPeer first(port);
        const UdpPeer second(static_cast<uint16_t>(port + 1));
        if (first.Port() != 0 && second.Port() != 0) return port;
    }
    return 0;
}

std::string ClientPorts(uint16_t port) {
    return "client_port=" + std::to_string(port) + "-" + std::to_string(port + 1);
}

// A network of this process's own, with loopback alone: nothing leaves the machine. False without the right to it.
bool EnterOwnNetwork() {
    if (unshare(CLONE_NEWNET) != 0) return false;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq loopback = {};
    loopback.ifr_name[0] = 'l';
    loopback.ifr_name[1] = 'o';
    loopback.ifr_flags = IFF_UP | IFF_RUNNING | IFF_LOOPBACK | IFF_MULTICAST;
    rtentry route = {};
    const auto address = [](const char *text) {
        sockaddr_in in = {};
        in.sin_family = AF_INET;
        in.sin_addr.s_addr = inet_addr(text);
        return *reinterpret_cast<sockaddr *>(&in);
    };
    route.rt_dst = address("224.0.0.0");
    route.rt_genmask = address("240.0.0.0");
    route.rt_flags = RTF_UP;
    route.rt_dev = loopback.ifr_name;
    const bool ready = ioctl(fd, SIOCSIFFLAGS, &loopback) == 0 && ioctl(fd, SIOCADDRT, &route) == 0;
    close(fd);
    return ready;
}

void PlayMulticast() {
    const Reply reply =
        Ok("Session: {session}", "Transport: RTP/AVP;multicast;destination=232.1.1.1;port=5000-5001;ttl=16");
    Session session(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE,
                    {{{"SETUP ", "Transport: RTP/AVP/UDP;unicast;client_port="}, reply}, {"PLAY ", Ok()}});
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.Play(1), 0);
    EXPECT_EQ(UdpPeer(session.ClientPort(1)).Port(), session.ClientPort(1)); // the unicast port is free again
    session.media.SendTo(5000, Rtp(7), "232.1.1.1");
    EXPECT_EQ(TakeSequenceNumbers(session.client, RTP_CODEC_H264, 1), Numbers(7, 7));
}

} // namespace

TEST(Setup, PortsGoUpInPairs) {
    Session session(DATA_PROTO_UDP, CLIENT_READY_STATE,
                    {{{"SETUP {base}/track1 ", "!Session: "}, SetupReply(1, DATA_PROTO_UDP, 9)},
                     {{"SETUP {base}/track2 ", "Session: {session}\r\n"}, SetupReply(2, DATA_PROTO_UDP, 9)},
                     {"SETUP ", Ok()}});
    const uint16_t first = session.ClientPort(2);
    EXPECT_EQ(first % 2, 0);
    EXPECT_EQ(UdpPeer(first).Port(), 0);                            // bound
    EXPECT_EQ(UdpPeer(static_cast<uint16_t>(first + 1)).Port(), 0); // bound
    const UdpPeer rtpTaken(static_cast<uint16_t>(first + 2));
    const UdpPeer rtcpTaken(static_cast<uint16_t>(first + 7));
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.ClientPort(1), first + 4); // an occupied RTP port is skipped
    ExpectRefusals({{"occupied RTCP port", [&] { return session.Setup(2); }, -96,
                     kExit + "Can not bind to the user given client port of Transport header (RTCP)\n"}});
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_EQ(session.ClientPort(2), first + 8);
    const std::string ports =
        "\r\nTransport: RTP/AVP/UDP;unicast;" + ClientPorts(session.ClientPort(2)) + "\r\n\r\n";
    EXPECT_NE(session.server.Requests()[4].find(ports), std::string::npos);
    EXPECT_EQ(session.Setup(1), 0); // the stream's earlier sockets are given back
    EXPECT_EQ(UdpPeer(static_cast<uint16_t>(first + 4)).Port(), first + 4);
}

TEST(SetupDeathTest, FreshProcessBeginsAt2002) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the child is a new process
    EXPECT_EXIT(
        {
            uint16_t expected = 2002;
            while (UdpPeer(expected).Port() == 0) expected = static_cast<uint16_t>(expected + 2);
            ScriptedServer server(StepsTo(CLIENT_READY_STATE, DATA_PROTO_UDP));
            const Client client;
            EXPECT_EQ(RTSPClientConnect(client, "127.0.0.1", server.Port(), "live", DATA_PROTO_UDP, 0), 0);
            EXPECT_EQ(RTSPClientSendDescribeRequest(client, 0, nullptr, nullptr), 0);
            EXPECT_EQ(RTSPClientSendSetupRequest(client, 1, 0, nullptr, nullptr), 0);
            _exit(server.LastRequest().find(ClientPorts(expected)) != std::string::npos ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Setup, PortAfter59999Is2000) {
    if (UdpPeer(59998).Port() == 0 || UdpPeer(59999).Port() == 0) GTEST_SKIP() << "the last pair of ports is taken";
    HeaderList list({{"Transport", "RTP/AVP;unicast;client_port=59998-59999"}});
    Session session(
        DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE,
        {{{"SETUP ", "Transport: RTP/AVP;unicast;client_port=59998-59999\r\n\r\n"}, Ok()}, {"SETUP ", Ok()}});
    uint16_t expected = 2000;
    while (UdpPeer(expected).Port() == 0) expected = static_cast<uint16_t>(expected + 2);
    EXPECT_EQ(SetupWith(session, 1, list), 0);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_EQ(session.ClientPort(2), expected);
}

TEST(Setup, UserTransportIsSentAndTakenOutOfTheList) {
    const uint16_t port = FreePair();
    const std::string value = "RTP/AVP;unicast;" + ClientPorts(port) + ";x";
    HeaderList list({{"Require", "a"}, {"Transport", value.c_str()}, {"Blocksize", "9"}});
    Session session(
        DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE,
        {{"\r\nRequire: a\r\nBlocksize: 9\r\nTransport: " + value + "\r\n\r\n", Ok()}, {"SETUP ", Ok()}});
    EXPECT_EQ(SetupWith(session, 1, list), 0);
    EXPECT_EQ(RTSPRemoveHeaderFromList(list, "Transport"), 0); // absent from a list that is not empty
    EXPECT_EQ(UdpPeer(port).Port(), 0);
    EXPECT_EQ(UdpPeer(static_cast<uint16_t>(port + 1)).Port(), 0);
    HeaderList only({{"Transport", "RTP/AVP;unicast;client_port=0"}});
    EXPECT_EQ(SetupWith(session, 2, only), RTSP_BAD_NUMBER);
    EXPECT_EQ(RTSPModifyHeaderInList(only, "Transport", "RTP/AVP;unicast;interleaved=0-1"), 0);
    EXPECT_EQ(SetupWith(session, 2, only), 0); // no port named: the next automatic one
    EXPECT_EQ(RTSPRemoveHeaderFromList(only, "Transport"), RTSP_HEADER_NAME);
    EXPECT_NE(UdpPeer(static_cast<uint16_t>(port + 2)).Port(), port + 2);
}

TEST(Setup, UnusableUserTransportsAreRefusedBeforeAnythingIsSent) {
    UdpPeer taken;
    const std::string takenPort = "RTP/AVP;unicast;" + ClientPorts(taken.Port());
    const uint16_t pair = FreePair();
    const UdpPeer rtcpTaken(static_cast<uint16_t>(pair + 1));
    const std::string takenRtcp = "RTP/AVP;unicast;" + ClientPorts(pair);
    const std::string noBind = kExit + "Can not bind to the user given client port of Transport header \n";
    const std::string noRtcpBind =
        kExit + "Can not bind to the user given client port of Transport header (RTCP)\n";
    const std::string badNumber = kExit + "Problem in converting Ascii to Integer value of client_port\n";
    const std::string badHeader = kExit + "Transport header of HeaderList is not valid\n";
    const struct {
        uint32_t proto;
        std::string value;
        int32_t code;
        std::string text;
    } kCases[] = {
        {DATA_PROTO_UDP, "RTP/AVP;client_port=5000", -96, kExit + "HeaderList of Setup method is not valid\n"},
        {DATA_PROTO_UDP, "RTP/AVP;unicast;client_port=abc", -73, badNumber},
        {DATA_PROTO_UDP, "RTP/AVP;unicast;client_port=65536", -73, badNumber},  // 16 bits
        {DATA_PROTO_UDP, "RTP/AVP;unicast;client_port=65535", -96, noRtcpBind}, // no port above it for RTCP
        {DATA_PROTO_UDP, takenPort, -96, noBind},
        {DATA_PROTO_UDP, takenRtcp, -96, noRtcpBind},
        {DATA_PROTO_TCP, takenPort, -96, badHeader},
        {DATA_PROTO_TCP, "RTP/AVP/TCP;unicast;interleaved=0-1;client_port=0", -73, badNumber},
    };
    for (const auto &row : kCases) {
        HeaderList list({{"Transport", row.value.c_str()}});
        Session session(row.proto, CLIENT_DESCRIBE_SENT_STATE);
        const std::size_t descriptors = CountDescriptors();
        ExpectRefusals({{row.value.c_str(), [&] { return SetupWith(session, 1, list); }, row.code, row.text}});
        EXPECT_EQ(CountDescriptors(), descriptors) << row.value;
        EXPECT_EQ(RTSPModifyHeaderInList(list, "Transport", "still there"), 0);
    }
}

TEST(Setup, RunningOutOfDescriptorsIsReported) {
    const std::string rtcp = kExit + "RTCP Client receive socket creation failed\n";
    Session session(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE);
    for (const auto &[spare, text] :
         {std::pair(0, kExit + "RTSP Client socket creation failed\n"), std::pair(1, rtcp)})
        ExpectRefusals({{"limit",
                         [&, room = spare] {
                             const DescriptorLimit limit(static_cast<std::size_t>(room));
                             return session.Setup(1);
                         },
                         -82, text}});
}

TEST(Setup, RepliesAreUnderstood) {
    const std::string id32(32, 'i');
    const std::string badNumber = kExit + "Problem in converting Ascii to Integer value of server_port\n";
    const std::string noPort = kExit + " Multicast port is invalid in response\n";
    const std::string longAddress = kExit + " Multicast IP address is too long\n";
    const std::string multicast = "Transport: RTP/AVP;multicast;destination";
    const std::string digits33(33, '1');
    UdpPeer taken;
    const struct {
        std::string header;
        int32_t code;
        std::string text;
    } kCases[] = {
        {"Session: " + id32, 0, ""},
        {"Session: " + id32 + ";timeout=60", 0, ""},
        {"Session: " + id32 + "i", -90, kExit + " Too long SessionID received \n"},
        {"Session: ;" + id32 + "i", -90, kExit + " Too long SessionID received \n"},
        {"Session: ;", 0, ""},
        {"Transport: RTP/AVP;unicast", 0, ""},
        {"Transport: RTP/AVP;unicast;server_port=6970-6971", 0, ""},
        {"Transport: RTP/AVP;unicast;server_port=6970-0", -73, badNumber},
        {"Transport: RTP/AVP;unicast;server_port=6970-x", -73, badNumber},
        {"Transport: RTP/AVP;unicast;server_port=6970", -73, badNumber},
        {"Transport: interleaved", 0, ""},
        {"Transport: RTP/AVP;multicast;port=5000", 0, ""}, // without a destination it is unicast
        {multicast, -71, kExit + " Destination address is null in response\n"},
        {multicast + "=232.1.1.1", -71, noPort},
        {multicast + "=232.1.1.1;port=0", -71, noPort},
        {multicast + "=232.1.1.1;port=x", -71, noPort},
        {multicast + "=" + digits33 + ";port=5000", -90, longAddress},
        {multicast + "=" + digits33, -90, longAddress},
        {multicast + "=232.1.1.1;port=" + std::to_string(taken.Port()), -71,
         kExit + "Can not bind to multicast port\n"},
        {multicast + "=10.0.0.1;port=" + std::to_string(FreePair()), -71, kExit + "Unable to add membership \n"},
    };
    for (const auto &row : kCases) {
        Session session(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE, {{"SETUP ", Ok(row.header)}});
        ExpectRefusals({{row.header.c_str(), [&] { return session.Setup(1); }, row.code, row.text}});
        EXPECT_EQ(ObservedState(session.client), CLIENT_READY_STATE)
            << row.header; // before the headers are looked at
        const UdpPeer again(session.ClientPort(1));
        EXPECT_EQ(again.Port() != 0, row.code != 0) << row.header << ": the RTP socket is closed by a failure only";
    }
}

TEST(Setup, SessionIdIsKeptUntilAReplyBringsAnother) {
    const std::string id32(32, 'i');
    const std::string header = "\r\nSession: " + id32 + "\r\n";
    Session session(DATA_PROTO_TCP, CLIENT_DESCRIBE_SENT_STATE,
                    {{{"SETUP ", "!Session"}, Ok("session: " + id32 + ";timeout=60")},
                     {header, Ok()},
                     {header, Status(201, "Created", "Session: other")},
                     {header, Ok("Session: new;x")},
                     {"\r\nSession: new\r\n", Ok()}});
    EXPECT_EQ(session.Setup(1), 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(session.Setup(2), 0);
}

TEST(Setup, FailedAttemptsDoNotPileUpDescriptors) {
    Session session(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE,
                    Times(10, {"SETUP ", Status(461, "Unsupported Transport")}) + Times(10, {"SETUP ", Ok()}));
    EXPECT_EQ(session.Setup(1), RTSP_CLIENT_ERROR);
    const std::size_t descriptors = CountDescriptors(); // with the RTCP socket, which an error status leaves open
    for (int i = 0; i < 9; ++i) EXPECT_EQ(session.Setup(1), RTSP_CLIENT_ERROR);
    EXPECT_EQ(CountDescriptors(), descriptors);
    char buffer[4];
    for (int i = 0; i < 9; ++i) {
        int32_t size = sizeof buffer;
        EXPECT_EQ(RTSPClientSendSetupRequest(session.client, 1, 0, buffer, &size), RTSP_SMALL_BUFFER);
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(session.Setup(1), 0); // and the stream has its socket back
    EXPECT_EQ(CountDescriptors(), descriptors + 1);
}

TEST(SetupDeathTest, MulticastReplyJoinsTheGroup) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr int kNoNetwork = 77;
    int code = 0;
    const auto delivered = [&code](int status) {
        code = WEXITSTATUS(status);
        return WIFEXITED(status) && (code == 0 || code == kNoNetwork);
    };
    EXPECT_EXIT(
        {
            if (!EnterOwnNetwork()) _exit(kNoNetwork);
            PlayMulticast();
            _exit(testing::Test::HasFailure() ? 1 : 0);
        },
        delivered, "");
    if (code == kNoNetwork) GTEST_SKIP() << "needs the right to make a network namespace";
}
