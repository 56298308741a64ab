#include "tests/support/captured_stdout.h"
#include "tests/support/described_client.h"

#include <gtest/gtest.h>

namespace rtsptap::test {
namespace {

constexpr char kDescription[] =
    "v=0\r\no=- 1 1 IN IP4 10.0.0.2\r\ns=Twenty characters ..\r\na=control:*\r\nt=0 0\r\n"
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 a=1\r\n"
    "m=audio 0 RTP/AVP 0\r\nb=AS:64\r\n";

TEST(SdpQueries, KeptLinesAreFoundByLetterAndInStreamsAlsoByTextBehindAnEqualsSign) {
    const CapturedStdout out;
    DescribedClient described(kDescription);
    const struct {
        int32_t stream;
        const char *name;
        const char *value; // null: not found
        uint32_t size = 64;
    } kCases[] = {
        {0, "s", "Twenty characters ..", 21},
        {0, "s", nullptr, 20}, // room for all but the terminator
        {0, "a=control", nullptr},
        {0, "m", nullptr},
        {1, "m", "video 0 RTP/AVP 96"},
        {1, "a=fmtp", "fmtp:96 a=1"},
        {1, "x=video", "video 0 RTP/AVP 96"},
        {1, "a=", "video 0 RTP/AVP 96"},
        {1, "a=a=1", "fmtp:96 a=1"},
        {1, "fmtp", nullptr},
        {2, "b", "AS:64"},
    };
    for (const auto &row : kCases) {
        char value[64] = "untouched";
        uint32_t size = row.size;
        const int32_t result = RTSPClientGetSDPFieldInfo(described.handle, row.stream, row.name, value, &size);
        EXPECT_EQ(result, row.value != nullptr ? 0 : row.size == 20 ? -85 : -1) << row.stream << row.name;
        EXPECT_STREQ(value, row.value != nullptr ? row.value : "untouched");
        EXPECT_EQ(size, row.value != nullptr ? strlen(row.value) + 1 : result == -85 ? 21 : row.size);
    }
}

} // namespace
} // namespace rtsptap::test
