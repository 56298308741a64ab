// The methods and what they share: checks and their order, the caller's buffer. What replies lead to:
// tests/hostile.
#include "tests/support/calls.h"
#include "tests/support/described_client.h"
#include "tests/support/methods.h"
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

// What the six methods share: checks and their order, the caller's buffer. What replies lead to: tests/hostile.
TEST(Exchange, TheReplyThatMadeAMethodFailCanBeRead) {
    const std::string notFound = "RTSP/1.0 404 Not Found\r\nCSeq: 1\r\nServer: x\r\n\r\n";
    Session session(kUdp, CLIENT_INIT_STATE, {{"DESCRIBE ", SendBytes(notFound)}, {"DESCRIBE ", Close()}});
    const auto lastReply = [&session](int32_t room, std::string &text) {
        text.assign(512, '#');
        const int32_t result = RTSPClientGetLastReply(session, text.data(), &room);
        text.resize(static_cast<std::size_t>(room));
        return result;
    };
    std::string reply;
    EXPECT_EQ(lastReply(512, reply), RTSP_FAILURE);
    EXPECT_EQ(session.Describe(), RTSP_CLIENT_ERROR);
    EXPECT_EQ(lastReply(10, reply), RTSP_SMALL_BUFFER);
    EXPECT_EQ(lastReply(static_cast<int32_t>(reply.size()), reply), RTSP_SUCCESS);
    EXPECT_EQ(reply, notFound);
    EXPECT_EQ(session.Describe(), RTSP_NO_RESPONSE);
    EXPECT_EQ(lastReply(512, reply), RTSP_FAILURE);
}

TEST(Exchange, AProgramMayAnswerChallengesItselfAndChooseAnotherTransportUntilOneIsSetUp) {
    const Script further = {
        {{"DESCRIBE ", "!Authorization"}, Status(401, "?", "WWW-Authenticate: Basic realm=\"r\"")},
        {{"DESCRIBE ", "!Authorization"}, WithBody(kDescription)},
        {{"SETUP ", "interleaved=0-1"}, Ok("Session: {session}")}};
    Session session(kUdp, CLIENT_INIT_STATE, further);
    EXPECT_EQ(session.Describe(), RTSP_UNAUTHORIZED);
    EXPECT_EQ(RTSPTapForgetChallenge(session), RTSP_SUCCESS);
    EXPECT_EQ(session.Describe(), RTSP_SUCCESS);
    EXPECT_EQ(RTSPTapSetDataProto(session, kTcp), RTSP_SUCCESS);
    EXPECT_EQ(session.Setup(1), RTSP_SUCCESS);
    EXPECT_EQ(RTSPTapSetDataProto(session, kUdp), RTSP_INVALID_STATE);
}

TEST(Exchange, RawReplyGoesToTheCallerWithoutATerminatorIfItFits) {
    for (const Method &method : kMethods)
        for (const int32_t capacity : {4096, 10, 0, -1}) {
            const bool describes = method.next == CLIENT_DESCRIBE_SENT_STATE;
            Session session(kUdp, method.from,
                            {{method.name + std::string(" {base}"), describes ? WithBody(kDescription) : Ok()}});
            std::string buffer(4096, '#');
            int32_t size = capacity;
            const bool fits = capacity == 4096;
            Refusals{"RTSPClientSend" + std::string(method.word) +
                     "Request"}(method.call(session, 0, buffer.data(), &size), fits ? 0 : RTSP_SMALL_BUFFER,
                                fits ? "" : " :Small Buffer received from Application for Response\n");
            EXPECT_EQ(buffer.starts_with("RTSP/1.0 200 OK\r\nCSeq: "), fits) << method.name;
            EXPECT_EQ(buffer.find('#'), fits ? static_cast<std::size_t>(size) : 0) << method.name;
            EXPECT_GT(size, 20) << method.name;
            // The state has moved all the same, but DESCRIBE looks at the buffer before anything else.
            const bool moved = fits || !describes;
            const int32_t next = method.next == CLIENT_INIT_STATE ? RTSP_NOT_CONNECTED : int32_t{method.next};
            EXPECT_EQ(StateOf(session), moved ? next : method.from) << method.name;
        }
}

