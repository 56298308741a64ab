#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

namespace {

struct Connecting {
    intptr_t setupList = 0;
    const char *username = "user";
    const char *password = "secret";
    char *buffer = nullptr;
    int32_t *size = nullptr;
    uint32_t proto = DATA_PROTO_TCP;
};

int32_t AutoConnect(intptr_t client, const ScriptedServer &server, const Connecting &with = {}) {
    return RTSPClientAutoRTSPConnect(client, "127.0.0.1", server.Port(), "live", with.username, with.password,
                                     with.proto, 0, 0, with.setupList, 0, 0, with.buffer, with.size);
}

} // namespace

TEST(AutoConnect, PlaysAndLeavesThePlayReply) {
    const HeaderList setup({{"Require", "x"}});
    ScriptedServer server(
        {{"OPTIONS ", Ok()},
         {"DESCRIBE ", WithBody(kDescription)},
         {{"SETUP {base}/track1 ", "\r\nRequire: x\r\n"}, SetupReply(1, DATA_PROTO_TCP, 0)},
         {{"SETUP {base}/track2 ", "!Require"}, SetupReply(2, DATA_PROTO_TCP, 0)}, // only the first
         {{"PLAY {base} ", "\r\nSession: {session}\r\n"}, Ok() + SendBytes(Frame(2, Rtp(8)))}});
    const Client client;
    char buffer[1024] = {};
    int32_t size = sizeof buffer;
    EXPECT_EQ(AutoConnect(client, server, {.setupList = setup, .buffer = buffer, .size = &size}), 0);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(size)), "RTSP/1.0 200 OK\r\nCSeq: 5\r\n\r\n");
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_MPEG4_GENERIC, 1), Numbers(8, 8));
    uint32_t ssrc = 0;
    EXPECT_EQ(RTSPClientGetSSRC(client, 2, &ssrc), 0);
    EXPECT_EQ(ssrc, 0x11223344U);
    EXPECT_EQ(RTSPClientGetSSRC(client, 1, &ssrc), 0);
    EXPECT_EQ(ssrc, 0U); // nothing received yet
}

