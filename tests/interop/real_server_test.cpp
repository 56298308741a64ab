// Sessions with GStreamer's RTSP server: digest authentication, H.264 and PCMU, both ways to carry them.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <unistd.h>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

class RealServer : public testing::TestWithParam<DataProto> {
protected:
    void SetUp() override {
        client = RTSPClientCreate();
        ASSERT_EQ(RTSP_SUCCESS, RTPClientSetAudioVideoBufferSize(client, 4 << 20, 1 << 20));
    }
    void TearDown() override { RTSPClientDestroy(client); }

    int32_t Connect(const char *password) {
        return RTSPClientAutoRTSPConnect(client, "127.0.0.1", server.Port(), "demo", DemoServer::kUser, password,
                                         GetParam(), 0, 0, 0, 0, 0, nullptr, nullptr);
    }

    // Sessions that stay silent end after 4 seconds, and 5 of grace.
    DemoServer server{{"--log-reports", "--session-timeout", "4"}};
    intptr_t client = 0;
};

TEST_P(RealServer, DeliversEveryPacketInOrderAndPicturesThatDecode) {
    ASSERT_EQ(RTSP_SUCCESS, Connect(DemoServer::kPassword));
    ASSERT_EQ(2, RTSPClientGetNbStreams(client));
    StreamReader video(client, RTP_CODEC_H264);
    StreamReader audio(client, RTP_CODEC_PCMU);
    EXPECT_TRUE(audio.WaitForPackets(150, 20s));
    uint32_t ssrc = 0;
    EXPECT_EQ(RTSP_SUCCESS, RTSPClientGetSSRC(client, 1, &ssrc));
    EXPECT_NE(0U, ssrc);
    video.Stop();
    audio.Stop();
    EXPECT_EQ(RTSP_SUCCESS, RTSPClientSendTeardownRequest(client, 0, nullptr, nullptr));
    EXPECT_EQ(0, video.OutOfOrder());
    EXPECT_EQ(0, audio.OutOfOrder());
    EXPECT_EQ(0, video.Video().Malformed());
    const Decoded decoded = DecodeH264(video.Video().Stream());
    EXPECT_EQ("", decoded.errors);
    EXPECT_GE(decoded.pictures, 25);
    EXPECT_EQ(video.Video().Pictures(), decoded.pictures);
}

TEST_P(RealServer, PausesAndResumesWithMediaFlowing) {
    ASSERT_EQ(RTSP_SUCCESS, Connect(DemoServer::kPassword));
    StreamReader video(client, RTP_CODEC_H264);
    StreamReader audio(client, RTP_CODEC_PCMU);
    // The default range would seek back to the beginning, which a live source cannot do.
    const intptr_t onwards = RTSPCreateHeaderList();
    ASSERT_EQ(RTSP_SUCCESS, RTSPAddHeaderToList(onwards, "Range", "npt=now-", 0));
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(video.WaitForPackets(video.Packets() + 50, 20s));
        ASSERT_EQ(RTSP_SUCCESS, RTSPClientSendPauseRequest(client, 0, 0, nullptr, nullptr));
        std::this_thread::sleep_for(300ms); // what was under way
        const int atRest = video.Packets() + audio.Packets();
        std::this_thread::sleep_for(500ms);
        EXPECT_EQ(atRest, video.Packets() + audio.Packets());
        ASSERT_EQ(RTSP_SUCCESS, RTSPClientSendPlayRequest(client, 0, onwards, nullptr, nullptr));
        EXPECT_TRUE(audio.WaitForPackets(audio.Packets() + 20, 20s));
    }
    video.Stop();
    audio.Stop();
    EXPECT_EQ(RTSP_SUCCESS, RTSPDestroyHeaderList(onwards));
    EXPECT_EQ(RTSP_SUCCESS, RTSPClientSendTeardownRequest(client, 0, nullptr, nullptr));
}

// Whether a line of the server's log shows our host and a sequence number that the reader has seen.
bool WasReported(const std::string &log, int stream, const StreamReader &reader) {
    char host[28] = {};
    gethostname(host, sizeof host - 1);
    const auto received = static_cast<uint16_t>(reader.LastSequence() - reader.FirstSequence());
    bool found = false;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        char cname[64] = {};
        unsigned number = 0;
        const std::string form =
            "report stream=" + std::to_string(stream) + " ssrc=%*x cname=%63s extended-sequence=%u lost=0";
        if (std::sscanf(line.c_str(), form.c_str(), cname, &number) != 2 || std::string(cname) != host) continue;
        found = found || static_cast<uint16_t>(number - reader.FirstSequence()) <= received;
    }
    return found;
}

TEST_P(RealServer, TakesOurReportsAndKeepsTheSessionForThem) {
    ASSERT_EQ(RTSP_SUCCESS, Connect(DemoServer::kPassword));
    StreamReader video(client, RTP_CODEC_H264);
    StreamReader audio(client, RTP_CODEC_PCMU);
    std::this_thread::sleep_for(12s);
    EXPECT_TRUE(video.WaitForPackets(video.Packets() + 20, 2s));
    video.Stop();
    audio.Stop();
    const std::string log = server.Stop();
    EXPECT_TRUE(WasReported(log, 0, video)) << log;
    EXPECT_TRUE(WasReported(log, 1, audio)) << log;
}

TEST_P(RealServer, RefusesAWrongPassword) { EXPECT_EQ(RTSP_SEND_FAILED, Connect("a-stopped-clock")); }

INSTANTIATE_TEST_SUITE_P(Transport, RealServer, testing::Values(DATA_PROTO_UDP, DATA_PROTO_TCP),
                         [](const auto &test) { return test.param == DATA_PROTO_UDP ? "Udp" : "Tcp"; });

} // namespace
} // namespace rtsptap::test