// What is refused before anything is sent, and which check comes first: the rows of tests/data/refusals.txt.
TEST(Calls, AreRefusedInTheOrderOfTheirChecks) {
    const Client client, unsized(0);
    const Session tcp(kTcp, CLIENT_DESCRIBE_SENT_STATE);
    std::deque<Session> sessions;
    for (int state = CLIENT_INIT_STATE; state <= CLIENT_PAUSE_STATE; ++state)
        sessions.emplace_back(kUdp, static_cast<RTSPClientState>(state));
    const HeaderList list({}), unknown({{"X-Unknown", "1"}});
    const UdpPeer taken, upper(static_cast<uint16_t>(FreePair() + 1));
    const intptr_t values[] = {client,           unsized,          tcp,         list, unknown, Client(),
                               UdpPeer().Port(), upper.Port() - 1, taken.Port()};
    std::istringstream names("client unsized tcp list unknown gone closed pair taken "
                             "connected asked described ready playing paused");
    Words words;
    const auto name = [&](intptr_t value) {
        std::string word;
        names >> word;
        words.names["{" + word + "}"] = std::to_string(value);
    };
    std::ranges::for_each(values, name);
    std::ranges::for_each(sessions, name);
    for (const auto &row : Rows("refusals.txt")) {
        const std::string line = row[0].substr(row[0].find_first_not_of("-0123456789 "));
        const std::size_t descriptors = CountDescriptors();
        Refusals refused(line.substr(0, line.find(' ')));
        SCOPED_TRACE(row[0]);
        refused(static_cast<int32_t>(words.Call(line)), std::stoi(row[0]),
                row.size() > 1 ? Lines(row[1], "\n") : "");
        EXPECT_EQ(CountDescriptors(), descriptors + 2); // of the capture
    }
    // Another port works after all those, and its stream is the one that is found.
    const uint16_t port = UdpPeer().Port();
    EXPECT_EQ(StartThirdPartyClient(client, 3, RTP_CODEC_MP2T, port, 100000, 0, 0, 0, 0, 0, 0), 0);
    UdpPeer().SendTo(port, Bytes(RtpPacket{.payloadType = 33, .sequenceNumber = 5}));
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_MP2T, 1), Numbers(5, 5));
}

TEST(Describe, InTheTolerantDialectABaseIsWhereTheSessionIsAndABodyWithoutVersionIsJudgedAtOnce) {
    const std::string sdp = "v=0\r\nm=video 0 RTP/AVP 35\r\na=rtpmap:35 h265/90000\r\na=control:1\r\n";
    ScriptedServer server({{"DESCRIBE {base} ", WithBody("<html></html>")},
                           {"DESCRIBE {base} ", WithBody("\r\n" + sdp, "Content-Base: rtsp://cam/x?y=1/")},
                           {"SETUP rtsp://cam/x?y=1/1 ", SetupReply(1, kTcp)},
                           {"PLAY rtsp://cam/x?y=1/ ",
                            Ok() + SendBytes(Frame(0, Bytes(RtpPacket{.payloadType = 35, .sequenceNumber = 8})))},
                           {"TEARDOWN rtsp://cam/x?y=1/ ", Ok()}});
    Client refused(1 << 20, kTcp), client(1 << 20, kTcp);
    for (Client *const each : {&refused, &client}) {
        EXPECT_EQ(RTSPTapSetOption(*each, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT), 0);
        each->serverPort = server.Port();
        EXPECT_EQ(each->Connect() + each->Describe(), each == &refused ? RTSP_BAD_RESPONSE : 0);
        EXPECT_EQ(RecordOf(*each).media.dialect.Uses(Rule::kBodyWithoutVersion), 1U);
    }
    EXPECT_EQ(client.Setup(1) + client.Play(), 0);
    EXPECT_EQ(TakeSequenceNumbers(client, RTSPTAP_CODEC_H265, 1), Numbers(8, 8));
    EXPECT_EQ(client.Teardown(), 0);
}

