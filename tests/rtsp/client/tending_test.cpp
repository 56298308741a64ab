// The RTSP connection beside requests and their replies: what servers ask, junk, replies that are late or too long.
#include "rtp/interleaved/sending.h"
#include "rtp/stream.h"
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

constexpr char kAsked[] = "OPTIONS * RTSP/1.0\r\nCSeq: 77\r\nSession: 12345678\r\n\r\n";
const Step kAnswer{{"RTSP/1.0 200 OK\r\nCSeq: 77\r\nSession: 12345678\r\nPublic: "}, Stall()};

// Bodies look like frames and replies. Every answer is a request to the scripted server.
TEST(ServerRequests, AreAnsweredAmongFramesAndWhereAReplyIsDueAndNoPacketIsLost) {
    const CapturedStdout output;
    const std::string body = Frame(0, Rtp(99)) + Numbered(5, "454 No");
    const std::string set =
        "SET_PARAMETER rtsp://a RTSP/1.0\r\ncseq:78\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\n\r\n" + body;
    const std::string other = "PLAY_NOTIFY rtsp://a RTSP/1.0\nCSeq: 79\n\n";
    const std::string bytes = Frames(1, 2) + kAsked + Frames(3, 3) + set + other + Frames(4, 6);
    const Script answers{
        kAnswer, {{"RTSP/1.0 200 OK\r\nCSeq: 78\r\n", "!Public"}, Stall()}, {{"RTSP/1.0 501 "}, Stall()}};
    for (std::size_t cut = 1; cut < bytes.size(); cut += LongForm() ? 1 : 11) {
        Tolerant session(
            kTcp, CLIENT_PLAYING_STATE,
            answers +
                Script{{"PAUSE ", SendBytes(kAsked + Frames(7, 7)) + Ok() + SendBytes(Frames(8, 8))}, kAnswer});
        session.server.Send(bytes.substr(0, cut));
        usleep(300);
        session.server.Send(bytes.substr(cut));
        EXPECT_EQ(session.Video(6), Numbers(1, 6)) << cut;
        ASSERT_TRUE(Eventually([&] { return session.server.Requests().size() == 7; })) << cut;
        EXPECT_EQ(session.Pause(), 0) << cut;
        EXPECT_TRUE(Eventually([&] { return session.server.Requests().size() == 9; })) << cut;
        EXPECT_EQ(session.Uses(Rule::kServerRequest), 4U) << cut;
    }
    Tolerant described(kUdp, CLIENT_INIT_STATE, {{"OPTIONS ", SendBytes(kAsked + Numbered(1))}, kAnswer});
    EXPECT_EQ(described.Options(), 0);
    EXPECT_TRUE(Eventually([&] { return described.server.Requests().size() == 2; }));
}

// One that does not read gets no answers, and costs no packet.
TEST(ServerRequests, OfAServerThatDoesNotReadHoldUpNothing) {
    const CapturedStdout output;
    std::string bytes;
    for (uint16_t number = 1; number <= 1000; ++number) {
        for (int i = 0; i < 20; ++i) bytes += kAsked;
        bytes += Frame(0, Rtp(number));
    }
    const Script answers = Times(20000, {"RTSP/1.0 200 OK\r\nCSeq: 77\r\n", Stall(), true});
    Tolerant session(kTcp, CLIENT_READY_STATE, Script{{"PLAY ", Ok() + SendBytes(bytes)}} + answers);
    const int small = 4096;
    setsockopt(RecordOf(session).media.connection.socket, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Video(1000), Numbers(1, 1000)); // it writes all of that before it reads again
    EXPECT_EQ(session.Uses(Rule::kServerRequest), 20000U);
    EXPECT_LT(session.server.Requests().size(), 20000U);
}

// False headers and text in the junk; the frame behind each piece of it is found.
TEST(Junk, IsPassedOverByteByByte) {
    const CapturedStdout output;
    for (const char *const piece :
         {"x", "junk", "$", "$$$", "RTS", "OPTIONS ", "GET_PARAMETER rtsp://a RTSP/2", R"($\x00\x00\x14)",
          R"($\x01\x00\x02ab)", "<3000*R>", R"($\x07\x00\x03abc$\x00\x7f\x7f)"}) {
        const std::string junk = Literal(piece);
        Tolerant session(kTcp, CLIENT_PLAYING_STATE, {{"PAUSE ", Ok()}});
        const std::string bytes = Frames(1, 2) + "!" + junk + Frames(3, 5) + "%" + junk + Frames(6, 300);
        session.server.Send(bytes);
        EXPECT_EQ(session.Video(299), Numbers(1, 299)) << junk;
        EXPECT_EQ(session.Uses(Rule::kJunk), 2U) << junk;
        EXPECT_TRUE(SucceedsSoon([&] { return session.Pause(); })) << junk;
    }
}

