// What the six methods share: checks and their order, status classes, the caller's buffer, unusable replies.
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

namespace {

using Call = int32_t (*)(intptr_t client, intptr_t list, char *buffer, int32_t *size);

struct Method {
    const char *name;
    const char *function;
    const char *request;  // how its request begins
    const char *listName; // in "HeaderList of ... method is not valid"
    const char *badState; // "" for the method that is never refused
    RTSPClientState from; // a state that allows it
    int32_t to;           // the observed state after a 200
    std::vector<int> allowedStates;
    Call call;
};

template <auto function> int32_t OfStreamOne(intptr_t client, intptr_t list, char *buffer, int32_t *size) {
    return function(client, 1, list, buffer, size);
}

const Method kMethods[] = {
    {"OPTIONS",
     "RTSPClientSendOptionsRequest",
     "OPTIONS {base} ",
     "Options",
     "",
     CLIENT_READY_STATE,
     CLIENT_INIT_STATE,
     {0, 1, 2, 3, 4, 5},
     RTSPClientSendOptionsRequest},
    {"DESCRIBE",
     "RTSPClientSendDescribeRequest",
     "DESCRIBE {base} ",
     "Describe",
     " :Client State is Not Valid for DESCRIBE Method.\n",
     CLIENT_OPTIONS_SENT_STATE,
     CLIENT_DESCRIBE_SENT_STATE,
     {0, 1},
     RTSPClientSendDescribeRequest},
    {"SETUP",
     "RTSPClientSendSetupRequest",
     "SETUP {base}/track1 ",
     "Setup",
     " :Client State is Not Valid for SETUP Method.\n",
     CLIENT_DESCRIBE_SENT_STATE,
     CLIENT_READY_STATE,
     {2, 3},
     OfStreamOne<RTSPClientSendSetupRequest>},
    {"PLAY",
     "RTSPClientSendPlayRequest",
     "PLAY {base}/track1 ",
     "Play",
     " :Client State is Not Valid for PLAY Method.\n",
     CLIENT_READY_STATE,
     CLIENT_PLAYING_STATE,
     {3, 4, 5},
     OfStreamOne<RTSPClientSendPlayRequest>},
    {"PAUSE",
     "RTSPClientSendPauseRequest",
     "PAUSE {base}/track1 ",
     "Pause",
     " :Client State is Not Valid for PAUSE Method.\n",
     CLIENT_PLAYING_STATE,
     CLIENT_PLAYING_STATE,
     {4},
     OfStreamOne<RTSPClientSendPauseRequest>},
    {"TEARDOWN",
     "RTSPClientSendTeardownRequest",
     "TEARDOWN {base} ",
     "TearDown",
     " : Client State is Not Valid for TEARDOWN Method.\n",
     CLIENT_PAUSE_STATE,
     RTSP_NOT_CONNECTED,
     {4, 5},
     RTSPClientSendTeardownRequest},
};

std::string Exit(const Method &method, const std::string &rest) {
    return "EXIT : " + std::string(method.function) + rest;
}

std::string ReplyOf(const Method &method) {
    return method.call == RTSPClientSendDescribeRequest ? WithBody(kDescription)[0].bytes : Ok()[0].bytes;
}

} // namespace

TEST(Exchange, MethodsAreRefusedOutsideTheirStates) {
    const HeaderList unknown({{"X-Unknown", "1"}}); // refused after the state, so that nothing is ever sent
    for (int state = CLIENT_INIT_STATE; state <= CLIENT_PAUSE_STATE; ++state) {
        Session session(DATA_PROTO_UDP, static_cast<RTSPClientState>(state));
        for (const Method &method : kMethods) {
            const bool allowed = std::count(method.allowedStates.begin(), method.allowedStates.end(), state) > 0;
            const std::string badList =
                " :HeaderList of " + std::string(method.listName) + " method is not valid\n";
            ExpectRefusals({{method.name, [&] { return method.call(session.client, unknown, nullptr, nullptr); },
                             allowed ? RTSP_INVALID_HEADER_LIST : RTSP_INVALID_STATE,
                             Exit(method, allowed ? badList : method.badState)}});
        }
    }
}

