#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/request.h"
#include "rtsp/message/request_build.h"
#include "rtsp/message/request_send.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <poll.h>
#include <unistd.h>

using namespace rtsptap;
using test::HeaderList;

namespace {

constexpr intptr_t kNoList = 0;

// A connected client with two streams, the first with a control URL; what it sends arrives at `peer`.
struct Connected {
    Connected() {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) std::abort();
        client.rtspSocket = fds[0];
        peer = fds[1];
        std::strcpy(client.serverIp, "10.0.0.5");
        client.serverPort = 554;
        std::strcpy(client.sessionName, "live");
        std::strcpy(first.controlUrl, "rtsp://cam/v");
        first.next = &second;
        client.streamList = &first;
        client.streamCount = 2;
    }
    ~Connected() {
        close(client.rtspSocket);
        if (peer >= 0) close(peer);
    }
    int32_t Send(RequestMsg *request) {
        client.requestMsg = request;
        const int32_t result = SendRequestMessage(&client);
        client.requestMsg = nullptr;
        return result;
    }
    // The request on the wire, its line ends written as '|', or "none".
    std::string Exchange(uint32_t method, int32_t stream, intptr_t userList = kNoList) {
        const RequestMsgPtr request(GenerateRequestMessage(&client, method, userList, stream));
        if (!request || Send(request.get()) != 0) return "none";
        char bytes[8192];
        std::string text(bytes, static_cast<size_t>(read(peer, bytes, sizeof bytes)));
        for (size_t at; (at = text.find("\r\n")) != text.npos;) text.replace(at, 2, "|");
        return text;
    }

    RTSPClient client{};
    RTSPStreamInfo first, second;
    int peer = -1;
};

} // namespace

TEST(Request, UserHeadersReplaceDefaultsInPlaceAndTheOthersFollow) {
    const HeaderList setup({{"Transport", "RTP/AVP"}, {"Session", "7"}, {"User-Agent", "X"}}), empty({});
    const HeaderList play({{"CSeq", "9"}, {"X-Own", "a"}, {"Range", "npt=5-"}, {"range", "b"}, {"X-Too", "c"}});
    const struct {
        uint32_t method;
        int32_t stream;
        intptr_t userList;
        std::string requestLine, headers; // what varies
    } cases[] = {
        {RTSP_DESCRIBE, 0, empty, "DESCRIBE rtsp://10.0.0.5:554/live", "Rtp Rtsp Client|Accept: application/sdp|"},
        {RTSP_SETUP, 0, setup, "SETUP rtsp://cam/v", "X|Session: 7|Transport: RTP/AVP|"},
        {RTSP_SETUP, 1, kNoList, "SETUP rtsp://10.0.0.5:554/live/trackID=1", "Rtp Rtsp Client|Session: |"},
        {RTSP_PLAY, 0, play, "PLAY rtsp://cam/v",
         "Rtp Rtsp Client|Range: npt=5-|Session: |CSeq: 9|X-Own: a|range: b|X-Too: c|"},
    };
    for (const auto &[method, stream, userList, requestLine, headers] : cases) {
        Connected session;
        for (const char *cSeq : {"1", "2"}) // the same list serves the next request
            EXPECT_EQ(session.Exchange(method, stream, userList),
                      requestLine + " RTSP/1.0|CSeq: " + cSeq + "|User-Agent: " + headers + "|");
    }
}

TEST(Request, HeaderNumber33IsRefusedAndTheRestIsSent) {
    Connected session;
    const HeaderList list({});
    for (int i = 0; i < 31; ++i) RTSPAddHeaderToList(list, ("X" + std::to_string(i)).c_str(), "v", 1);
    CapturedStdout output;
    const std::string text = session.Exchange(RTSP_OPTIONS, 0, list);
    EXPECT_TRUE(text.ends_with("|X28: v|X29: v||")) << text;
    EXPECT_NE(output.Text().find("Request Message already has maximum number of messages\n"), std::string::npos);
}

TEST(Request, ReplacementThatFailsIsReportedWithUserAgentAndEndsTheHeaders) {
    const struct {
        const char *name;
        const char *text;
        uint32_t headers;
    } cases[] = {
        {"User-Agent", "Occurred while Adding ", 1},
        {"Range", "Occured while Adding user given 'Range' ", 2},
        {"Session", "Occured while Adding user given 'Session' ", 3},
    };
    for (const auto &[name, text, headers] : cases) {
        Connected session;
        RTSPHeaderStruct withoutValue;
        withoutValue.headerName = const_cast<char *>(name);
        CapturedStdout output;
        const RequestMsgPtr request(
            GenerateRequestMessage(&session.client, RTSP_PLAY, reinterpret_cast<intptr_t>(&withoutValue), -1));
        ASSERT_TRUE(request);
        EXPECT_EQ(request->headerCount, headers) << name;
        EXPECT_EQ(withoutValue.isUsed, 0) << name;
        EXPECT_TRUE(output.Text().ends_with("!!!ERROR!!! : \tEXIT : GenerateRequestMessage :Problem " +
                                            std::string(text) + "Request Header User-Agent\n"))
            << output.Text();
    }
}

TEST(Request, BadArgumentsAndUnknownMethodsGiveNone) {
    Connected session;
    const CapturedStdout output;
    EXPECT_EQ(GenerateRequestMessage(&session.client, 9, kNoList, 0), nullptr);
    EXPECT_EQ(GenerateRequestMessage(&session.client, RTSP_PLAY, kNoList, 3), nullptr);
    EXPECT_EQ(session.client.cSeq, 0u);
    for (uint32_t method = 6; method < 9; ++method)
        EXPECT_EQ(GenerateRequestMessage(&session.client, method, kNoList, 0), nullptr);
    EXPECT_EQ(session.client.cSeq, 3u);
    // A number just past the last stream passes the check and finds no stream.
    EXPECT_TRUE(session.Exchange(RTSP_PLAY, 2).starts_with("PLAY rtsp://10.0.0.5:554/live/trackID=2 "));
}

TEST(Request, SendingTellsABadRequestFromARefusingSocket) {
    Connected session;
    const RequestMsgPtr request = CreateRequestMsg(RTSP_GET_PARAMETER);
    const CapturedStdout output;
    EXPECT_EQ(session.Send(request.get()), -1);
    request->method = RTSP_PLAY;
    close(std::exchange(session.peer, -1));
    EXPECT_EQ(session.Send(request.get()), RTSP_SEND_FAILED); // and no SIGPIPE
}

TEST(Request, SendingWaitsForAReportThatIsBeingSent) {
    Connected session;
    pollfd arrival{session.peer, POLLIN, 0};
    MutexLock(&session.client.sendLock);
    auto text = std::async(std::launch::async, [&] { return session.Exchange(RTSP_OPTIONS, 0); });
    EXPECT_EQ(poll(&arrival, 1, 50), 0);
    MutexUnlock(&session.client.sendLock);
    EXPECT_TRUE(text.get().starts_with("OPTIONS "));
}