TEST(LateReplies, OfADeviceThatNumbersThemItsOwnWayAreHeard) {
    const CapturedStdout output;
    for (const uint32_t proto : {kUdp, kTcp}) {
        const auto previous = [](int number) { return Step{"OPTIONS ", SendBytes(Numbered(number - 1))}; };
        Tolerant session(proto, CLIENT_PLAYING_STATE,
                         {previous(5), {"OPTIONS ", Stall()}, previous(7), previous(8)});
        EXPECT_EQ(session.Options(), 0);
        SetNumber(session, RTSPTAP_OPTION_REPLY_LIMIT, 100);
        EXPECT_EQ(session.Options(), RTSP_RESPONSE_TIMEOUT);
        EXPECT_EQ(session.Options() + session.Options(), 0);
    }
    // One that never answered before is believed in at first, and then no more.
    Tolerant session(
        kUdp, CLIENT_INIT_STATE,
        {{"OPTIONS ", Stall()}, {"OPTIONS ", SendBytes(Numbered(1))}, {"OPTIONS ", SendBytes(Numbered(2))}});
    SetNumber(session, RTSPTAP_OPTION_REPLY_LIMIT, 100);
    EXPECT_EQ(session.Options() + session.Options(), 2 * RTSP_RESPONSE_TIMEOUT);
    EXPECT_EQ(session.Options(), 0);
}

TEST(Replies, ThatArePassedOverTakeNothingWithThemAlsoWhenTheyAreNotFramed) {
    const CapturedStdout output;
    for (const auto state : {CLIENT_READY_STATE, CLIENT_PLAYING_STATE}) {
        Tolerant session(
            kTcp, state,
            {{"PLAY ", SendBytes(Numbered(4, "100 Wait", "text") + "RTSP/1.0 200 OK\r\n\r\n" + Frames(1, 1))}});
        RecordOf(session).media.dialect.Set(Rule::kFramedReplies, false);
        EXPECT_TRUE(SucceedsSoon([&] { return session.Play(); }));
        EXPECT_EQ(session.Video(1), Numbers(1, 1));
    }
}

TEST(Replies, ThatAreTooLongAreCutAndTheirRestIsNoReply) {
    const CapturedStdout output;
    const std::string body = kDescription + ("a=" + std::string(99998, 'x')) + "\r\nRTSP/1.0 500 No\r\n\r\n";
    Tolerant session(kUdp, CLIENT_INIT_STATE,
                     {{"DESCRIBE ", SendBytes(Numbered(1, "200 OK", body))}, {"SETUP ", Ok("Session: 1")}});
    EXPECT_EQ(session.Describe() + session.Setup(1), 0);
}

TEST(Replies, HalfAReplyIsNotWaitedForBeyondTheLimit) {
    const CapturedStdout output;
    Tolerant session(kUdp, CLIENT_INIT_STATE, {{"OPTIONS ", SendBytes("RTSP/1.0 200 OK\r\nCSeq: 1\r\n")}});
    SetNumber(session, RTSPTAP_OPTION_REPLY_LIMIT, 100);
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Options(), 0); }), 0.9);
}

// ---- sessions that are kept alive ----

constexpr char kPublicHeader[] = "Public: DESCRIBE, get_parameter,OPTIONS";

// A client that sends a keep-alive every 100 ms, playing, and a server that meets each as `step` says.
struct KeptAlive : Session {
    KeptAlive(uint32_t protocol, const Step &step, int32_t dialect, const std::string &header = kPublicHeader,
              bool hasThreads = true)
        : Session(protocol, CLIENT_INIT_STATE,
                  Script{{"OPTIONS {base} ", Ok(header)}} + StepsTo(CLIENT_PLAYING_STATE, protocol) +
                      Times(200, step),
                  1 << 20, [=](intptr_t client) {
                      SetNumber(client, RTSPTAP_OPTION_DIALECT, dialect);
                      SetNumber(client, RTSPTAP_OPTION_KEEP_ALIVE, 1);
                      SetNumber(client, RTSPTAP_OPTION_THREADS, hasThreads ? 1 : 0);
                  }) {
        EXPECT_EQ(Options() + Describe() + Setup(1) + Setup(2) + Play(), 0);
    }

