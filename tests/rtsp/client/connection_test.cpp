#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

TEST(Connection, ArgumentsAreCheckedInOrder) {
    const Client client;
    const Client unsized(0);
    const uint16_t closed = UdpPeer().Port(); // a port where no TCP listener is
    const std::string ip32 = "127.0.0." + std::string(24, '0');
    const std::string name64(64, 'n');
    const auto connect = [=](intptr_t handle, const char *ip, const char *name, uint32_t proto = kUdp) {
        return [=] { return RTSPClientConnect(handle, ip, closed, name, proto, 0); };
    };
    const std::string argument = ": Invalid input argument\n";
    ExpectRefusals(
        "RTSPClientConnect",
        {{"null handle", connect(0, "127.0.0.1", "live"), -99, argument},
         {"null address", connect(client, nullptr, "live"), -99, argument},
         {"null name", connect(client, "127.0.0.1", nullptr), -99, argument},
         {"port 0", [&] { return RTSPClientConnect(client, "127.0.0.1", 0, "live", kUdp, 0); }, -99, argument},
         {"protocol 2, no client", connect(1, "127.0.0.1", "live", 2), -99, argument},
         {"address of 32", connect(client, ip32.c_str(), "live"), -99, argument},
         {"name of 64", connect(client, "127.0.0.1", name64.c_str()), -99, argument},
         {"no client", connect(1, "127.0.0.1", "live"), -99, " :Invalid client handle\n"},
         {"no sizes", connect(unsized, "127.0.0.1", "live"), -99, " : Please set Audio and Video buffer sizes\n"},
         {"refused", connect(client, "127.0.0.1", "live"), -80, " :Connection Error \n"},
         {"not an address", connect(client, "localhost", "live"), -80, " :Connection Error \n"},
         {"no descriptor",
          [&] {
              const DescriptorLimit limit(0);
              return connect(client, "127.0.0.1", "live")();
          },
          -82, " :RTSP Client socket creation failed\n"}});
    EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, nullptr), RTSP_NOT_CONNECTED);
}

TEST(Connection, LongestAddressAndNameAreAccepted) {
    const std::string ip31 = "127.0.0." + std::string(22, '0') + "1";
    const std::string name63(63, 'n');
    ScriptedServer server({{("OPTIONS rtsp://" + ip31 + ":{port}/" + name63 + " RTSP/1.0\r\n"), Ok()}});
    const Client client;
    EXPECT_EQ(RTSPClientConnect(client, ip31.c_str(), server.Port(), name63.c_str(), kUdp, 0), 0);
    EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, nullptr), 0);
}

TEST(Connection, ConnectingAgainKeepsTheOldConnectionOpenUntilDestroy) {
    Session session(kUdp, CLIENT_OPTIONS_SENT_STATE, {{{"OPTIONS ", "\r\nCSeq: 2\r\n"}, Ok()}});
    const std::size_t descriptors = CountDescriptors();
    EXPECT_EQ(session.Connect(), 0);
    EXPECT_EQ(session.Options(), 0);
    EXPECT_EQ(CountDescriptors(), descriptors + 2); // both ends of a second connection
    EXPECT_EQ(session.client.Destroy(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    EXPECT_TRUE(
        Eventually([&] { return CountDescriptors() == descriptors - 1; })); // the server keeps its first one
}

TEST(Connection, ChallengesAreCutUpAsReceived) {
    const std::string long300(300, 'r');
    const struct {
        std::string challenge, scheme, realm, nonce;
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
        const Reply challenge = Status(401, "Unauthorized", "www-authenticate: " + row.challenge);
        Session session(kUdp, CLIENT_INIT_STATE, {{"!Authorization", challenge}, {"OPTIONS ", Ok()}});
        const std::string uri = session.server.Expand("{base}");
        CapturedStdout out;
        EXPECT_EQ(session.Options(), RTSP_UNAUTHORIZED);
        EXPECT_EQ(CountOf(out.Text(), "!!!INFO!!! : WWW_Authenticate: " + row.challenge), 1U);
        EXPECT_TRUE(out.Text().ends_with("!!!INFO!!! : Type: " + row.scheme + "\n!!!INFO!!! : Realm: " + row.realm +
                                         "\n!!!INFO!!! : Nonce: " + row.nonce + "\n"));
        EXPECT_EQ(session.Options(), 0);
        char digest[256] = {};
        GenerateDigestResponse(row.nonce.c_str(), nullptr, "", row.realm.c_str(), "", "md5", "", "OPTIONS", nullptr,
                               uri.c_str(), digest);
        EXPECT_EQ(session.server.LastRequest(),
                  "OPTIONS " + uri + " RTSP/1.0\r\nCSeq: 2\r\nUser-Agent: Rtp Rtsp Client\r\nAuthorization: " +
                      row.scheme + " username=\"\", realm=\"" + row.realm + "\", nonce=\"" + row.nonce +
                      "\", uri=\"" + uri + "\", response=\"" + digest + "\"\r\n\r\n");
    }
    Session without(kUdp, CLIENT_INIT_STATE, {{"OPTIONS ", Status(401, "Unauthorized")}, {"OPTIONS ", Ok()}});
    EXPECT_EQ(without.Options(), RTSP_UNAUTHORIZED);
    EXPECT_EQ(without.Options(), 0);
}

// The whole of a session, byte for byte.
TEST(Connection, RequestsOfAnInterleavedSession) {
    const HeaderList own({{"User-Agent", "Tester"}, {"Range", "npt=5-"}, {"Bandwidth", "bw=64000"}});
    Session session(kTcp, CLIENT_PLAYING_STATE, {{"PAUSE ", Ok()}, {"PLAY ", Ok()}, {"TEARDOWN ", Ok()}});
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