TEST(Exchange, MethodsNeedALiveAndConnectedClient) {
    const Client client;
    const intptr_t gone = Client();
    for (const Method &method : kMethods) {
        // PAUSE looks at the stream number before the connection; the others the other way round.
        const bool pause = method.call == OfStreamOne<RTSPClientSendPauseRequest>;
        ExpectRefusals({
            {"null", [&] { return method.call(0, 0, nullptr, nullptr); }, RTSP_INVALID_ARGUMENT,
             Exit(method, " :Invalid input argument\n")},
            {"gone", [&] { return method.call(gone, 0, nullptr, nullptr); }, RTSP_INVALID_ARGUMENT,
             Exit(method, " :Invalid client handle\n")},
            {"unconnected", [&] { return method.call(client, 0, nullptr, nullptr); },
             pause ? RTSP_INVALID_ARGUMENT : RTSP_NOT_CONNECTED,
             Exit(method,
                  pause ? " :Invalid Stream Number\n" : " :Client is created but is not connected to server\n")},
        });
    }
}

TEST(Exchange, OfTwoFailuresTheFirstCheckWins) {
    Session fresh(DATA_PROTO_UDP, CLIENT_INIT_STATE);
    Session described(DATA_PROTO_UDP, CLIENT_DESCRIBE_SENT_STATE);
    const HeaderList unknown({{"X-Unknown", "1"}});
    const auto setup = [](intptr_t client, int32_t stream, intptr_t list) {
        return RTSPClientSendSetupRequest(client, stream, list, nullptr, nullptr);
    };
    const auto play = [](intptr_t client, int32_t stream) {
        return RTSPClientSendPlayRequest(client, stream, 0, nullptr, nullptr);
    };
    const auto pause = [](intptr_t client, int32_t stream) {
        return RTSPClientSendPauseRequest(client, stream, 0, nullptr, nullptr);
    };
    const std::string setupExit = "EXIT : RTSPClientSendSetupRequest :";
    ExpectRefusals({
        {"stream 0, no such client", [&] { return setup(1, 0, 0); }, -99, setupExit + "Invalid input argument\n"},
        {"state, stream 9", [&] { return setup(fresh.client, 9, 0); }, -84,
         setupExit + "Client State is Not Valid for SETUP Method.\n"},
        {"stream 9, header list", [&] { return setup(described.client, 9, unknown); }, -99,
         setupExit + "Invalid Stream Number\n"},
        {"stream -1, no such client", [&] { return play(1, -1); }, -99,
         "EXIT : RTSPClientSendPlayRequest :Invalid input argument\n"},
        {"stream 9, state", [&] { return play(described.client, 9); }, -99,
         "EXIT : RTSPClientSendPlayRequest :Invalid Stream Number\n"},
        {"stream -1, no such client", [&] { return pause(1, -1); }, -99,
         "EXIT : RTSPClientSendPauseRequest :Invalid input argument\n"},
        {"stream 9, state", [&] { return pause(described.client, 9); }, -99,
         "EXIT : RTSPClientSendPauseRequest :Invalid Stream Number\n"},
    });
}