    std::size_t Asked() const { return server.Requests().size(); }
    bool MoreRequests(std::size_t count) const {
        return Eventually([this, end = Asked() + count] { return Asked() >= end; });
    }
    void SendSome(uint16_t first, uint16_t last) {
        for (const uint16_t number : Numbers(first, last)) Arrive(1, Rtp(number)), usleep(10000);
    }
};

Step AnyRequest(const Reply &reply) { return {" RTSP/1.0\r\n", reply, true}; }

TEST(KeepAlive, GoesOutByTheMethodThatTheServerListsAndNamesTheSession) {
    const CapturedStdout output;
    const std::pair<std::string, const char *> rows[] = {{kPublicHeader, "GET_PARAMETER {base} RTSP/1.0\r\n"},
                                                         {"Public: OPTIONS, GET_PARAMETERS", "OPTIONS {base} "},
                                                         {"X: GET_PARAMETER", "OPTIONS {base} "},
                                                         {"Public: PLAY", "SET_PARAMETER {base} "}};
    for (const uint32_t proto : {kUdp, kTcp})
        for (const auto &[header, request] : rows) {
            const Step step{{request, "\r\nSession: 12345678\r\n", "\r\nUser-Agent: "}, Ok(), true};
            KeptAlive session(proto, step, RTSPTAP_DIALECT_EXACT, header);
            EXPECT_TRUE(session.MoreRequests(2));
        }
}

// Whoever reads, or nobody; a paused session, too. What comes back, or does not, is nobody's reply.
TEST(KeepAlive, CostsNoPacketAndNoReplyWhateverTheServerMakesOfIt) {
    const Reply asks = SendBytes(std::string(kAsked) + "RTSP/1.0 200 OK\r\n\r\n");
    const Reply replies[] = {Ok(), Stall(), Status(404, "No"), Status(501, "No"), Delay(30) + Ok(), asks};
    for (const uint32_t proto : {kUdp, kTcp})
        for (const Reply &reply : replies)
            for (const int32_t dialect : {RTSPTAP_DIALECT_EXACT, RTSPTAP_DIALECT_TOLERANT}) {
                if (&reply == std::end(replies) - 1 && dialect == RTSPTAP_DIALECT_EXACT)
                    continue; // which knows no requests
                const CapturedStdout output;
                KeptAlive session(proto, AnyRequest(reply), dialect);
                session.SendSome(1, 30); // nobody takes them
                EXPECT_EQ(session.Video(30), Numbers(1, 30));
                const std::size_t before = session.Asked();
                std::jthread sender([&] { session.SendSome(31, 70); });
                EXPECT_EQ(session.Video(40), Numbers(31, 70));
                sender.join();
                EXPECT_GT(session.Asked(), before);
                if (&reply == replies) { // which answers PAUSE and PLAY as well
                    EXPECT_EQ(session.Pause(), 0);
                    EXPECT_TRUE(session.MoreRequests(3));
                    EXPECT_EQ(session.Play(), 0);
                }
            }
}

TEST(KeepAlive, ThatIsRefusedBecauseTheSessionIsOverTellsTheReaders) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        const CapturedStdout output;
        KeptAlive session(proto, AnyRequest(Status(454, "Session Not Found")), RTSPTAP_DIALECT_TOLERANT);
        const RTSPStreamInfo &stream = *RecordOf(session).media.streamList.load();
        EXPECT_TRUE(Eventually([&] { return stream.endedWhy == RTSPTAP_SESSION_TIMED_OUT; }));
        const std::size_t sent = session.Asked();
        usleep(300000);
        EXPECT_EQ(session.Asked(), sent);
    }
}

TEST(KeepAlive, AnswersAChallengeOnce) {
    for (const uint32_t proto : {kUdp, kTcp})
        for (const bool hasThreads : {true, false}) {
            const CapturedStdout output;
            KeptAlive session(
                proto, AnyRequest(Status(401, "No", "WWW-Authenticate: Digest realm=\"r\", nonce=\"{cseq}\"")),
                RTSPTAP_DIALECT_TOLERANT, kPublicHeader, hasThreads);
            const std::size_t before = session.Asked();
            ASSERT_TRUE(Eventually([&] {
                RTPStreamData *packet = nullptr;
                if (!hasThreads) RTSPTapTakePackets(session, 1, &packet, 1, 0);
                return session.Asked() >= before + 3;
            }));
            EXPECT_NE(session.server.Requests()[6].find("nonce=\"6\""), std::string::npos);
        }
}

