// Sessions with GStreamer's RTSP server: digest authentication, H.264 and PCMU, both ways to carry them.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>

#include <regex>
#include <unistd.h>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

class RealServer : public testing::TestWithParam<DataProto> {
protected:
    void SetUp() override {
        client = RTSPClientCreate();
        ASSERT_EQ(RTSP_SUCCESS, RTPClientSetAudioVideoBufferSize(client, 4 << 20, 1 << 20));
        ASSERT_EQ(RTSP_SUCCESS,
                  RTSPClientAutoRTSPConnect(client, "127.0.0.1", server.Port(), "demo", DemoServer::kUser,
                                            DemoServer::kPassword, GetParam(), 0, 0, 0, 0, 0, nullptr, nullptr));
    }
    void TearDown() override { RTSPClientDestroy(client); }

    DemoServer server;
    intptr_t client = 0;
};

TEST_P(RealServer, DeliversEveryPacketInOrderAndPicturesThatDecode) {
    ASSERT_EQ(2, RTSPClientGetNbStreams(client));
    StreamReader video(client, RTP_CODEC_H264);
    StreamReader audio(client, RTP_CODEC_PCMU);
    EXPECT_TRUE(audio.WaitForPackets(150, 20s));
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

TEST_P(RealServer, KeepsTheSessionForOurReportsAndPausesAndResumes) {
    StreamReader video(client, RTP_CODEC_H264);
    StreamReader audio(client, RTP_CODEC_PCMU);
    // The default range would seek back to the beginning, which a live source cannot do.
    const intptr_t onwards = RTSPCreateHeaderList();
    ASSERT_EQ(RTSP_SUCCESS, RTSPAddHeaderToList(onwards, "Range", "npt=now-", 0));
    std::this_thread::sleep_for(12s);
    EXPECT_TRUE(video.WaitForPackets(video.Packets() + 20, 2s));
    ASSERT_EQ(RTSP_SUCCESS, RTSPClientSendPauseRequest(client, 0, 0, nullptr, nullptr));
    std::this_thread::sleep_for(300ms); // what was under way
    const int atRest = video.Packets() + audio.Packets();
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(atRest, video.Packets() + audio.Packets());
    ASSERT_EQ(RTSP_SUCCESS, RTSPClientSendPlayRequest(client, 0, onwards, nullptr, nullptr));
    EXPECT_EQ(RTSP_SUCCESS, RTSPDestroyHeaderList(onwards));
    EXPECT_TRUE(video.WaitForPackets(video.Packets() + 20, 20s));
    EXPECT_TRUE(audio.WaitForPackets(audio.Packets() + 20, 20s));
    video.Stop();
    audio.Stop();
    const std::string log = server.Stop();
    char host[28] = {};
    gethostname(host, sizeof host - 1);
    for (const char *stream : {"0", "1"}) {
        const std::string line = std::string("report stream=") + stream + " ssrc=\\w+ cname=" + host;
        EXPECT_TRUE(std::regex_search(log, std::regex(line + " extended-sequence=[0-9]+ lost=0"))) << log;
    }
}

INSTANTIATE_TEST_SUITE_P(Transport, RealServer, testing::Values(DATA_PROTO_UDP, DATA_PROTO_TCP),
                         [](const auto &test) { return test.param == DATA_PROTO_UDP ? "Udp" : "Tcp"; });

} // namespace
} // namespace rtsptap::test