TEST(Describe, BodyMayComeInOneMoreMessage) {
    const std::string body = kDescription;
    const std::string headers =
        "RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    const std::string whole = headers + body;
    // Behind the headers, inside the body, one byte short, and in one piece.
    for (const std::size_t cut : {headers.size(), headers.size() + 3, whole.size() - 1, whole.size()}) {
        for (const int32_t capacity : {8192, static_cast<int32_t>(whole.size()) - 1}) {
            Session session(kUdp, CLIENT_INIT_STATE, {{"DESCRIBE ", Pieces(whole, cut, 50)}});
            std::string buffer(8192, '#');
            int32_t size = capacity;
            // This text has a space before its line end, unlike the one for the first message.
            const std::string small = " :Small Buffer received from Application for Response";
            const bool fits = capacity == 8192;
            Refusals{"RTSPClientSendDescribeRequest"}(
                RTSPClientSendDescribeRequest(session, 0, buffer.data(), &size), fits ? 0 : RTSP_SMALL_BUFFER,
                fits ? "" : small + (cut < whole.size() ? " \n" : "\n"));
            EXPECT_EQ(size, static_cast<int32_t>(whole.size()));
            EXPECT_EQ(buffer.starts_with(whole), fits) << cut;
            // The first message is measured before the description is taken, the sum only afterwards.
            EXPECT_EQ(RTSPClientGetNbStreams(session), fits || cut < whole.size() ? 2 : 0) << cut;
        }
    }
}

TEST(Describe, DescriptionAfterReconnectingStartsAnew) {
    const std::string other = "v=0\r\nm=audio 0 RTP/AVP 0\r\n"; // without a control URL
    Session session(kUdp, CLIENT_PLAYING_STATE,
                    {{"TEARDOWN ", Ok()}, {"DESCRIBE ", WithBody(other)}, {"SETUP {base}/trackID=0 ", Ok()}});
    const RTSPStreamDescription *old = RTSPClientGetSDPInfo(session, 1);
    EXPECT_EQ(session.Teardown(), 0);
    session.Reach(CLIENT_DESCRIBE_SENT_STATE);
    EXPECT_EQ(RTSPClientGetNbStreams(session), 1);
    EXPECT_EQ(old->codecType, RTP_CODEC_H264); // valid until Destroy
    EXPECT_EQ(session.Setup(1), 0);
}

constexpr char kName[] = "RTSPClientAutoRTSPConnect";

int32_t AutoConnect(intptr_t client, const ScriptedServer &server, const char *username = "user",
                    const char *password = "secret", intptr_t setupList = 0, char *buffer = nullptr,
                    int32_t *size = nullptr) {
    return RTSPClientAutoRTSPConnect(client, "127.0.0.1", server.Port(), "live", username, password, kTcp, 0, 0,
                                     setupList, 0, 0, buffer, size);
}

TEST(AutoConnect, PlaysAndLeavesThePlayReply) {
    const HeaderList setup({{"Require", "x"}});
    ScriptedServer server({{"OPTIONS ", Ok()},
                           {"DESCRIBE ", WithBody(kDescription)},
                           {{"SETUP {base}/track1 ", "\r\nRequire: x\r\n"}, SetupReply(1, kTcp)},
                           {{"SETUP {base}/track2 ", "!Require"}, SetupReply(2, kTcp)}, // only the first
                           {{"PLAY {base} ", "\r\nSession: {session}\r\n"}, Ok() + SendBytes(Frame(2, Rtp(8)))}});
    const Client client;
    char buffer[1024] = {};
    int32_t size = sizeof buffer;
    EXPECT_EQ(AutoConnect(client, server, "u", "p", setup, buffer, &size), 0);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(size)), "RTSP/1.0 200 OK\r\nCSeq: 5\r\n\r\n");
    EXPECT_EQ(TakeSequenceNumbers(client, kAudio, 1), Numbers(8, 8));
    uint32_t ssrc = 0;
    EXPECT_EQ(RTSPClientGetSSRC(client, 2, &ssrc), 0);
    EXPECT_EQ(ssrc, 0x11223344U);
    EXPECT_EQ(RTSPClientGetSSRC(client, 1, &ssrc), 0);
    EXPECT_EQ(ssrc, 0U); // nothing received yet
}