TEST(Exchange, StatusClassesDecideAndLeaveTheStateAlone) {
    const struct {
        int status;
        int32_t code;
        const char *text;
    } kClasses[] = {
        {500, RTSP_SERVER_ERROR, " :Server Error Received from Server\n"},
        {999, RTSP_SERVER_ERROR, " :Server Error Received from Server\n"},
        {400, RTSP_CLIENT_ERROR, " :Client Error Received from Server\n"},
        {499, RTSP_CLIENT_ERROR, " :Client Error Received from Server\n"},
        {300, RTSP_REDIRECTED, " :Redirectional Error Received from Server\n"},
        {399, RTSP_REDIRECTED, " :Redirectional Error Received from Server\n"},
        {204, RTSP_SUCCESS, ""}, // Kept: other codes below 300 succeed and change nothing
        {100, RTSP_SUCCESS, ""},
    };
    for (const Method &method : kMethods) {
        Script script;
        for (const auto &row : kClasses)
            script.push_back({method.request, Status(row.status, "Why", "Session: {session}")});
        Session session(DATA_PROTO_UDP, method.from, script);
        const int32_t before = ObservedState(session.client);
        for (const auto &row : kClasses) {
            ExpectRefusals({{method.name, [&] { return method.call(session.client, 0, nullptr, nullptr); },
                             row.code, row.code == 0 ? "" : Exit(method, row.text)}});
            EXPECT_EQ(ObservedState(session.client), before) << method.name << " " << row.status;
        }
    }
}

TEST(Exchange, OnlyOptionsAndDescribeTakeUpAChallenge) {
    for (const Method &method : kMethods) {
        const bool takes = method.from < CLIENT_DESCRIBE_SENT_STATE || method.call == RTSPClientSendOptionsRequest;
        const Reply refusal =
            Status(401, "Unauthorized", "Session: {session}", "WWW-Authenticate: Digest realm=\"r\"");
        Session session(DATA_PROTO_UDP, method.from,
                        {{method.request, refusal},
                         {{method.request, takes ? "\r\nAuthorization: Digest " : "!Authorization"}, refusal}});
        const int32_t code = takes ? RTSP_UNAUTHORIZED : RTSP_CLIENT_ERROR;
        EXPECT_EQ(method.call(session.client, 0, nullptr, nullptr), code) << method.name;
        EXPECT_EQ(method.call(session.client, 0, nullptr, nullptr), code) << method.name;
    }
}

TEST(Exchange, RawReplyGoesToTheCallerWithoutATerminator) {
    for (const Method &method : kMethods) {
        Session session(DATA_PROTO_UDP, method.from, {{method.request, Text(ReplyOf(method))}});
        std::string buffer(4096, '#');
        int32_t size = 4096;
        {
            CapturedStdout out;
            EXPECT_EQ(method.call(session.client, 0, buffer.data(), &size), 0) << method.name;
            EXPECT_NE(out.Text().find("!!!INFO!!! : Client generating and sending " + std::string(method.name) +
                                      " request message \n"),
                      std::string::npos);
        }
        const auto length = static_cast<std::size_t>(size);
        EXPECT_TRUE(buffer.starts_with("RTSP/1.0 200 OK\r\nCSeq: ")) << method.name;
        EXPECT_EQ(buffer.find('#'), length) << method.name;
        EXPECT_EQ(ObservedState(session.client), method.to) << method.name;
    }
}

TEST(Exchange, SmallBufferFailsAfterTheStateHasMoved) {
    for (const Method &method : kMethods) {
        for (const int32_t capacity : {10, 0, -1}) {
            Session session(DATA_PROTO_UDP, method.from, {{method.request, Text(ReplyOf(method))}});
            char buffer[16] = {};
            int32_t size = capacity;
            ExpectRefusals(
                {{method.name, [&] { return method.call(session.client, 0, buffer, &size); }, RTSP_SMALL_BUFFER,
                  Exit(method, " :Small Buffer received from Application for Response\n")}});
            EXPECT_GT(size, 20) << method.name;
            EXPECT_EQ(buffer[0], '\0');
            // DESCRIBE looks at the buffer before anything else.
            const bool describe = method.call == RTSPClientSendDescribeRequest;
            EXPECT_EQ(ObservedState(session.client), describe ? CLIENT_INIT_STATE : method.to) << method.name;
        }
    }
}

TEST(Exchange, SizeIsStoredWithoutABuffer) {
    Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE, {{"OPTIONS ", Ok()}});
    int32_t size = 4096;
    EXPECT_EQ(RTSPClientSendOptionsRequest(session.client, 0, nullptr, &size), 0);
    EXPECT_EQ(size, static_cast<int32_t>(sizeof "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n" - 1));
}

