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

TEST(Describe, LinesOfADescriptionWithoutStreamsAreForgottenWithTheNext) {
    Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE,
                    {{"DESCRIBE ", WithBody("v=0\r\ns=first\r\n")},
                     {"OPTIONS ", Ok()},
                     {"DESCRIBE ", WithBody("v=0\r\ns=second\r\n")}});
    char name[16] = {};
    uint32_t size = sizeof name;
    EXPECT_EQ(session.Describe(), 0);
    EXPECT_EQ(session.Options(), 0); // leads back to where DESCRIBE is allowed
    EXPECT_EQ(session.Describe(), 0);
    EXPECT_EQ(RTSPClientGetSDPFieldInfo(session.client, 0, "s", name, &size), 0);
    EXPECT_STREQ(name, "second");
}