TEST(AutoConnect, AnswersOneChallengeOfOptionsAndOfDescribe) {
    const Reply challenge = Status(401, "Unauthorized", "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"");
    const Reply again = Status(401, "Unauthorized", "WWW-Authenticate: Digest realm=\"r\", nonce=\"m\"");
    const Expect first = {"OPTIONS ", "!Authorization"};
    ScriptedServer server({{first, challenge},
                           {{"OPTIONS ", "Digest username=\"user\", realm=\"r\", nonce=\"n\""}, Ok()},
                           {{"DESCRIBE ", "nonce=\"n\""}, again},
                           {{"DESCRIBE ", "nonce=\"m\""}, again}});
    const Client client;
    ExpectRefusals({{"describe", [&] { return AutoConnect(client, server); }, -93,
                     "EXIT : RTSPClientAutoRTSPConnect : Error in RTSP connect state DESCRIBE\n"}});
    char digest[256] = {};
    GenerateDigestResponse("m", nullptr, "user", "r", "secret", "md5", "", "DESCRIBE", nullptr,
                           server.Expand("{base}").c_str(), digest);
    EXPECT_NE(server.LastRequest().find(digest), std::string::npos);

    // A second call starts over; shorter credentials leave nothing of the longer ones behind.
    ScriptedServer other(Script{{{"OPTIONS ", "username=\"u\""}, Ok()}} +
                         StepsTo(CLIENT_PLAYING_STATE, DATA_PROTO_TCP));
    EXPECT_EQ(AutoConnect(client, other, {.username = "u", .password = nullptr}), 0);
}

TEST(AutoConnect, StepThatFailsIsNamed) {
    const std::string exit = "EXIT : RTSPClientAutoRTSPConnect : Error in RTSP connect state ";
    const Script described = {{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody(kDescription)}};
    const Step refused = {"", Status(404, "Not Found")};
    const Step challenged = {"", Status(401, "Unauthorized", "WWW-Authenticate: Digest realm=\"r\"")};
    const struct {
        const char *step;
        Script script;
        int32_t state;
    } kCases[] = {
        {"OPTIONS", {refused}, CLIENT_INIT_STATE},
        {"OPTIONS", {challenged, challenged}, CLIENT_INIT_STATE},
        {"DESCRIBE", {{"OPTIONS ", Ok()}, refused}, CLIENT_INIT_STATE},
        {"SETUP", described + Script{challenged}, CLIENT_DESCRIBE_SENT_STATE}, // not repeated
        {"SETUP", described + Script{{"SETUP ", SetupReply(1, DATA_PROTO_TCP, 0)}, refused}, CLIENT_READY_STATE},
        {"PLAY", described + Script{{"SETUP ", Ok()}, {"SETUP ", Ok()}, refused}, CLIENT_READY_STATE},
        {"PLAY", {{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody("v=0\r\ns=none\r\n")}}, CLIENT_DESCRIBE_SENT_STATE},
    };
    for (const auto &row : kCases) {
        ScriptedServer server(row.script);
        const Client client;
        ExpectRefusals({{row.step, [&] { return AutoConnect(client, server); }, -93, exit + row.step + "\n"}});
        EXPECT_EQ(ObservedState(client), row.state) << row.step;
    }
}

TEST(AutoConnect, ArgumentsAreCheckedInOrder) {
    ScriptedServer server({});
    const Client client;
    const UdpPeer nobody;
    const auto connect = [&](intptr_t handle, const char *ip, uint16_t port, const char *name, uint32_t proto) {
        return [=] {
            return RTSPClientAutoRTSPConnect(handle, ip, port, name, "u", "p", proto, 0, 0, 0, 0, 0, nullptr,
                                             nullptr);
        };
    };
    const auto ssrc = [](intptr_t handle, int32_t stream) {
        return [=] {
            uint32_t value = 0;
            return RTSPClientGetSSRC(handle, stream, &value);
        };
    };
    const uint16_t port = server.Port();
    const std::string argument = "EXIT : RTSPClientAutoRTSPConnect :Invalid input argument\n";
    Session described(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE);
    const intptr_t live = described.client;
    ExpectRefusals({
        {"null handle", connect(0, "127.0.0.1", port, "live", 0), -99, argument},
        {"null address", connect(client, nullptr, port, "live", 0), -99, argument},
        {"port 0", connect(client, "127.0.0.1", 0, "live", 0), -99, argument},
        {"null name", connect(client, "127.0.0.1", port, nullptr, 0), -99, argument},
        {"protocol 2 of no client", connect(1, "127.0.0.1", port, "live", 2), -99, argument},
        {"no client", connect(1, "127.0.0.1", port, "live", 0), -99,
         "EXIT : RTSPClientAutoRTSPConnect :Invalid client handle\n"},
        {"nobody listens", connect(client, "127.0.0.1", nobody.Port(), "live", 0), -95,
         "EXIT : RTSPClientAutoRTSPConnect :Client Connection to RTSP server Failed\n"},
        {"ssrc of null", ssrc(0, 1), -99, "EXIT : RTSPClientGetSSRC :Invalid input argument\n"},
        {"ssrc of stream 0", ssrc(1, 0), -99, "EXIT : RTSPClientGetSSRC :Invalid input argument\n"},
        {"ssrc to null", [&] { return RTSPClientGetSSRC(live, 1, nullptr); }, -99,
         "EXIT : RTSPClientGetSSRC :Invalid input argument\n"},
        {"ssrc of no client", ssrc(1, 1), -99, "EXIT : RTSPClientGetSSRC :Invalid client handle\n"},
        {"ssrc of unconnected", ssrc(client, 9), -95,
         "EXIT : RTSPClientGetSSRC :Client is created but is not connected to server\n"},
        {"ssrc 3 of 2", ssrc(live, 3), -99, "EXIT : RTSPClientGetSSRC :Invalid Stream Number\n"},
    });
}