TEST(Exchange, UnusableRepliesAreRefused) {
    const struct {
        const char *name;
        Reply reply;
        int32_t code;
    } kReplies[] = {
        {"no reason phrase", SendBytes("RTSP/1.0 200\r\n\r\n"), RTSP_BAD_RESPONSE},
        {"no version", SendBytes("RTSP/1.0\r\n\r\n"), RTSP_BAD_RESPONSE},
        {"long version", SendBytes("RTSP/1.00 200 OK\r\n\r\n"), RTSP_BAD_RESPONSE},
        {"status 0", SendBytes("RTSP/1.0 0 OK\r\n\r\n"), RTSP_BAD_RESPONSE},
        {"CSeq 0", SendBytes("RTSP/1.0 200 OK\r\nCSeq: 0\r\n\r\n"), RTSP_BAD_RESPONSE},
        {"only line ends", SendBytes("\r\n\r\n"), RTSP_BAD_RESPONSE},
        {"a zero byte", SendBytes(std::string(1, '\0')), RTSP_BAD_RESPONSE},
        {"binary", SendBytes("\xff\xfe$\x01\x02 \x03"), RTSP_BAD_RESPONSE},
        {"closed", Close(), RTSP_NO_RESPONSE},
        {"reset", Reset(), RTSP_NO_RESPONSE},
    };
    for (const Method &method : kMethods) {
        for (const auto &row : kReplies) {
            Session session(DATA_PROTO_UDP, method.from, {{method.request, row.reply}});
            const int32_t before = ObservedState(session.client);
            ExpectRefusals({{row.name, [&] { return method.call(session.client, 0, nullptr, nullptr); }, row.code,
                             Exit(method, row.code == RTSP_BAD_RESPONSE
                                              ? " :Problem in parsing Response Message received from server \n"
                                              : " : No RTSP response received from server \n")}});
            EXPECT_EQ(ObservedState(session.client), before) << method.name << " " << row.name;
        }
    }
}

TEST(Exchange, HostileHeadersAreSurvived) {
    std::string many = "RTSP/1.0 200 OK\r\n";
    for (int i = 0; i < 200; ++i) many += "Header-" + std::to_string(i) + ": x\r\n";
    const std::string longId = "Session: " + std::string(30000, 'x') + "\r\n";
    for (const std::string &reply : {many + "\r\n", "RTSP/1.0 200 OK\r\n" + longId + "\r\n",
                                     std::string("RTSP/1.0 200 OK\r\nPublic:\r\n:\r\n::\r\nCSeq\r\n\r\n"),
                                     std::string("RTSP/1.0 200 OK\r\nA: b\0c: d\r\n\r\n", 32)}) {
        Session session(DATA_PROTO_UDP, CLIENT_INIT_STATE, {{"OPTIONS ", SendBytes(reply)}});
        EXPECT_EQ(session.Options(), 0);
    }
}

TEST(Exchange, OtherSessionsAreRefusedBeforeTheStatus) {
    for (const Method &method : kMethods) {
        if (method.from < CLIENT_READY_STATE || method.call == RTSPClientSendOptionsRequest) continue;
        Session session(DATA_PROTO_UDP, method.from,
                        {{method.request, Ok("Session: 87654321")},
                         {method.request, Status(454, "Session Not Found", "Session: 12345678x;timeout=60")},
                         {method.request, Ok("Session: 12345678 ")}});
        const std::size_t threads = CountThreads();
        const int32_t before = ObservedState(session.client);
        for (int i = 0; i < 3; ++i)
            ExpectRefusals({{method.name, [&] { return method.call(session.client, 0, nullptr, nullptr); },
                             RTSP_INVALID_SESSION, Exit(method, " : Invalid Session Id received from server \n")}});
        EXPECT_EQ(ObservedState(session.client), before);
        EXPECT_EQ(CountThreads(), threads);
    }
}
