// Clients, connections and ports.
#include "tests/support/session.h"

#include <regex>

namespace rtsptap::test {
namespace {

TEST(Connection, ClientsComeAndGoWhileOthersAreAsked) {
    CapturedStdout out;
    const Client kept;
    const int32_t onStack = 0;
    std::atomic<int> wrong{0};
    std::vector<std::jthread> pollers;
    for (int i = 0; i < 8; ++i)
        pollers.emplace_back([&](const std::stop_token &over) {
            while (!over.stop_requested()) {
                if (RTPClientGetNbOfPktInBuffer(kept, kVideo) != RTSP_FAILURE) ++wrong; // it has no stream
                for (const intptr_t handle : {intptr_t{0}, intptr_t{1}, reinterpret_cast<intptr_t>(&onStack)})
                    if (ValidateRTSPClientHandle(handle) == 0) ++wrong;
            }
        });
    EXPECT_LT(SecondsOf([&] {
                  for (int round = 0; round < 5; ++round) {
                      std::vector<intptr_t> handles(100);
                      for (intptr_t &handle : handles) handle = RTSPClientCreate();
                      for (const intptr_t handle : handles) EXPECT_EQ(ValidateRTSPClientHandle(handle), 0);
                      for (const intptr_t handle : handles) EXPECT_EQ(RTSPClientDestroy(handle), 0);
                      for (const intptr_t handle : handles) EXPECT_EQ(ValidateRTSPClientHandle(handle), -1);
                  }
              }),
              10);
    pollers.clear();
    EXPECT_EQ(wrong, 0);
}

TEST(Connection, LongestAddressAndNameAreAccepted) {
    const std::string ip31 = "127.0.0." + std::string(22, '0') + "1";
    const std::string name63(63, 'n');
    ScriptedServer server({{("OPTIONS rtsp://" + ip31 + ":{port}/" + name63 + " RTSP/1.0\r\n"), Ok()}});
    const Client client;
    EXPECT_EQ(RTSPClientConnect(client, ip31.c_str(), server.Port(), name63.c_str(), kUdp, 0), 0);
    int32_t size = 100;
    EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, &size), 0);
    EXPECT_EQ(size, 28); // stored without a buffer too
}

TEST(Connection, ConnectingAgainKeepsTheOldConnectionOpenUntilDestroy) {
    Session session(kUdp, CLIENT_INIT_STATE, Times(2, {"OPTIONS ", Ok()}));
    EXPECT_EQ(session.Options(), 0); // the server has accepted
    const std::size_t descriptors = CountDescriptors();
    EXPECT_EQ(session.Connect() + session.Options(), 0);
    EXPECT_EQ(session.Destroy(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    // Of the old connection the server still has its end.
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors - 1; }));
}

