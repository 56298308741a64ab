#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

namespace {

struct Description {
    int32_t code = 0;
    std::string buffer; // what the caller got, as long as the size says
    int32_t size = 0;
};

Description Describe(Session &session, int32_t capacity = 8192) {
    Description result = {0, std::string(8192, '#'), capacity};
    result.code = RTSPClientSendDescribeRequest(session.client, 0, result.buffer.data(), &result.size);
    return result;
}

std::string Headers(const std::string &line) { return "RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\n" + line + "\r\n\r\n"; }

std::string SdpLines(const std::string &media) { return "v=0\r\ns=x\r\nm=video 0 RTP/AVP 96\r\n" + media; }

} // namespace

TEST(Describe, BodyMayComeInOneMoreMessage) {
    const std::string body = kDescription;
    const std::string headers =
        "RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    const std::string whole = headers + body;
    // Behind the headers, inside the body, one byte short; and nowhere.
    for (const std::size_t cut :
         {headers.size(), headers.size() + 3, whole.size() / 2 + 40, whole.size() - 1, whole.size()}) {
        const std::vector<std::size_t> cuts =
            cut < whole.size() ? std::vector<std::size_t>{cut} : std::vector<std::size_t>{};
        Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE, {{"DESCRIBE ", Pieces(whole, cuts, 50)}});
        const Description result = Describe(session);
        EXPECT_EQ(result.code, 0) << cut;
        EXPECT_EQ(result.buffer.substr(0, static_cast<std::size_t>(result.size)), whole) << cut;
        EXPECT_EQ(RTSPClientGetNbStreams(session.client), 2) << cut;
    }
}

TEST(Describe, SecondMessageThatDoesNotFitIsRefusedAfterTheParse) {
    const Reply reply =
        Text(Headers("Content-Length: 160")) + Delay(50) + SendBytes(std::string(kDescription, 160));
    Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE, {{"DESCRIBE ", reply}});
    int32_t size = 100;
    char buffer[100];
    ExpectRefusals(
        {{"sum too large", [&] { return RTSPClientSendDescribeRequest(session.client, 0, buffer, &size); }, -85,
          "EXIT : RTSPClientSendDescribeRequest :Small Buffer received from Application for Response \n"}});
    EXPECT_EQ(size, static_cast<int32_t>(Headers("Content-Length: 160").size()) - 5 + 160); // {cseq} is one digit
    EXPECT_EQ(ObservedState(session.client), CLIENT_DESCRIBE_SENT_STATE);
}

TEST(Describe, StateStandsWhenALaterStepFails) {
    const std::string exit = "EXIT : RTSPClientSendDescribeRequest :";
    const std::string badLength = exit + "Problem in converting Ascii to Integer value of Content-Length invalid "
                                         "Content Length value\n";
    const std::string noResponse = exit + " No RTSP response received from server \n";
    const std::string badSdp = exit + " Problem occured while parsing SDP data \n";
    const struct {
        const char *name;
        Reply reply;
        int32_t code;
        std::string text;
    } kCases[] = {
        {"length 0", Text(Headers("Content-Length: 0") + kDescription), -73, badLength},
        {"length text", Text(Headers("content-length: many") + kDescription), -73, badLength},
        {"length negative", Text(Headers("Content-Length: -5") + kDescription), -73, badLength},
        {"no second message", Text(Headers("Content-Length: 500")) + Delay(50) + Close(), -91, noResponse},
        {"no body at all", Ok(), -90, badSdp},
        {"IPv6", WithBody("v=0\r\nc=IN IP6 ::1\r\n"), -90, badSdp},
        {"bandwidth", WithBody(SdpLines("b=AS:0\r\n")), -90, badSdp},
        {"long control", WithBody(SdpLines("a=control:" + std::string(257, 'c'))), -90, badSdp},
    };
    for (const auto &row : kCases) {
        Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE, {{"DESCRIBE ", row.reply}});
        ExpectRefusals({{row.name, [&] { return session.Describe(); }, row.code, row.text}});
        EXPECT_EQ(ObservedState(session.client), CLIENT_DESCRIBE_SENT_STATE) << row.name;
        EXPECT_EQ(session.Describe(), RTSP_INVALID_STATE);
    }
}