TEST(AutoConnect, AnswersOneChallengeOfOptionsAndOfDescribe) {
    ScriptedServer server({{{"OPTIONS ", "!Authorization"}, Challenge("n")},
                           {{"OPTIONS ", "Digest username=\"user\", realm=\"r\", nonce=\"n\""}, Ok()},
                           {{"DESCRIBE ", "nonce=\"n\""}, Challenge("m")},
                           {{"DESCRIBE ", "nonce=\"m\""}, Challenge("m")}});
    const Client client;
    Refusals{kName}(AutoConnect(client, server), -93, " : Error in RTSP connect state DESCRIBE\n");
    char digest[256] = {};
    GenerateDigestResponse("m", nullptr, "user", "r", "secret", "md5", "", "DESCRIBE", nullptr,
                           server.Expand("{base}").c_str(), digest);
    EXPECT_NE(server.Requests().back().find(digest), std::string::npos);
    // A second call starts over; shorter credentials leave nothing of the longer ones behind.
    ScriptedServer other(Script{{{"OPTIONS ", "username=\"u\""}, Ok()}} + StepsTo(CLIENT_PLAYING_STATE, kTcp));
    EXPECT_EQ(AutoConnect(client, other, "u", nullptr), 0);
}

TEST(AutoConnect, StepThatFailsIsNamed) {
    const Script described = {{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody(kDescription)}};
    const Step refused = {"", Status(404, "Not Found")};
    const Step challenged = {"", Challenge("n")};
    const std::tuple<std::string, Script, RTSPClientState> kCases[] = {
        {"OPTIONS", {refused}, CLIENT_INIT_STATE},
        {"OPTIONS", {challenged, challenged}, CLIENT_INIT_STATE},
        {"DESCRIBE", {{"OPTIONS ", Ok()}, refused}, CLIENT_OPTIONS_SENT_STATE},
        {"SETUP", described + Script{challenged}, CLIENT_DESCRIBE_SENT_STATE}, // not repeated
        {"SETUP", described + Script{{"SETUP ", Ok()}, refused}, CLIENT_READY_STATE},
        {"PLAY", described + Script{{"SETUP ", Ok()}, {"SETUP ", Ok()}, refused}, CLIENT_READY_STATE},
        {"PLAY", {{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody("v=0\r\ns=none\r\n")}}, CLIENT_DESCRIBE_SENT_STATE},
    };
    for (const auto &[step, script, state] : kCases) {
        ScriptedServer server(script);
        const Client client;
        Refusals{kName}(AutoConnect(client, server), -93, " : Error in RTSP connect state " + step + "\n");
        EXPECT_EQ(StateOf(client), state) << step;
    }
}

constexpr char kQueried[] = "v=0\r\no=- 1 1 IN IP4 10.0.0.2\r\ns=Twenty characters ..\r\na=control:*\r\nt=0 0\r\n"
                            "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 a=1\r\n"
                            "m=audio 0 RTP/AVP 0\r\nb=AS:64\r\n";

TEST(SdpQueries, KeptLinesAreFoundByLetterAndInStreamsAlsoByTextBehindAnEqualsSign) {
    const CapturedStdout out;
    DescribedClient described(kQueried);
    for (const auto &row : Rows("sdp_queries.txt")) {
        int32_t stream = 0;
        uint32_t room = 0;
        char name[20] = {}, value[64] = "untouched";
        sscanf(row[0].c_str(), "%d %u %19s", &stream, &room, name);
        uint32_t size = room;
        const int32_t result = RTSPClientGetSDPFieldInfo(described.handle, stream, name, value, &size);
        EXPECT_EQ(std::to_string(result) + " " + value, row.at(1)) << row[0];
        EXPECT_EQ(size, result == 0 ? strlen(value) + 1 : result == -85 ? 21 : room);
    }
}

} // namespace
} // namespace rtsptap::test