// The whole of a session, byte for byte.
TEST(Connection, RequestsOfAnInterleavedSession) {
    const HeaderList own({{"CSeq", "9"},
                          {"X-Own", "a"},
                          {"User-Agent", "Tester"},
                          {"Range", "npt=5-"},
                          {"range", "b"},
                          {"Bandwidth", "bw=64000"}},
                         1);
    Session session(kTcp, CLIENT_PLAYING_STATE,
                    Script{{"PAUSE ", Ok()}} + Times(2, {"PLAY ", Ok()}) + Script{{"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Pause(2), 0);
    for (int i = 0; i < 2; ++i) // the same list serves the next request
        EXPECT_EQ(RTSPClientSendPlayRequest(session, 2, own, nullptr, nullptr), 0);
    EXPECT_EQ(session.Teardown(), 0);
    const std::vector<std::string> requests = session.server.Requests();
    const auto rows = Rows("requests.txt");
    ASSERT_EQ(requests.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(requests[i], session.server.Expand(Lines(rows[i][0])));
}

constexpr char kName[] = "RTSPClientSendSetupRequest";
constexpr char kNoRtcpBind[] = " :Can not bind to the user given client port of Transport header (RTCP)\n";

int32_t SetupWith(Session &session, int32_t stream, intptr_t list) {
    return RTSPClientSendSetupRequest(session, stream, list, nullptr, nullptr);
}

std::string ClientPorts(uint16_t port) {
    return "client_port=" + std::to_string(port) + "-" + std::to_string(port + 1);
}

TEST(Setup, PortsGoUpInPairs) {
    Session session(kUdp, CLIENT_READY_STATE, Times(3, {"SETUP ", Ok()}));
    const uint16_t first = session.ClientPort(2);
    EXPECT_EQ(first % 2, 0);
    EXPECT_FALSE(IsFree(first) || IsFree(Plus(first, 1)));
    const UdpPeer rtpTaken(Plus(first, 2));
    const UdpPeer rtcpTaken(Plus(first, 7));
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.ClientPort(1), first + 4); // an occupied RTP port is skipped
    Refusals{kName}(session.Setup(2), -96, kNoRtcpBind);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_TRUE(session.server.Requests().back().ends_with("\r\nTransport: RTP/AVP/UDP;unicast;" +
                                                           ClientPorts(Plus(first, 8)) + "\r\n\r\n"));
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_TRUE(IsFree(Plus(first, 4)) && IsFree(Plus(first, 5))); // a stream gives its earlier sockets back
}

TEST(Setup, PortAfter59999Is2000) {
    if (!IsFree(59998) || !IsFree(59999)) GTEST_SKIP() << "the last pair of ports is taken";
    const HeaderList list({{"Transport", "RTP/AVP;unicast;client_port=59998-59999"}});
    Session session(kUdp, CLIENT_DESCRIBE_SENT_STATE, {{"client_port=59998-59999\r\n", Ok()}, {"SETUP ", Ok()}});
    uint16_t expected = 2000;
    while (!IsFree(expected)) expected = Plus(expected, 2);
    EXPECT_EQ(SetupWith(session, 1, list), 0);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_EQ(session.ClientPort(2), expected);
}

TEST(Setup, UserTransportIsSentAndTakenOutOfTheList) {
    const uint16_t port = FreePair();
    const std::string value = "RTP/AVP;unicast;" + ClientPorts(port) + ";x";
    const HeaderList list({{"Require", "a"}, {"Transport", value.c_str()}, {"Blocksize", "9"}});
    Session session(
        kUdp, CLIENT_DESCRIBE_SENT_STATE,
        {{"\r\nRequire: a\r\nBlocksize: 9\r\nTransport: " + value + "\r\n\r\n", Ok()}, {"SETUP ", Ok()}});
    EXPECT_EQ(SetupWith(session, 1, list), 0);
    EXPECT_EQ(RTSPModifyHeaderInList(list, "Transport", "x"), RTSP_HEADER_NAME);
    EXPECT_FALSE(IsFree(port) || IsFree(Plus(port, 1)));
    const HeaderList only({{"Transport", "RTP/AVP;unicast;interleaved=0-1"}});
    EXPECT_EQ(SetupWith(session, 2, only), 0); // no port named: the next automatic one
    EXPECT_EQ(RTSPRemoveHeaderFromList(only, "Transport"), RTSP_HEADER_NAME);
    EXPECT_FALSE(IsFree(Plus(port, 2)));
}

TEST(Setup, RunningOutOfDescriptorsIsReported) {
    Session session(kUdp, CLIENT_DESCRIBE_SENT_STATE);
    Refusals refused(kName);
    for (const auto &[spare, text] : {std::pair{0, " :RTSP Client socket creation failed\n"},
                                      {1, " :RTCP Client receive socket creation failed\n"}}) {
        const DescriptorLimit limit(static_cast<rlim_t>(spare));
        refused(session.Setup(1), -82, text);
    }
    const DescriptorLimit limit(0);
    EXPECT_EQ(session.Connect(), RTSP_SOCKET_FAILED);
}

// Other replies: tests/hostile.
TEST(Setup, FailureBehindTheReplyClosesWhatItsStepNames) {
    const UdpPeer taken;
    for (const auto &row : Rows("setup_failures.txt")) {
        const int32_t code = std::stoi(row[0]);
        std::string header = std::regex_replace(row.at(1), std::regex("TAKEN"), std::to_string(taken.Port()));
        header = std::regex_replace(header, std::regex("FREE"), std::to_string(FreePair()));
        Session session(kUdp, CLIENT_DESCRIBE_SENT_STATE, {{"SETUP ", Ok(header)}});
        Refusals{kName}(session.Setup(1), code, row.size() > 2 ? Lines(row[2], "\n") : "");
        const bool isUnread = header == "CSeq: 0";
        EXPECT_EQ(StateOf(session), isUnread ? CLIENT_DESCRIBE_SENT_STATE : CLIENT_READY_STATE);
        EXPECT_EQ(IsFree(session.ClientPort(1)), code != 0) << header;
        EXPECT_EQ(IsFree(Plus(session.ClientPort(1), 1)), row[0].ends_with("both")) << header;
    }
}

TEST(Setup, SessionIdIsKeptUntilAReplyBringsAnother) {
    const std::string id32(32, 'i');
    const std::string header = "\r\nSession: " + id32 + "\r\n";
    Session session(kTcp, CLIENT_DESCRIBE_SENT_STATE,
                    {{{"SETUP ", "!Session"}, Ok("session: " + id32 + ";timeout=60")},
                     {header, Ok()},
                     {header, Status(201, "Created", "Session: other")},
                     {header, Ok("Session: new;x")},
                     {"\r\nSession: new\r\n", Ok()}});
    EXPECT_EQ(session.Setup(1), 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(session.Setup(2), 0);
}

TEST(Setup, FailedAttemptsDoNotPileUpDescriptors) {
    Session session(kUdp, CLIENT_DESCRIBE_SENT_STATE,
                    Times(5, {"SETUP ", Status(461, "Unsupported Transport")}) + Times(1, {"SETUP ", Ok()}));
    EXPECT_EQ(session.Setup(1), RTSP_CLIENT_ERROR);
    const std::size_t descriptors = CountDescriptors(); // with the RTCP socket, which an error status leaves open
    for (int i = 0; i < 4; ++i) EXPECT_EQ(session.Setup(1), RTSP_CLIENT_ERROR);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(session.Setup(1), 0); // and the stream has its socket back
    EXPECT_EQ(CountDescriptors(), descriptors + 1);
}

TEST(StandaloneReceiver, StreamsOfASessionTornDownDoNotHideItsOwn) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}});
    session.SendNumbers(1, Numbers(1, 1));
    RTPStreamData *const held = TakePacket(session, kVideo);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(session.Teardown(), 0);
    const uint16_t port = UdpPeer().Port(); // was free a moment ago
    EXPECT_EQ(StartThirdPartyClient(session, 1, kVideo, port, 100000, 0, 0, 0, 0, 0, 0), 0);
    UdpPeer().SendTo(port, Rtp(10));
    EXPECT_EQ(session.Video(1), Numbers(10, 10));
    EXPECT_EQ(RTPClientFreeRTPStreamData(session, held, kVideo), 0);
}

} // namespace
} // namespace rtsptap::test