TEST(Describe, StreamOfAnUnfinishedDescriptionCanBeSetUp) {
    // Kept: only the general failure of the parser fails DESCRIBE; the lines behind are lost.
    for (const char *line : {"b=TIAS:64000", "a=rtpmap:96 H264/0", "a=rtpmap:96 H264", "a=framerate:abc"}) {
        const std::string body =
            SdpLines("a=control:track1\r\n" + std::string(line) + "\r\nm=audio 0 RTP/AVP 0\r\n");
        Session session(
            DATA_PROTO_UDP, CLIENT_INIT_STATE,
            {{"DESCRIBE ", WithBody(body)}, {"SETUP {base}/track1 ", SetupReply(1, DATA_PROTO_UDP, 9)}});
        EXPECT_EQ(session.Describe(), 0) << line;
        EXPECT_EQ(RTSPClientGetNbStreams(session.client), 1) << line;
        EXPECT_NE(RTSPClientGetSDPInfo(session.client, 1), nullptr);
        EXPECT_EQ(session.Setup(1), 0) << line;
    }
    Session failed(DATA_PROTO_UDP, CLIENT_INIT_STATE,
                   {{"DESCRIBE ", WithBody(SdpLines("b=AS:0\r\n"))}, {"SETUP {base}/trackID=0 ", Ok()}});
    EXPECT_EQ(failed.Describe(), RTSP_BAD_RESPONSE);
    EXPECT_EQ(failed.Setup(1), 0); // the record is there, with the fields read so far
}

TEST(Describe, QueriesAnswerFromTheDescription) {
    Session session(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE);
    const RTSPStreamDescription *video = RTSPClientGetSDPInfo(session.client, 1);
    const RTSPStreamDescription *audio = RTSPClientGetSDPInfo(session.client, 2);
    ASSERT_TRUE(video != nullptr && audio != nullptr);
    EXPECT_EQ(video->isVideo, 1);
    EXPECT_EQ(video->codecType, RTP_CODEC_H264);
    EXPECT_STREQ(audio->encodingName, "mpeg4-generic");
    EXPECT_EQ(audio->clockRate, 44100);
    EXPECT_EQ(audio->channels, 2);
    const struct {
        int32_t stream;
        const char *name;
        uint32_t capacity;
        int32_t code;
        const char *value;
    } kQueries[] = {
        {0, "s", 64, 0, "Tone and picture"},
        {0, "s", 17, 0, "Tone and picture"},
        {0, "s", 16, -85, nullptr},        // no room for the terminator
        {0, "a=control", 64, -1, nullptr}, // Kept: at session level only the letter matches
        {0, "m", 64, -1, nullptr},
        {1, "m", 64, 0, "video 0 RTP/AVP 96"},
        {2, "a", 64, 0, "rtpmap:97 mpeg4-generic/44100/2"},
        {2, "a=control", 64, 0, "control:track2"},
        {2, "x=97", 64, 0, "audio 0 RTP/AVP 97"}, // Kept: the letter before the equals sign is not compared
        {2, "S", 64, -1, nullptr},
    };
    for (const auto &row : kQueries) {
        char value[64] = {};
        uint32_t size = row.capacity;
        EXPECT_EQ(RTSPClientGetSDPFieldInfo(session.client, row.stream, row.name, value, &size), row.code)
            << row.name;
        EXPECT_STREQ(value, row.code == 0 ? row.value : "");
        EXPECT_EQ(size, row.code == 0 ? std::string(row.value).size() + 1 : row.code == -85 ? 17 : row.capacity);
    }
}

