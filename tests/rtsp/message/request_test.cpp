// The requests of a whole session, byte for byte: tests/rtsp/client/connection_test.cpp.
#include "rtsp/client/client.h"
#include "rtsp/message/request.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <future>

using namespace rtsptap;
using namespace rtsptap::test;

TEST(Request, HeaderNumber33IsRefusedAndTheRestIsSent) {
    const HeaderList list({});
    for (int i = 0; i < 31; ++i) RTSPAddHeaderToList(list, ("X" + std::to_string(i)).c_str(), "v", 1);
    const Session session(kUdp, CLIENT_INIT_STATE, {{"\r\nX28: v\r\nX29: v\r\n\r\n", Ok()}});
    CapturedStdout output;
    EXPECT_EQ(RTSPClientSendOptionsRequest(session.client, list, nullptr, nullptr), 0);
    EXPECT_EQ(CountOf(output.Text(), "Request Message already has maximum number of messages\n"), 1U);
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
        RTSPClient client;
        RTSPHeaderStruct withoutValue;
        withoutValue.headerName = const_cast<char *>(name);
        CapturedStdout output;
        const RequestMsgPtr request(
            GenerateRequestMessage(&client, RTSP_PLAY, reinterpret_cast<intptr_t>(&withoutValue), -1));
        ASSERT_TRUE(request);
        EXPECT_EQ(request->headerCount, headers) << name;
        EXPECT_EQ(withoutValue.isUsed, 0) << name;
        EXPECT_TRUE(output.Text().ends_with("!!!ERROR!!! : \tEXIT : GenerateRequestMessage :Problem " +
                                            std::string(text) + "Request Header User-Agent\n"))
            << output.Text();
    }
}

TEST(Request, BadArgumentsAndUnknownMethodsGiveNone) {
    RTSPClient client;
    const CapturedStdout output;
    EXPECT_EQ(GenerateRequestMessage(&client, 9, 0, 0), nullptr);
    EXPECT_EQ(GenerateRequestMessage(&client, RTSP_PLAY, 0, 3), nullptr);
    EXPECT_EQ(client.cSeq, 0u);
    for (uint32_t method = 6; method < 9; ++method)
        EXPECT_EQ(GenerateRequestMessage(&client, method, 0, 0), nullptr);
    EXPECT_EQ(client.cSeq, 3u);
}

TEST(Request, SendingWaitsForAReportThatIsBeingSent) {
    Session session(kTcp, CLIENT_PLAYING_STATE, {{"OPTIONS ", Ok()}});
    pthread_mutex_t &sendLock = reinterpret_cast<RTSPClient *>(static_cast<intptr_t>(session.client))->sendLock;
    MutexLock(&sendLock);
    auto result = std::async(std::launch::async, [&] { return session.Options(); });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(session.server.Requests().size(), 4U);
    MutexUnlock(&sendLock);
    EXPECT_EQ(result.get(), 0);
}
