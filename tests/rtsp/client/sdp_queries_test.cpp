#include "tests/support/captured_stdout.h"
#include "tests/support/described_client.h"

#include <gtest/gtest.h>

namespace rtsptap::test {
namespace {

constexpr char kDescription[] =
    "v=0\r\no=- 1 1 IN IP4 10.0.0.2\r\ns=Twenty characters ..\r\na=control:*\r\nt=0 0\r\n"
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 a=1\r\n"
    "m=audio 0 RTP/AVP 0\r\nb=AS:64\r\n";

TEST(SdpQueries, RefusalsNameTheirReasonInTheOrderOfTheChecks) {
    CapturedStdout out;
    DescribedClient described(kDescription);
    const intptr_t live = described.handle;
    const intptr_t dead = live + 1;
    char value[32];
    uint32_t size = sizeof value;
    uint32_t ssrc = 0;

    const auto refused = [&out](int32_t result, int32_t code, const char *function, const char *reason) {
        const std::string text =
            "!!!ERROR!!! : EXIT : RTSPClientGet" + std::string(function) + " :" + reason + "\n";
        EXPECT_EQ(result, code) << text;
        EXPECT_TRUE(out.Text().ends_with(text)) << text << "not at the end of\n" << out.Text();
    };
    const auto count = [&](intptr_t client, int32_t code, const char *reason) {
        refused(RTSPClientGetNbStreams(client), code, "NbStreams", reason);
    };
    const auto info = [&](intptr_t client, int32_t number, const char *reason) {
        refused(RTSPClientGetSDPInfo(client, number) == nullptr, true, "SDPInfo", reason);
    };
    const auto field = [&](intptr_t client, int32_t number, const char *name, int32_t code, const char *reason) {
        refused(RTSPClientGetSDPFieldInfo(client, number, name, value, &size), code, "SDPFieldInfo", reason);
    };
    const auto source = [&](intptr_t client, int32_t number, uint32_t *to, int32_t code, const char *reason) {
        refused(RTSPClientGetSSRC(client, number, to), code, "SSRC", reason);
    };
    constexpr char kArgument[] = "Invalid input argument";
    constexpr char kHandle[] = "Invalid client handle";
    constexpr char kUnconnected[] = "Client is created but is not connected to server";
    constexpr char kNumber[] = "Invalid Stream Number";

    count(0, -99, kArgument);
    count(dead, -99, kHandle);
    info(0, 1, kArgument);
    info(dead, 0, kArgument);
    info(dead, 9, kHandle);
    info(live, 3, kNumber);
    field(0, 1, "m", -99, kArgument);
    field(dead, -1, "m", -99, kArgument);
    field(dead, 9, nullptr, -99, kArgument);
    field(dead, 9, "m", -99, kHandle);
    field(live, 3, "m", -99, kNumber);
    refused(RTSPClientGetSDPFieldInfo(live, 1, "m", nullptr, &size), -99, "SDPFieldInfo", kArgument);
    refused(RTSPClientGetSDPFieldInfo(live, 1, "m", value, nullptr), -99, "SDPFieldInfo", kArgument);
    source(dead, 0, &ssrc, -99, kArgument);
    source(dead, 1, nullptr, -99, kArgument);
    source(dead, 9, &ssrc, -99, kHandle);
    source(live, 3, &ssrc, -99, kNumber);
    described.client.connected = 0;
    count(live, -95, kUnconnected);
    info(live, 9, kUnconnected);
    field(live, 9, "m", -95, kUnconnected);
    source(live, 9, &ssrc, -95, kUnconnected);
    EXPECT_EQ(size, sizeof value);
}

TEST(SdpQueries, StreamsAreDescribedByTheirNumber) {
    const CapturedStdout out;
    DescribedClient described(kDescription);
    described.Stream(2).remoteSsrc = 0xCAFEF00D;
    uint32_t ssrc = 1;
    EXPECT_EQ(RTSPClientGetNbStreams(described.handle), 2);
    EXPECT_EQ(RTSPClientGetSDPInfo(described.handle, 1)->codecType, RTP_CODEC_H264);
    EXPECT_EQ(RTSPClientGetSDPInfo(described.handle, 2)->bandwidth, 64);
    EXPECT_EQ(RTSPClientGetSSRC(described.handle, 1, &ssrc), 0);
    EXPECT_EQ(ssrc, 0U);
    EXPECT_EQ(RTSPClientGetSSRC(described.handle, 2, &ssrc), 0);
    EXPECT_EQ(ssrc, 0xCAFEF00DU);

    described.client.streamCount = 3; // more than are linked
    EXPECT_EQ(RTSPClientGetSDPInfo(described.handle, 3), nullptr);
    EXPECT_EQ(RTSPClientGetSSRC(described.handle, 3, &ssrc), -1);
}

TEST(SdpQueries, KeptLinesAreFoundByLetterAndInStreamsAlsoByTextBehindAnEqualsSign) {
    const CapturedStdout out;
    DescribedClient described(kDescription);
    const struct {
        int32_t stream;
        const char *name;
        const char *value; // null: not found
    } kCases[] = {
        {0, "s", "Twenty characters .."},
        {0, "a", "control:*"},
        {0, "a=control", nullptr},
        {0, "m", nullptr},
        {0, "", nullptr},
        {1, "m", "video 0 RTP/AVP 96"},
        {1, "a", "rtpmap:96 H264/90000"},
        {1, "a=fmtp", "fmtp:96 a=1"},
        {1, "x=video", "video 0 RTP/AVP 96"},
        {1, "a=", "video 0 RTP/AVP 96"},
        {1, "a=a=1", "fmtp:96 a=1"},
        {1, "fmtp", nullptr},
        {1, "b", nullptr},
        {2, "b", "AS:64"},
        {2, "a=fmtp", nullptr},
    };
    for (const auto &row : kCases) {
        char value[64] = "untouched";
        uint32_t size = sizeof value;
        const int32_t result = RTSPClientGetSDPFieldInfo(described.handle, row.stream, row.name, value, &size);
        EXPECT_EQ(result, row.value != nullptr ? 0 : -1) << row.stream << row.name;
        EXPECT_STREQ(value, row.value != nullptr ? row.value : "untouched");
        EXPECT_EQ(size, row.value != nullptr ? strlen(row.value) + 1 : sizeof value);
    }
}

TEST(SdpQueries, AValueNeedsRoomForItsTerminator) {
    CapturedStdout out;
    DescribedClient described(kDescription);
    char value[21] = "untouched";
    uint32_t size = 20;
    EXPECT_EQ(RTSPClientGetSDPFieldInfo(described.handle, 0, "s", value, &size), -85);
    EXPECT_TRUE(out.Text().ends_with("!!!ERROR!!! : EXIT : RTSPClientGetSDPFieldInfo :Small Buffer received from "
                                     "Application for SDP\n"));
    EXPECT_EQ(size, 21U);
    EXPECT_STREQ(value, "untouched");
    EXPECT_EQ(RTSPClientGetSDPFieldInfo(described.handle, 0, "s", value, &size), 0);
    EXPECT_EQ(size, 21U);
    EXPECT_STREQ(value, "Twenty characters ..");
}

} // namespace
} // namespace rtsptap::test