TEST(Describe, QueriesRefuse) {
    Session session(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE);
    const intptr_t client = session.client;
    const Client fresh;
    const auto count = [](intptr_t handle) { return [=] { return RTSPClientGetNbStreams(handle); }; };
    const auto info = [](intptr_t handle, int32_t stream) {
        return [=] { return RTSPClientGetSDPInfo(handle, stream) == nullptr ? -1 : 0; };
    };
    const auto field = [](intptr_t handle, int32_t stream, const char *name) {
        return [=] {
            char value[64];
            uint32_t size = 4;
            return RTSPClientGetSDPFieldInfo(handle, stream, name, value, &size);
        };
    };
    const std::string argument = " :Invalid input argument\n";
    const std::string handle = " :Invalid client handle\n";
    const std::string unconnected = " :Client is created but is not connected to server\n";
    const std::string number = " :Invalid Stream Number\n";
    ExpectRefusals({
        {"count of null", count(0), -99, "EXIT : RTSPClientGetNbStreams" + argument},
        {"count of no client", count(1), -99, "EXIT : RTSPClientGetNbStreams" + handle},
        {"count of unconnected", count(fresh), -95, "EXIT : RTSPClientGetNbStreams" + unconnected},
        {"info of null", info(0, 1), -1, "EXIT : RTSPClientGetSDPInfo" + argument},
        {"info 0 of no client", info(1, 0), -1, "EXIT : RTSPClientGetSDPInfo" + argument},
        {"info of no client", info(1, 1), -1, "EXIT : RTSPClientGetSDPInfo" + handle},
        {"info of unconnected", info(fresh, 9), -1, "EXIT : RTSPClientGetSDPInfo" + unconnected},
        {"info 3 of 2", info(client, 3), -1, "EXIT : RTSPClientGetSDPInfo" + number},
        {"field of null", field(0, 0, "s"), -99, "EXIT : RTSPClientGetSDPFieldInfo" + argument},
        {"field -1", field(client, -1, "s"), -99, "EXIT : RTSPClientGetSDPFieldInfo" + argument},
        {"field without a name", field(client, 0, nullptr), -99, "EXIT : RTSPClientGetSDPFieldInfo" + argument},
        {"field of no client", field(1, 0, "s"), -99, "EXIT : RTSPClientGetSDPFieldInfo" + handle},
        {"field of unconnected", field(fresh, 9, "s"), -95, "EXIT : RTSPClientGetSDPFieldInfo" + unconnected},
        {"field 3 of 2", field(client, 3, "s"), -99, "EXIT : RTSPClientGetSDPFieldInfo" + number},
        {"small buffer", field(client, 0, "s"), -85,
         "EXIT : RTSPClientGetSDPFieldInfo :Small Buffer received from Application for SDP\n"},
    });
    EXPECT_EQ(RTSPClientGetNbStreams(client), 2);
}

TEST(Describe, DescriptionAfterReconnectingStartsAnew) {
    const std::string other =
        "v=0\r\ns=Other\r\nm=audio 0 RTP/AVP 97\r\na=rtpmap:97 PCMU/8000\r\na=control:other\r\n";
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE,
                    {{"TEARDOWN ", Ok()},
                     {"DESCRIBE ", WithBody(other)},
                     {"SETUP {base}/other ", SetupReply(1, DATA_PROTO_UDP, 9)},
                     {"PLAY ", Ok()}});
    const RTSPStreamDescription *old = RTSPClientGetSDPInfo(session.client, 1);
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_EQ(session.Connect(), 0);
    EXPECT_EQ(RTSPClientGetNbStreams(session.client), 0);
    EXPECT_EQ(session.Describe(), 0);
    EXPECT_EQ(RTSPClientGetNbStreams(session.client), 1);
    EXPECT_EQ(old->codecType, RTP_CODEC_H264); // valid until Destroy
    EXPECT_EQ(RTSPClientGetSDPInfo(session.client, 1)->codecType, RTP_CODEC_PCMU);
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.Play(1), 0);
}
