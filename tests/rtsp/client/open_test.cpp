// Opening URLs: addresses of either family, redirections, passwords.
#include "platform/connecting.h"
#include "rtp/stream.h"
#include "tests/support/session.h"

#include <fcntl.h>

namespace rtsptap::test {
namespace {

Script Described(const std::string &url, const Reply &reply = WithBody(kDescription)) {
    return {{"OPTIONS " + url + " RTSP/1.0", Ok()}, {"DESCRIBE " + url + " RTSP/1.0", reply}};
}

class OverIpv6 : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Transports, OverIpv6, testing::Values(kUdp, kTcp));

TEST_P(OverIpv6, ASessionReceivesAndReports) {
    const CapturedStdout output;
    const UdpPeer media(0, "::1"), rtcp(0, "::1");
    const std::string url = "rtsp://[::1]:{port}/live";
    const std::string sdp = "v=0\r\no=- 1 1 IN IP6 ::1\r\nc=IN IP6 ::\r\n";
    Script script = Described(url, WithBody(sdp + std::string(kDescription).substr(5)));
    for (int32_t stream : {1, 2})
        script.push_back({"SETUP " + url + "/track" + std::to_string(stream) + " ",
                          SetupReply(stream, GetParam(), rtcp.Port())});
    script.push_back({"PLAY " + url + " ", Ok() + (GetParam() == kTcp ? SendBytes(Frame(0, Rtp(7))) : Reply{})});
    script.push_back({"TEARDOWN " + url + " ", Ok()});
    ScriptedServer server(script);
    const std::size_t descriptors = CountDescriptors();
    Client client;
    EXPECT_EQ(RTSPTapOpen(client, server.Url("[::1]").c_str()), 0);
    EXPECT_EQ(StateOf(client), CLIENT_DESCRIBE_SENT_STATE);
    EXPECT_EQ(RTSPTapSetDataProto(client, GetParam()), 0);
    EXPECT_EQ(client.Setup(1) + client.Setup(2) + client.Play(), 0);
    const RTSPStreamInfo &stream = *RecordOf(client).media.streamList;
    if (GetParam() == kUdp) {
        media.SendTo(stream.clientPort, Rtp(7), "::1");
        media.SendTo(Plus(stream.clientPort, 1), SenderReport(), "::1");
        EXPECT_EQ(Word16(rtcp.Receive(), 0), 0x81C9); // a receiver report
    }
    EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 1), Numbers(7, 7));
    EXPECT_EQ(client.Teardown(), 0);
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors; }));
}

TEST(Open, ConnectingAsksNothingAndTellsTheAddress) {
    const CapturedStdout output;
    ScriptedServer server({{"DESCRIBE rtsp://[::1]:{port}/live RTSP/1.0", WithBody(kDescription)}});
    Client client;
    char address[64];
    EXPECT_EQ(RTSPTapConnect(client, server.Url("[::1]").c_str(), address), 0);
    EXPECT_STREQ("::1", address);
    EXPECT_EQ(StateOf(client), CLIENT_INIT_STATE);
    EXPECT_EQ(client.Describe(), 0);
    EXPECT_EQ(RTSPTapConnect(client, "rtsp://127.0.0.1:1/", nullptr), RTSP_CONNECT_FAILED);
    EXPECT_EQ(ECONNREFUSED, errno);
}

TEST(Open, FollowsWhereTheRowsTellAndTakesNoPasswordElsewhere) {
    for (const auto &row : Rows("redirections.txt")) {
        CapturedStdout output;
        const std::string &url = row.at(2);
        Script script = Described("{base}/a", Challenge("n1"));
        script.push_back({{"DESCRIBE ", "Digest username=\"me\""}, Status(302, "Found", "Location: " + row[0])});
        const bool isSameHost = row[1] == "0";
        const char *const authorization = isSameHost ? "Authorization: Digest username=\"me\"" : "!Authorization";
        if (url != "-") {
            script.push_back({{("OPTIONS " + url + " RTSP").c_str(), authorization}, Ok()});
            script.push_back({{("DESCRIBE " + url + " RTSP").c_str(), authorization},
                              isSameHost ? WithBody(kDescription) : Challenge("n1")});
        }
        ScriptedServer server(script);
        Client client;
        EXPECT_EQ(std::to_string(RTSPTapOpen(client, server.Url("me:s%65cret@127.0.0.1", "/live/a").c_str())),
                  row[1])
            << row[0];
        EXPECT_STREQ(RecordOf(client).credentials.password, "secret") << row[0]; // for the next RTSPTapOpen
        EXPECT_EQ(StateOf(client), row[1] == "0" ? +CLIENT_DESCRIBE_SENT_STATE : +RTSP_NOT_CONNECTED) << row[0];
        for (const std::string &request : server.Requests())
            EXPECT_EQ(CountOf(request, "secret") + CountOf(request, "evil"), 0U) << request;
        EXPECT_EQ(CountOf(output.Text(), "secret"), 0U);
    }
}

