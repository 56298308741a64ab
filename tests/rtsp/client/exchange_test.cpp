// What the six methods share: checks and their order, the caller's buffer. What replies lead to: tests/hostile.
#include "rtsptap_extended.h"
#include "tests/support/methods.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace rtsptap::test;

namespace {

bool Is(const Method &method, const char *name) { return std::string(method.name) == name; }

std::string BadState(const Method &method) {
    return std::string(Is(method, "TEARDOWN") ? " : " : " :") + "Client State is Not Valid for " + method.name +
           " Method.\n";
}

std::string BadList(const Method &method) {
    const std::string name = Is(method, "TEARDOWN") ? "TearDown" : method.word;
    return " :HeaderList of " + name + " method is not valid\n";
}

std::string Request(const Method &method) { return method.name + std::string(" {base}"); }

int32_t Observed(RTSPClientState next) { // as ObservedState tells it
    if (next == CLIENT_INIT_STATE) return RTSP_NOT_CONNECTED;
    return next == CLIENT_OPTIONS_SENT_STATE ? CLIENT_INIT_STATE : next;
}

Reply Success(const Method &method) { return Is(method, "DESCRIBE") ? WithBody(kDescription) : Ok(); }

void ExpectCall(const Method &method, intptr_t client, int32_t code, const std::string &text, intptr_t list = 0,
                char *buffer = nullptr, int32_t *size = nullptr) {
    Refusals refused("RTSPClientSend" + std::string(method.word) + "Request");
    refused(method.call(client, list, buffer, size), code, text);
}

TEST(Exchange, TheReplyThatMadeAMethodFailCanBeRead) {
    const std::string notFound = "RTSP/1.0 404 Not Found\r\nCSeq: 1\r\nServer: x\r\n\r\n";
    Session session(kUdp, CLIENT_INIT_STATE, {{"DESCRIBE ", SendBytes(notFound)}, {"DESCRIBE ", Close()}});
    const auto lastReply = [&session](int32_t room, std::string &text) {
        text.assign(512, '#');
        const int32_t result = RTSPClientGetLastReply(session.client, text.data(), &room);
        text.resize(static_cast<std::size_t>(room));
        return result;
    };
    std::string reply;
    EXPECT_EQ(lastReply(512, reply), RTSP_FAILURE);
    EXPECT_EQ(session.Describe(), RTSP_CLIENT_ERROR);
    EXPECT_EQ(lastReply(10, reply), RTSP_SMALL_BUFFER);
    EXPECT_EQ(lastReply(static_cast<int32_t>(reply.size()), reply), RTSP_SUCCESS);
    EXPECT_EQ(reply, notFound);
    EXPECT_EQ(session.Describe(), RTSP_NO_RESPONSE);
    EXPECT_EQ(lastReply(512, reply), RTSP_FAILURE);
}

TEST(Exchange, AProgramMayAnswerChallengesItselfAndChooseAnotherTransportUntilOneIsSetUp) {
    const Script further = {
        {{"DESCRIBE ", "!Authorization"}, Status(401, "?", "WWW-Authenticate: Basic realm=\"r\"")},
        {{"DESCRIBE ", "!Authorization"}, WithBody(kDescription)},
        {{"SETUP ", "interleaved=0-1"}, Ok("Session: {session}")}};
    Session session(kUdp, CLIENT_INIT_STATE, further);
    EXPECT_EQ(session.Describe(), RTSP_UNAUTHORIZED);
    EXPECT_EQ(RTSPTapForgetChallenge(session.client), RTSP_SUCCESS);
    EXPECT_EQ(session.Describe(), RTSP_SUCCESS);
    EXPECT_EQ(RTSPTapSetDataProto(session.client, kTcp), RTSP_SUCCESS);
    EXPECT_EQ(session.Setup(1), RTSP_SUCCESS);
    EXPECT_EQ(RTSPTapSetDataProto(session.client, kUdp), RTSP_INVALID_STATE);
}

} // namespace

TEST(Exchange, MethodsAreRefusedOutsideTheirStates) {
    const HeaderList unknown({{"X-Unknown", "1"}}); // refused after the state, so that nothing is ever sent
    for (int state = CLIENT_INIT_STATE; state <= CLIENT_PAUSE_STATE; ++state) {
        Session session(kUdp, static_cast<RTSPClientState>(state));
        for (const Method &method : kMethods) {
            const bool allowed = std::count(method.allowedStates.begin(), method.allowedStates.end(), state) > 0;
            ExpectCall(method, session.client, allowed ? -96 : -84, allowed ? BadList(method) : BadState(method),
                       unknown);
        }
    }
}

TEST(Exchange, RawReplyGoesToTheCallerWithoutATerminatorIfItFits) {
    for (const Method &method : kMethods) {
        for (const int32_t capacity : {4096, 10, 0, -1}) {
            Session session(kUdp, method.from, {{Request(method), Success(method)}});
            std::string buffer(4096, '#');
            int32_t size = capacity;
            const bool fits = capacity == 4096;
            ExpectCall(method, session.client, fits ? 0 : RTSP_SMALL_BUFFER,
                       fits ? "" : " :Small Buffer received from Application for Response\n", 0, buffer.data(),
                       &size);
            EXPECT_EQ(buffer.starts_with("RTSP/1.0 200 OK\r\nCSeq: "), fits) << method.name;
            EXPECT_EQ(buffer.find('#'), fits ? static_cast<std::size_t>(size) : 0) << method.name;
            EXPECT_GT(size, 20) << method.name;
            // The state has moved all the same, but DESCRIBE looks at the buffer before anything else.
            const bool moved = fits || !Is(method, "DESCRIBE");
            EXPECT_EQ(ObservedState(session.client), moved ? Observed(method.next) : 0) << method.name;
        }
    }
}
