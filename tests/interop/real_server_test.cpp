// Sessions with GStreamer's RTSP server: digest authentication, H.264 and PCMU, both ways to carry them.
#include "tests/interop/peers.h"
#include "tests/support/client.h"
#include "tests/support/texts.h"

#include <gtest/gtest.h>

#include <map>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

// Takes what comes to both streams for so long, each packet behind its predecessor; how many there were.
int TakeFor(intptr_t client, std::chrono::milliseconds time) {
    int packets = 0;
    std::map<int32_t, uint16_t> next;
    for (const auto end = std::chrono::steady_clock::now() + time; std::chrono::steady_clock::now() < end;) {
        for (const int32_t codec : {RTP_CODEC_H264, RTP_CODEC_PCMU}) {
            RTPStreamData *packet = nullptr;
            if (RTPClientGetNbOfPktInBuffer(client, codec) < 1) continue;
            EXPECT_EQ(RTSP_SUCCESS, RTPClientGetRTPStreamData(client, &packet, codec));
            const uint16_t number = packet->rtpHeader->sequenceNumber;
            EXPECT_EQ(number, next.try_emplace(codec, number).first->second);
            next[codec] = static_cast<uint16_t>(number + 1);
            EXPECT_EQ(RTSP_SUCCESS, RTPClientFreeRTPStreamData(client, packet, codec));
            ++packets;
        }
        std::this_thread::sleep_for(1ms);
    }
    return packets;
}

class RealServer : public testing::TestWithParam<DataProto> {};

TEST_P(RealServer, KeepsTheSessionForOurReportsLosesNothingPausesAndResumes) {
    const GstServer server;
    Client client(4 << 20);
    ASSERT_EQ(RTSP_SUCCESS,
              RTSPClientAutoRTSPConnect(client, "127.0.0.1", server.Port(), "demo", GstServer::kUser,
                                        GstServer::kPassword, GetParam(), 0, 0, 0, 0, 0, nullptr, nullptr));
    EXPECT_EQ(2, RTSPClientGetNbStreams(client));
    EXPECT_GT(TakeFor(client, 12s), 1000);
    ASSERT_EQ(RTSP_SUCCESS, client.Pause());
    TakeFor(client, 300ms); // what was under way
    EXPECT_EQ(0, TakeFor(client, 500ms));
    // The default range would seek back to the beginning, which a live source cannot do.
    const intptr_t onwards = RTSPCreateHeaderList();
    ASSERT_EQ(RTSP_SUCCESS, RTSPAddHeaderToList(onwards, "Range", "npt=now-", 0));
    ASSERT_EQ(RTSP_SUCCESS, RTSPClientSendPlayRequest(client, 0, onwards, nullptr, nullptr));
    EXPECT_EQ(RTSP_SUCCESS, RTSPDestroyHeaderList(onwards));
    EXPECT_GT(TakeFor(client, 2s), 100);
    EXPECT_EQ(RTSP_SUCCESS, client.Teardown());
    EXPECT_EQ(RTSP_SUCCESS, client.Destroy());
}

TEST_P(RealServer, IsOpenedByItsUrlOverIpv6) {
    const GstServer server({GST_SERVER, GstServer::kUser, GstServer::kPassword, "4", "::1"});
    Client client(4 << 20);
    const bool isTcp = GetParam() == DATA_PROTO_TCP;
    ASSERT_EQ(RTSP_SUCCESS, RTSPTapSetOption(client, RTSPTAP_OPTION_TRANSPORT,
                                             isTcp ? RTSPTAP_TRANSPORT_TCP : RTSPTAP_TRANSPORT_AUTOMATIC));
    std::string url = server.Url();
    url.replace(url.find("127.0.0.1"), 9, "[::1]");
    ASSERT_EQ(RTSP_SUCCESS, RTSPTapOpen(client, url.c_str()));
    ASSERT_EQ(RTSP_SUCCESS, RTSPTapStart(client, nullptr, nullptr));
    int64_t used = 0;
    EXPECT_EQ(RTSP_SUCCESS, RTSPTapGetOption(client, RTSPTAP_OPTION_TRANSPORT_USED, &used));
    EXPECT_EQ(isTcp ? RTSPTAP_TRANSPORT_TCP : RTSPTAP_TRANSPORT_UDP, used);
    EXPECT_GT(TakeFor(client, 10s), 800); // reports keep the session
    EXPECT_EQ(RTSP_SUCCESS, client.Teardown());
}

// Both streams, by number, until a signal handler calls the readers off.
TEST(Examples, TakePackets) {
    ChildProcess demo({DEMO_SERVER, "--seconds", "60"});
    const std::string url = demo.ReadLine(20s);
    const Result run =
        RunToEnd(TAKE_PACKETS " 127.0.0.1 " + std::to_string(std::atoi(&url[url.rfind(':') + 1])) +
                 url.substr(url.rfind('/')).replace(0, 1, " ") + " 2 | grep ' packets, then: interrupted'");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(CountOf(run.output, "stream "), 2u) << run.output;
    EXPECT_FALSE(Contains(run.output, ": 0 packets")) << run.output;
}

TEST(RealServers, ServeExamplesThatHaveALoopOfTheirOwn) {
    ChildProcess demo({DEMO_SERVER, "--seconds", "60"});
    const std::string url = demo.ReadLine(20s);
    std::istringstream programs(LOOP_EXAMPLES);
    for (std::string program; programs >> program;) {
        const bool isGroup = Contains(program, "group_client");
        const Result run =
            RunToEnd(program + (isGroup ? " 2 " + url + " " + url : " " + url + " 2") + " | grep packets");
        EXPECT_EQ(run.status, 0) << program;
        EXPECT_EQ(CountOf(run.output, " packets"), Contains(program, "uv") || Contains(program, "glib") ? 1u : 2u)
            << run.output;
        EXPECT_FALSE(Contains(run.output, ": 0 packets") || run.output.starts_with("0 ")) << run.output;
    }
}

// Of two cameras with one clock the one behind the slow network is late by what that delays.
TEST(Examples, AlignStreams) {
    ChildProcess demo({DEMO_SERVER, "--seconds", "60"});
    ChildProcess other({DEMO_SERVER, "--seconds", "60"});
    const std::string url = demo.ReadLine(20s);
    std::string slow = other.ReadLine(20s);
    const std::string port = std::to_string(std::atoi(&slow[slow.rfind(':') + 1]));
    ChildProcess relay({RELAY, "--rtsp", "127.0.0.1:" + port, "--delay", "300", "--drift", "2000"});
    const std::string line = relay.ReadLine(20s);
    slow.replace(slow.rfind(':') + 1, port.size(), line.substr(line.rfind(' ') + 1));
    const Result run = RunToEnd(ALIGN_STREAMS " " + url.substr(url.find("rtsp")) + " " +
                                slow.substr(slow.find("rtsp")) + " 3 | grep '^hold'");
    EXPECT_EQ(run.output.find("hold camera 1 back by 3"), 0U) << run.output << run.errors;
}

INSTANTIATE_TEST_SUITE_P(Transport, RealServer, testing::Values(DATA_PROTO_UDP, DATA_PROTO_TCP),
                         [](const auto &test) { return test.param == DATA_PROTO_UDP ? "Udp" : "Tcp"; });

} // namespace
} // namespace rtsptap::test