TEST(Open, FollowsFiveTimesAndNoMore) {
    const CapturedStdout output;
    const Reply again = Status(307, "Temporary Redirect", "location: {base}");
    Script script;
    for (int i = 0; i < 6; ++i) script = script + Described("{base}", again);
    script = script + Script{{"OPTIONS ", again}} + Described("{base}"); // OPTIONS is redirected, too
    ScriptedServer server(script);
    Client client;
    const std::string url = server.Url();
    EXPECT_EQ(RTSPTapOpen(client, url.c_str()), RTSPTAP_TOO_MANY_REDIRECTS);
    EXPECT_EQ(RTSPTapOpen(client, url.c_str()), 0);
}

TEST(Open, DescribesThoughOptionsFail) {
    const CapturedStdout output;
    const Script describe{{"DESCRIBE ", WithBody(kDescription)}};
    for (const Script &script :
         {Script{{"OPTIONS ", Status(405, "Method Not Allowed")}}, Script{{"OPTIONS ", Status(501, "Not Here")}},
          Script{{"OPTIONS ", Close()}}, Script{{"OPTIONS ", Stall()}},
          Script{{"OPTIONS ", SendBytes("what?\r\n\r\n")}}, Script{{"OPTIONS ", Ok() + Close()}}}) {
        ScriptedServer server(script + describe);
        const Client client;
        EXPECT_EQ(RTSPTapSetOption(client, RTSPTAP_OPTION_REPLY_LIMIT, 500), 0);
        EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
    }
}

TEST(Open, AgainAndAgainLeavesNothingBehind) {
    const CapturedStdout output(true);
    Script script;
    for (int i = 0; i < 20; ++i) script = script + Described("{base}") + Script{{"SETUP ", SetupReply(1, kUdp)}};
    ScriptedServer server(script + Described("{base}", Status(404, "Not Found")));
    Client client;
    const std::string url = server.Url();
    std::size_t descriptors = 0;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(RTSPTapOpen(client, url.c_str()), 0);
        EXPECT_EQ(RTSPClientGetNbStreams(client), 2);
        EXPECT_EQ(client.Setup(1), 0);
        EXPECT_TRUE(i < 2 || Eventually([&] { return CountDescriptors() <= descriptors; })) << i;
        descriptors = CountDescriptors();
    }
    int retired = 0; // of the session before
    for (const RTSPStreamInfo *at = RecordOf(client).media.retiredStreams; at != nullptr; at = at->next) ++retired;
    EXPECT_EQ(retired, 2);
    EXPECT_EQ(RTSPTapOpen(client, url.c_str()), RTSP_CLIENT_ERROR);
    EXPECT_EQ(RTSPClientGetNbStreams(client), RTSP_NOT_CONNECTED);
    Refusals refuse("RTSPTapOpen");
    const DescriptorLimit none(0);
    refuse(RTSPTapOpen(client, url.c_str()), RTSP_SOCKET_FAILED, " :RTSP Client socket creation failed\n");
}

// Bytes are read into the ring of a stream: of one there is. The first session has packets, the second has none.
TEST(Open, AgainUsesNoStreamOfASessionBefore) {
    const CapturedStdout output;
    Script script;
    for (const char *const media : {"{media}", "", "{media}"})
        script = script + Described("{base}") +
                 Script{{"SETUP ", SetupReply(1, kTcp)},
                        {"SETUP ", SetupReply(2, kTcp)},
                        {"PLAY ", Ok() + ReadReply(media)}};
    ScriptedServer server(script);
    const Client client;
    SetNumber(client, RTSPTAP_OPTION_THREADS, 0); // so that nobody reads while the test looks
    SetNumber(client, RTSPTAP_OPTION_TRANSPORT, RTSPTAP_TRANSPORT_TCP);
    SetNumber(client, RTSPTAP_OPTION_SILENCE_LIMIT, 0);
    for (const std::size_t packets : {1U, 0U, 1U}) {
        EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
        EXPECT_EQ(RTSPTapStart(client, nullptr, nullptr), 0);
        EXPECT_EQ(TakeSequenceNumbers(client, kVideo, packets).size(), packets);
        const ReadAhead *const reader = RecordOf(client).media.connection.readAhead;
        EXPECT_EQ(reader != nullptr && reader->lender != nullptr, packets != 0);
    }
}

