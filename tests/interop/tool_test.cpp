// The command-line tool, end to end: its report, its exit statuses, and what it must not print.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <regex>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

int CountMatches(const std::string &text, const std::string &pattern) {
    const std::regex regex(pattern);
    return static_cast<int>(std::distance(std::sregex_iterator(text.begin(), text.end(), regex), {}));
}

class Tool : public testing::Test {
protected:
    std::string UrlWith(const std::string &credentials) const {
        return std::string(server.Url()).replace(0, 7, "rtsp://" + credentials + "@");
    }
    DemoServer server;
};

TEST_F(Tool, PlayReportsBothStreamsAndKeepsStandardOutputForData) {
    ChildProcess play({TOOL, "-v", "play", UrlWith("viewer:a%2Drunning%2dclock"), "--duration", "2s"});
    EXPECT_EQ(0, play.Wait(30s)) << play.Errors();
    EXPECT_EQ(3, CountMatches(play.Output(), "\n")) << play.Output();
    EXPECT_EQ(1, CountMatches(play.Output(), "\n1 +H264 +[1-9][0-9]* +[1-9][0-9]* +[1-9][0-9]* kbit/s +0 +0 "))
        << play.Output();
    EXPECT_EQ(1, CountMatches(play.Output(), "\n2 +PCMU +[1-9][0-9]* +[1-9][0-9]* +[6-7][0-9] kbit/s +0 +0 "))
        << play.Output();
    EXPECT_EQ(1, CountMatches(play.Errors(), "RTSP SENDING: \nPLAY rtsp://")) << play.Errors();
    EXPECT_EQ(0, CountMatches(play.Errors(), "running|response=")) << play.Errors();
}

TEST_F(Tool, TheFirstSignalFinishesThePlayWithItsReport) {
    for (const int signal : {SIGINT, SIGTERM}) {
        ChildProcess play({TOOL, "play", UrlWith("viewer:a-running-clock"), "--transport", "tcp"});
        std::this_thread::sleep_for(2500ms);
        play.Signal(signal);
        EXPECT_EQ(128 + signal, play.Wait(20s));
        EXPECT_EQ(1, CountMatches(play.Output(), "\n1 +H264 +[1-9]")) << play.Output() << play.Errors();
    }
}

TEST_F(Tool, EveryFailureHasItsOwnExitStatus) {
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char *errors;
    } cases[] = {
        {{"play"}, 1, "url is required"},
        {{"play", "http://127.0.0.1/"}, 1, "begins with rtsp://"},
        {{"play", "rtsp://127.0.0.1/", "--transport", "pigeon"}, 1, "udp or tcp"},
        {{"listen"}, 1, "give --video, --audio or both"},
        {{"listen", "--video", "pcmu@5004"}, 1, "CODEC@PORT with a codec of h264, mp4v, jpeg, mp2t"},
        {{"play", "rtsp://no..such..name/"}, 2, "no..such..name: "},
        {{"play", "rtsp://127.0.0.1:1/demo"}, 3, "connection refused"},
        {{"play", server.Url(), "-u", "viewer"}, 5, "401"},
        {{"play", UrlWith("viewer:hunter2")}, 5, "401"},
        {{"play", "rtsp://127.0.0.1:" + std::to_string(server.Port()) + "/nowhere"},
         7,
         "DESCRIBE: the server refuses"},
        {{"listen", "--audio", "pcmu@" + std::to_string(FreeUdpPort()), "--duration", "100ms"}, 12, "no packet"},
    };
    for (const auto &row : cases) {
        std::vector<std::string> arguments = {TOOL};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        ChildProcess tool(arguments);
        EXPECT_EQ(row.status, tool.Wait(30s)) << row.errors;
        EXPECT_NE(std::string::npos, tool.Errors().find(row.errors)) << tool.Errors();
        EXPECT_EQ(std::string::npos, tool.Errors().find("hunter2"));
    }
}

} // namespace
} // namespace rtsptap::test
