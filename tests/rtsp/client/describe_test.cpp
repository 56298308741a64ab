#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

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
                RTSPClientSendDescribeRequest(session.client, 0, buffer.data(), &size),
                fits ? 0 : RTSP_SMALL_BUFFER, fits ? "" : small + (cut < whole.size() ? " \n" : "\n"));
            EXPECT_EQ(size, static_cast<int32_t>(whole.size()));
            EXPECT_EQ(buffer.starts_with(whole), fits) << cut;
            // The first message is measured before the description is taken, the sum only afterwards.
            EXPECT_EQ(RTSPClientGetNbStreams(session.client), fits || cut < whole.size() ? 2 : 0) << cut;
        }
    }
}

TEST(Describe, DescriptionAfterReconnectingStartsAnew) {
    const std::string other = "v=0\r\nm=audio 0 RTP/AVP 0\r\n"; // without a control URL
    Session session(kUdp, CLIENT_PLAYING_STATE,
                    {{"TEARDOWN ", Ok()}, {"DESCRIBE ", WithBody(other)}, {"SETUP {base}/trackID=0 ", Ok()}});
    const RTSPStreamDescription *old = RTSPClientGetSDPInfo(session.client, 1);
    EXPECT_EQ(session.Teardown(), 0);
    session.Reach(CLIENT_DESCRIBE_SENT_STATE);
    EXPECT_EQ(RTSPClientGetNbStreams(session.client), 1);
    EXPECT_EQ(old->codecType, RTP_CODEC_H264); // valid until Destroy
    EXPECT_EQ(session.Setup(1), 0);
}