TEST(Open, JoinsLongUrlsInTheExactDialectAndCutsNone) {
    const CapturedStdout output;
    const std::string path(4096, 'p');
    const std::string track(4000, 't');
    const std::string sdp = "v=0\r\nm=video 0 RTP/AVP 96\r\na=control:" + track + "\r\nm=audio 0 RTP/AVP 97\r\n";
    const std::string url = "rtsp://127.0.0.1:{port}/" + path;
    ScriptedServer server(Described(url, WithBody(sdp)) +
                          Script{{"SETUP " + url + "/" + track + " RTSP/1.0", SetupReply(1, kUdp)},
                                 {"SETUP " + url + "/trackID=1 RTSP/1.0", SetupReply(2, kUdp)}} +
                          Described("{base}", WithBody(kDescription, "Content-Base: rtsp://other/x/")) +
                          Script{{"SETUP rtsp://other/x/track1 ", SetupReply(1, kUdp)}});
    Client client;
    EXPECT_EQ(RTSPTapOpen(client, server.Url("127.0.0.1", "/" + path).c_str()), 0);
    EXPECT_EQ(client.Setup(1) + client.Setup(2), 0);
    EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
    EXPECT_EQ(client.Setup(1), 0);
}

// ---- the first address that answers ----

TEST(Connecting, EndsAtItsLimitAlsoAmongSignals) {
    const CapturedStdout output;
    const ScriptedServer server({});
    const Client good, waiting;
    const FullQueue full;
    SetNumber(waiting, RTSPTAP_OPTION_CONNECT_LIMIT, 100);
    SetNumber(good, RTSPTAP_OPTION_CONNECT_LIMIT, 20000);
    {
        const std::jthread signals = Interruptions();
        const auto connect = [&] { return RTSPClientConnect(waiting, "127.0.0.1", full.port, "live", kUdp, 0); };
        EXPECT_LT(SecondsOf([&] { EXPECT_EQ(connect(), RTSP_CONNECT_FAILED); }), 10);
        EXPECT_EQ(RTSPClientConnect(good, "127.0.0.1", server.Port(), "live", kUdp, 0), 0);
    }
    EXPECT_EQ(fcntl(RecordOf(good).media.connection.socket, F_GETFL) & O_NONBLOCK, 0); // as without a limit
}

TEST(Connecting, TheFirstThatAnswersWinsAndTheOthersAreClosed) {
    const FullQueue full;
    const Address dead = ReadAddress("127.0.0.1", full.port);
    const Address refused = ReadAddress("127.0.0.1", UdpPeer().Port());
    const ScriptedServer server({});
    const AddressList names = FindAddresses("::1", server.Port());
    ASSERT_EQ(names.count, 1U);
    const Address alive = names.items[0];
    const std::vector<Address> allRefused(kMostAddresses, refused); // at once, or it would be 250 ms each
    std::vector<Address> allButOne = allRefused;
    allButOne.back() = alive;
    // Addresses, the limit in ms, the least and the most seconds, whether it connects.
    const std::tuple<std::vector<Address>, int, double, double, bool> cases[] = {
        {{alive}, 0, 0, 5, true},
        {allButOne, 20000, 0, 3, true},
        {{dead, alive}, 0, 0.24, 5, true},
        {{dead, dead, alive}, 8000, 0.49, 5, true},
        {{dead, refused}, 400, 0.39, 5, false},
        {{dead, alive}, 100, 0.09, 5, false},
        {allRefused, 0, 0, 3, false},
        {{}, 0, 0, 1, false}};
    const std::jthread signals = Interruptions();
    for (const auto &[addresses, limitMs, least, most, connects] : cases) {
        AddressList list;
        for (const Address &address : addresses) list.items[list.count++] = address;
        const std::size_t descriptors = CountDescriptors();
        Address connected;
        int made = -1;
        const double seconds = SecondsOf([&, limit = limitMs] { made = ConnectToFirst(list, limit, connected); });
        EXPECT_TRUE(seconds >= least && seconds < most) << seconds;
        EXPECT_EQ(made >= 0, connects);
        EXPECT_EQ(connected.storage.ss_family, connects ? AF_INET6 : 0);
        CloseSock(made);
        EXPECT_TRUE(Eventually([&] { return CountDescriptors() <= descriptors; })); // the server's ends count, too
    }
}

} // namespace
} // namespace rtsptap::test