// ---- the end of the connection ----

TEST(ServerCloses, MethodsThatWaitReturnAtOnceAndReadersAreTold) {
    for (const uint32_t proto : {kUdp, kTcp})
        for (const bool reset : {false, true}) {
            const CapturedStdout output;
            KeptAlive session(proto, AnyRequest(Stall()), RTSPTAP_DIALECT_TOLERANT);
            RecordOf(session).media.dialect.Set(Rule::kConnectionPerRequest, false);
            std::jthread closer([&] {
                Eventually([&] { return session.server.Requests().back().starts_with("PAUSE"); });
                session.server.Hangup(reset);
            });
            EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Pause(), RTSP_NO_RESPONSE); }), 10);
            EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Teardown(), RTSP_NO_RESPONSE); }), 10);
            EXPECT_EQ(RecordOf(session).media.dialect.Uses(Rule::kServerCloses), 2U);
            const RTSPStreamInfo &stream = *RecordOf(session).media.streamList.load();
            EXPECT_TRUE(Eventually([&] { return stream.endedWhy == RTSPTAP_CONNECTION_CLOSED; }));
        }
}

TEST(ServerCloses, StreamsOverUdpGoOnUntilNothingComes) {
    const CapturedStdout output;
    KeptAlive session(kUdp, AnyRequest(Ok()), RTSPTAP_DIALECT_TOLERANT);
    const MediaSession &media = RecordOf(session).media;
    session.server.Hangup();
    uint16_t number = 0;
    EXPECT_TRUE(Eventually([&] {
        ++number;
        session.SendSome(number, number);
        return media.dialect.Uses(Rule::kMediaOutlivesConnection) > 0;
    }));
    const RTSPStreamInfo &stream = *media.streamList.load();
    EXPECT_EQ(stream.endedWhy, 0);
    EXPECT_TRUE(Eventually([&] { return stream.endedWhy == RTSPTAP_CONNECTION_CLOSED; }));
    EXPECT_EQ(session.Pause(), 0); // on a new connection
}

// By their payload types, whichever comes first; strangers stay strangers.
TEST(Channels, ThatTheServerDoesNotSayAreFound) {
    const CapturedStdout output;
    Tolerant session(kTcp, CLIENT_DESCRIBE_SENT_STATE, Times(3, {"{base}", Ok("Session: 1")}));
    EXPECT_EQ(session.Setup(1) + session.Setup(2) + session.Play(), 0);
    for (const auto &[channel, type] : {std::pair(9U, 96U), {8U, 99U}, {6U, 97U}, {4U, 96U}, {10U, 96U}})
        session.server.Send(Frame(channel, Bytes({.payloadType = type, .sequenceNumber = 1})));
    EXPECT_EQ(session.Video(1), Numbers(1, 1));
    EXPECT_EQ(session.Audio(1), Numbers(1, 1));
    EXPECT_EQ(session.Uses(Rule::kUnsaidChannel), 2U);
    EXPECT_TRUE(Eventually([&] { return session.Uses(Rule::kUnknownChannel) == 3; }));
}

// ---- writing ----

TEST(Sending, ATextThatWasTakenInPartIsFinishedBeforeAnythingElse) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    Connection connection;
    connection.socket = ends[0];
    const auto text = [](char letter, int32_t length) {
        RecvBufferPtr made(CreateRecvBuffer(static_cast<uint32_t>(length)));
        memset(made->data, letter, static_cast<std::size_t>(length));
        made->length = length;
        return made;
    };
    EXPECT_EQ(SendWithoutWaiting(connection, text('a', 2000000)), Sent::kTaken);
    EXPECT_TRUE(connection.hasRest);
    EXPECT_EQ(SendWithoutWaiting(connection, text('b', 10)), Sent::kNotNow);
    std::string got;
    std::jthread reader([&] {
        for (char bytes[65536]; got.size() < 2000010;) {
            const ssize_t count = recv(ends[1], bytes, sizeof bytes, 0);
            if (count <= 0) break;
            got.append(bytes, static_cast<std::size_t>(count));
        }
    });
    EXPECT_EQ(SendWaiting(connection, std::string(10, 'c')), 10);
    EXPECT_FALSE(connection.hasRest);
    reader.join();
    EXPECT_TRUE(got == std::string(2000000, 'a') + std::string(10, 'c'));
    close(ends[0]);
    EXPECT_EQ(SendWithoutWaiting(connection, text('d', 10)), Sent::kFailed);
    close(ends[1]);
}

} // namespace
} // namespace rtsptap::test
