// The command-line tool, end to end: its report, its exit statuses, and what it must not print.
#include "tests/interop/peers.h"
#include "tests/support/scripted_server.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

using Row = std::vector<std::string>;

// The words of each line of a report.
std::vector<Row> Rows(const std::string &output) {
    std::vector<Row> rows;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        rows.push_back(Row(std::istream_iterator<std::string>(words), {}));
    }
    return rows;
}

// stream, codec, packets, bytes, bit rate and its unit, lost, reordered, first and last sequence number, SSRC
void ExpectCompleteStream(const Row &row, const char *number, const char *codec, int least, int most) {
    ASSERT_EQ(11U, row.size());
    EXPECT_EQ(number, row[0]);
    EXPECT_EQ(codec, row[1]);
    EXPECT_EQ(std::stoi(row[2]), static_cast<uint16_t>(std::stoi(row[9]) - std::stoi(row[8]) + 1));
    EXPECT_GT(std::stoi(row[3]), 12 * std::stoi(row[2]));
    EXPECT_TRUE(std::stoi(row[4]) > least && std::stoi(row[4]) < most) << row[4];
    EXPECT_EQ("0", row[6]);
    EXPECT_EQ("0", row[7]);
}

bool Contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

class Tool : public testing::Test {
protected:
    DemoServer server;
};

TEST_F(Tool, PlayReportsBothStreamsAndKeepsStandardOutputForData) {
    ChildProcess play({TOOL, "-v", "play", server.UrlWith("viewer:a%2Drunning%2dclock"), "--duration", "2s"});
    EXPECT_EQ(0, play.Wait(30s)) << play.Errors();
    const std::vector<Row> rows = Rows(play.Output());
    ASSERT_EQ(3U, rows.size()) << play.Output();
    ExpectCompleteStream(rows[1], "1", "H264", 500, 3000);
    ExpectCompleteStream(rows[2], "2", "PCMU", 60, 80);
    EXPECT_TRUE(Contains(play.Errors(), "RTSP SENDING: \nPLAY rtsp://")) << play.Errors();
    EXPECT_TRUE(Contains(play.Errors(), "Authorization: ")) << play.Errors();
    EXPECT_FALSE(Contains(play.Errors(), "running") || Contains(play.Errors(), "response=")) << play.Errors();
}

void WaitUntilBound(uint16_t port) {
    char entry[16] = {};
    std::snprintf(entry, sizeof entry, ":%04X 0000", unsigned{port});
    for (int attempt = 0; attempt < 1000; ++attempt) {
        std::ifstream sockets("/proc/net/udp");
        if (Contains(std::string(std::istreambuf_iterator<char>(sockets), {}), entry)) return;
        std::this_thread::sleep_for(10ms);
    }
}

TEST(ToolWithoutServer, ListenCountsLossAndReorderingAcrossTheWrap) {
    const uint16_t port = FreeUdpPort();
    ChildProcess listen({TOOL, "listen", "--video", "h264@" + std::to_string(port), "--duration", "1s"});
    WaitUntilBound(port);
    UdpPeer sender;
    for (const uint16_t number : std::initializer_list<uint16_t>{65533, 65534, 0, 2, 1, 3, 10})
        sender.SendTo(port, Rtp(number, "payload"));
    EXPECT_EQ(0, listen.Wait(20s)) << listen.Errors();
    const std::vector<Row> rows = Rows(listen.Output());
    ASSERT_EQ(2U, rows.size());
    const Row expected = {"1", "H264", "7", "133", rows[1][4], "kbit/s", "7", "1", "65533", "10", rows[1][10]};
    EXPECT_EQ(expected, rows[1]);
}

TEST_F(Tool, EveryFailureHasItsOwnExitStatus) {
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char *errors;
    } cases[] = {
        {{TOOL, "play"}, 1, "url is required"},
        {{TOOL, "listen", "--video", "pcmu@5004"}, 1, "CODEC@PORT with a codec of h264, mp4v, jpeg, mp2t"},
        {{TOOL, "play", "rtsp://no..such..name/"}, 2, "no..such..name: "},
        {{TOOL, "play", "rtsp://127.0.0.1:1/demo"}, 3, "connection refused"},
        {{TOOL, "play", server.UrlWith("viewer:hunter2")}, 5, "401"},
        {{TOOL, "play", "rtsp://127.0.0.1:" + std::to_string(server.Port()) + "/nowhere"},
         7,
         "DESCRIBE: the server refuses"},
        {{TOOL, "listen", "--audio", "pcmu@" + std::to_string(FreeUdpPort()), "--duration", "100ms"},
         12,
         "no packet"},
    };
    for (const auto &row : cases) {
        ChildProcess tool(row.arguments);
        EXPECT_EQ(row.status, tool.Wait(30s)) << row.errors;
        EXPECT_TRUE(Contains(tool.Errors(), row.errors)) << tool.Errors();
        EXPECT_FALSE(Contains(tool.Errors(), "hunter2"));
    }
}

// The session fails twice in the same way: at once, then step by step, to tell why.
TEST(ToolWithoutServer, EveryRefusalOfAServerHasItsOwnExitStatus) {
    const std::string unsupported = "v=0\r\nm=video 0 RTP/AVP 98\r\na=rtpmap:98 VP8/90000\r\n";
    const Script elsewhere = {{"OPTIONS", Ok()}, {"DESCRIBE", Status(302, "There")}};
    const Script notUnderstood = {{"OPTIONS", Ok()}, {"DESCRIBE", WithBody("v=0\r\nc=IN IP6 ::1\r\n")}};
    const struct {
        Script script;
        int status;
        const char *errors;
    } cases[] = {
        {Times(2, {"OPTIONS", Close()}), 3, "OPTIONS: the server closed the connection"},
        {Times(2, {"OPTIONS", Status(500, "No")}), 8, "OPTIONS: the server failed"},
        {elsewhere + elsewhere, 9, "DESCRIBE: the server sends us elsewhere"},
        {notUnderstood + notUnderstood, 10, "DESCRIBE: the reply or its description is not understood"},
        {{{"OPTIONS", Ok()},
          {"DESCRIBE", WithBody(unsupported)},
          {"SETUP", Ok("Session: {session}", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1")},
          {"PLAY", Ok()},
          {"TEARDOWN", Ok()}},
         11,
         "stream 1 (VP8) is left out"},
    };
    for (const auto &row : cases) {
        ScriptedServer server(row.script);
        ChildProcess tool({TOOL, "play", server.Expand("{base}"), "--transport", "tcp"});
        EXPECT_EQ(row.status, tool.Wait(30s)) << row.errors;
        EXPECT_TRUE(Contains(tool.Errors(), row.errors)) << tool.Errors();
    }
}

} // namespace
} // namespace rtsptap::test
