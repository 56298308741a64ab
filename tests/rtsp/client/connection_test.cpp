#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

TEST(Connection, ArgumentsAreCheckedInOrder) {
    const Client client;
    const Client withoutSizes(0);
    const auto connect = [](intptr_t handle, const char *ip, uint16_t port, const char *name, uint32_t proto) {
        return [=] { return RTSPClientConnect(handle, ip, port, name, proto, 0); };
    };
    const std::string badArgument = "EXIT : RTSPClientConnect: Invalid input argument\n";
    const std::string ip32 = "127.0.0." + std::string(24, '0');
    const std::string name64(64, 'n');
    UdpPeer nobody; // a port where no TCP listener is
    ExpectRefusals({
        {"null handle", connect(0, "127.0.0.1", 554, "live", 0), -99, badArgument},
        {"null address", connect(client, nullptr, 554, "live", 0), -99, badArgument},
        {"port 0", connect(client, "127.0.0.1", 0, "live", 0), -99, badArgument},
        {"null name", connect(client, "127.0.0.1", 554, nullptr, 0), -99, badArgument},
        {"protocol 2 of no client", connect(1, "127.0.0.1", 554, "live", 2), -99, badArgument},
        {"address of 32", connect(client, ip32.c_str(), 554, "live", 0), -99, badArgument},
        {"name of 64", connect(client, "127.0.0.1", 554, name64.c_str(), 0), -99, badArgument},
        {"no client", connect(1, "127.0.0.1", 554, "live", 0), -99,
         "EXIT : RTSPClientConnect :Invalid client handle\n"},
        {"no sizes", connect(withoutSizes, "127.0.0.1", nobody.Port(), "live", 0), -99,
         "EXIT : RTSPClientConnect : Please set Audio and Video buffer sizes\n"},
        {"refused", connect(client, "127.0.0.1", nobody.Port(), "live", 0), -80,
         "EXIT : RTSPClientConnect :Connection Error \n"},
        {"not an address", connect(client, "localhost", nobody.Port(), "live", 0), -80,
         "EXIT : RTSPClientConnect :Connection Error \n"},
        {"no descriptor",
         [&] {
             const DescriptorLimit limit(0);
             return RTSPClientConnect(client, "127.0.0.1", nobody.Port(), "live", 0, 0);
         },
         -82, "EXIT : RTSPClientConnect :RTSP Client socket creation failed\n"},
    });
    EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, nullptr), RTSP_NOT_CONNECTED);
}

TEST(Connection, LongestAddressAndNameAreAccepted) {
    const std::string ip31 = "127.0.0." + std::string(22, '0') + "1";
    const std::string name63(63, 'n');
    ScriptedServer server({{("OPTIONS rtsp://" + ip31 + ":{port}/" + name63 + " RTSP/1.0\r\n"), Ok()}});
    const Client client;
    EXPECT_EQ(RTSPClientConnect(client, ip31.c_str(), server.Port(), name63.c_str(), 0, 0), 0);
    EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, nullptr), 0);
}

TEST(Connection, ConnectingAgainKeepsTheOldConnectionOpenUntilDestroy) {
    ScriptedServer server({{"OPTIONS ", Ok()}, {"OPTIONS ", Ok()}});
    Client client;
    const std::size_t listening = CountDescriptors();
    for (std::size_t connections = 1; connections <= 2; ++connections) {
        EXPECT_EQ(RTSPClientConnect(client, "127.0.0.1", server.Port(), "live", 0, 0), 0);
        EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, nullptr), 0);
        EXPECT_EQ(CountDescriptors(), listening + 2 * connections); // both ends
    }
    EXPECT_NE(server.LastRequest().find("CSeq: 2\r\n"), std::string::npos);
    EXPECT_EQ(client.Destroy(), 0);
    EXPECT_TRUE(server.WaitForClose());
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == listening + 1; })); // the server's first one
}

