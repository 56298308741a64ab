// The standalone receiver against plain RTP senders: FFmpeg and GStreamer, H.264 and PCMU.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

struct Sender {
    const char *name;
    int32_t codecType;
    std::string command; // the port is added
};

const Sender kSenders[] = {
    {"FfmpegH264", RTP_CODEC_H264,
     "ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=size=320x240:rate=25 -pix_fmt yuv420p -c:v libx264 "
     "-profile:v baseline -tune zerolatency -g 25 -f rtp rtp://127.0.0.1:"},
    {"GstreamerH264", RTP_CODEC_H264,
     "gst-launch-1.0 -q videotestsrc is-live=true ! video/x-raw,width=320,height=240,framerate=25/1 ! x264enc "
     "tune=zerolatency key-int-max=25 ! video/x-h264,profile=constrained-baseline ! rtph264pay config-interval=1 "
     "pt=96 ! udpsink host=127.0.0.1 port="},
    {"FfmpegPcmu", RTP_CODEC_PCMU,
     "ffmpeg -nostdin -v error -re -f lavfi -i sine=frequency=440:sample_rate=8000 -c:a pcm_mulaw -f rtp "
     "rtp://127.0.0.1:"},
};

// A tone has loud and quiet samples; both sides of zero take part.
bool SoundsLikeATone(const std::vector<uint8_t> &muLaw) {
    int positive = 0;
    for (const uint8_t sample : muLaw) positive += sample >> 7;
    const auto total = static_cast<int>(muLaw.size());
    return total > 0 && positive > total / 4 && positive < total * 3 / 4;
}

class RealSender : public testing::TestWithParam<Sender> {};

TEST_P(RealSender, IsReceivedInOrderAndMakesSense) {
    const uint16_t port = FreeUdpPort();
    const bool isVideo = GetParam().codecType == RTP_CODEC_H264;
    const intptr_t client = RTSPClientCreate();
    ASSERT_EQ(RTSP_SUCCESS, StartThirdPartyClient(client, isVideo ? 1 : 2, GetParam().codecType, port, 4 << 20,
                                                  GetParam().codecType, port, 1 << 20, 0, 0, 0));
    {
        StreamReader reader(client, GetParam().codecType);
        ChildProcess sender(Shell(GetParam().command + std::to_string(port)));
        EXPECT_TRUE(reader.WaitForPackets(isVideo ? 100 : 40, 30s));
        reader.Stop();
        EXPECT_EQ(0, reader.OutOfOrder());
        const Decoded decoded = isVideo ? DecodeH264(reader.Video().Stream()) : Decoded{};
        EXPECT_EQ("", decoded.errors);
        EXPECT_EQ(reader.Video().Pictures(), decoded.pictures);
        EXPECT_TRUE(isVideo ? decoded.pictures > 5 : SoundsLikeATone(reader.Payloads()));
    }
    EXPECT_EQ(RTSP_SUCCESS, RTSPClientDestroy(client));
}

INSTANTIATE_TEST_SUITE_P(Program, RealSender, testing::ValuesIn(kSenders),
                         [](const auto &test) { return test.param.name; });

} // namespace
} // namespace rtsptap::test
