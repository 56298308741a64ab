#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

namespace {

constexpr char kName[] = "RTSPClientAutoRTSPConnect";

int32_t AutoConnect(intptr_t client, const ScriptedServer &server, const char *username = "user",
                    const char *password = "secret", intptr_t setupList = 0, char *buffer = nullptr,
                    int32_t *size = nullptr) {
    return RTSPClientAutoRTSPConnect(client, "127.0.0.1", server.Port(), "live", username, password, kTcp, 0, 0,
                                     setupList, 0, 0, buffer, size);
}

Reply Challenge(const std::string &nonce) {
    return Status(401, "Unauthorized", "WWW-Authenticate: Digest realm=\"r\", nonce=\"" + nonce + "\"");
}

} // namespace

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
    const struct {
        std::string step;
        Script script;
        int32_t state;
    } kCases[] = {
        {"OPTIONS", {refused}, CLIENT_INIT_STATE},
        {"OPTIONS", {challenged, challenged}, CLIENT_INIT_STATE},
        {"DESCRIBE", {{"OPTIONS ", Ok()}, refused}, CLIENT_INIT_STATE},
        {"SETUP", described + Script{challenged}, CLIENT_DESCRIBE_SENT_STATE}, // not repeated
        {"SETUP", described + Script{{"SETUP ", Ok()}, refused}, CLIENT_READY_STATE},
        {"PLAY", described + Script{{"SETUP ", Ok()}, {"SETUP ", Ok()}, refused}, CLIENT_READY_STATE},
        {"PLAY", {{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody("v=0\r\ns=none\r\n")}}, CLIENT_DESCRIBE_SENT_STATE},
    };
    for (const auto &row : kCases) {
        ScriptedServer server(row.script);
        const Client client;
        Refusals{kName}(AutoConnect(client, server), -93, " : Error in RTSP connect state " + row.step + "\n");
        EXPECT_EQ(ObservedState(client), row.state) << row.step;
    }
}