TEST(Connection, ChallengesAreCutUpAsReceived) {
    const std::string long300(300, 'r');
    const struct {
        std::string challenge;
        std::string scheme, realm, nonce;
    } kCases[] = {
        {"Digest realm=\"live\", nonce=\"abc123\"", "Digest", "live", "abc123"},
        {"Digest nonce=\"n\",realm=\"a b\",stale=FALSE, algorithm=MD5", "Digest", "a b", "n"},
        {"Digest realm=\"a,b\", nonce=\"n\"", "Digest", "", "n"}, // cut at the comma; the last character goes
        {"Basic realm=\"%s%n\"", "Basic", "%s%n", ""},
        {"Digest realm=\"" + long300 + "\", nonce=\"" + long300 + "\"", "Digest", long300.substr(0, 255),
         long300.substr(0, 127)},
        {long300 + " realm=\"r\"", long300.substr(0, 127), "r", ""},
        {"Digest realm=, nonce", "Digest", "", ""},
        {"Digest,realm=\"", "Digest", "", ""},
    };
    for (const auto &row : kCases) {
        Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE,
                        {{"!Authorization", Status(401, "Unauthorized", "www-authenticate: " + row.challenge)},
                         {"OPTIONS ", Ok()}});
        const std::string uri = session.server.Expand("{base}");
        CapturedStdout out;
        EXPECT_EQ(session.Options(), RTSP_UNAUTHORIZED);
        EXPECT_NE(out.Text().find("!!!INFO!!! : WWW_Authenticate: " + row.challenge.substr(0, 900)),
                  std::string::npos);
        EXPECT_TRUE(out.Text().ends_with("!!!INFO!!! : Type: " + row.scheme + "\n!!!INFO!!! : Realm: " + row.realm +
                                         "\n!!!INFO!!! : Nonce: " + row.nonce + "\n"));
        EXPECT_EQ(session.Options(), 0);
        char digest[256] = {};
        GenerateDigestResponse(row.nonce.c_str(), nullptr, "", row.realm.c_str(), "", "md5", "", "OPTIONS", nullptr,
                               uri.c_str(), digest);
        EXPECT_NE(
            session.server.LastRequest().find("\r\nUser-Agent: Rtp Rtsp Client\r\nAuthorization: " + row.scheme +
                                              " username=\"\", realm=\"" + row.realm + "\", nonce=\"" + row.nonce +
                                              "\", uri=\"" + uri + "\", response=\"" + digest + "\"\r\n\r\n"),
            std::string::npos)
            << session.server.LastRequest();
    }
}

TEST(Connection, UnauthorizedWithoutAChallengeIsSurvived) {
    Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE,
                    {{"OPTIONS ", Status(401, "Unauthorized")}, {"OPTIONS ", Ok()}});
    EXPECT_EQ(session.Options(), RTSP_UNAUTHORIZED);
    EXPECT_EQ(session.Options(), 0);
}

// The whole of a session, byte for byte.
TEST(Connection, RequestsOfAnInterleavedSession) {
    const HeaderList own({{"User-Agent", "Tester"}, {"Range", "npt=5-"}, {"Bandwidth", "bw=64000"}});
    Session session(DATA_PROTO_TCP, CLIENT_READY_STATE,
                    {{"PLAY ", Ok()}, {"PAUSE ", Ok()}, {"PLAY ", Ok()}, {"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Pause(2), 0);
    EXPECT_EQ(RTSPClientSendPlayRequest(session.client, 2, own, nullptr, nullptr), 0);
    EXPECT_EQ(session.Teardown(), 0);
    const char *const kRequests[] = {
        "DESCRIBE {base} RTSP/1.0\r\nCSeq: 1\r\nUser-Agent: Rtp Rtsp Client\r\nAccept: application/sdp\r\n\r\n",
        "SETUP {base}/track1 RTSP/1.0\r\nCSeq: 2\r\nUser-Agent: Rtp Rtsp Client\r\n"
        "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n",
        "SETUP {base}/track2 RTSP/1.0\r\nCSeq: 3\r\nUser-Agent: Rtp Rtsp Client\r\nSession: {session}\r\n"
        "Transport: RTP/AVP/TCP;unicast;interleaved=2-3\r\n\r\n",
        "PLAY {base} RTSP/1.0\r\nCSeq: 4\r\nUser-Agent: Rtp Rtsp Client\r\nRange: npt=0.000-\r\n"
        "Session: {session}\r\n\r\n",
        "PAUSE {base}/track2 RTSP/1.0\r\nCSeq: 5\r\nUser-Agent: Rtp Rtsp Client\r\nSession: {session}\r\n\r\n",
        "PLAY {base}/track2 RTSP/1.0\r\nCSeq: 6\r\nUser-Agent: Tester\r\nRange: npt=5-\r\nSession: {session}\r\n"
        "Bandwidth: bw=64000\r\n\r\n",
        "TEARDOWN {base} RTSP/1.0\r\nCSeq: 7\r\nUser-Agent: Rtp Rtsp Client\r\nSession: {session}\r\n\r\n",
    };
    const std::vector<std::string> requests = session.server.Requests();
    ASSERT_EQ(requests.size(), std::size(kRequests));
    for (std::size_t i = 0; i < requests.size(); ++i) EXPECT_EQ(requests[i], session.server.Expand(kRequests[i]));
}
