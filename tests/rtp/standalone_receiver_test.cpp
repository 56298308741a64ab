#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

namespace {

struct Start {
    int32_t flag = 0;
    int32_t video = RTP_CODEC_H264;
    uint16_t videoPort = 0;
    int32_t videoBytes = 100000;
    int32_t audio = RTP_CODEC_PCMU;
    uint16_t audioPort = 0;
    int32_t audioBytes = 100000;
};

int32_t Begin(intptr_t client, const Start &with) {
    return StartThirdPartyClient(client, with.flag, with.video, with.videoPort, with.videoBytes, with.audio,
                                 with.audioPort, with.audioBytes, 0, 0, 0);
}

uint16_t FreePort() { return UdpPeer().Port(); } // was free a moment ago

} // namespace

TEST(StandaloneReceiver, StreamsOfASessionTornDownDoNotHideItsOwn) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}});
    session.SendNumbers(1, Numbers(1, 1));
    RTPStreamData *const held = TakePacket(session.client, kVideo);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(session.Teardown(), 0);
    const uint16_t port = FreePort();
    EXPECT_EQ(Begin(session.client, {.flag = 1, .videoPort = port}), 0);
    UdpPeer().SendTo(port, Rtp(10));
    EXPECT_EQ(session.Video(1), Numbers(10, 10));
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, held, kVideo), 0);
}

TEST(StandaloneReceiver, ArgumentsAreCheckedInOrder) {
    const Client client;
    const UdpPeer taken;
    const std::string argument = " :Invalid Input Arguments\n";
    const std::string video = " : Video port or Codec name invalid\n";
    const std::string audio = " :Audio port or Codec name invalid\n";
    Refusals refused("StartThirdPartyClient");
    refused(Begin(0, {.flag = 1}), -99, argument);
    refused(Begin(client, {.flag = 1, .videoPort = 5, .videoBytes = 0}), -99, video);
    refused(Begin(client, {.flag = 2, .audio = 206, .audioPort = 5}), -99, audio);
    refused(Begin(client, {.flag = 3, .videoPort = 5}), -99, " : TS port or TS name invalid\n");
    refused(Begin(1, {.flag = 1, .videoPort = 5}), -99, " :Invalid client handle\n");
    refused(Begin(client, {.flag = 4, .audioPort = 5}), -99, video); // Kept: checked like 0
    refused(Begin(client, {.flag = 1, .videoPort = taken.Port()}), -1, " :Unable to create RTP Stream\n");
    refused(Begin(client, {.flag = 3, .video = 103, .videoPort = taken.Port()}), 0, ""); // Kept
    refused(Begin(client, {.flag = 4, .videoPort = 5, .audioPort = 5}), 0, "");          // Kept: creates no stream
    Refusals streamRefused("CreateRTPStream");
    streamRefused(CreateRTPStream(0, kVideo, 5, 1), -99, argument);
    streamRefused(CreateRTPStream(client, kVideo, taken.Port(), 1), -1, " :Unable to bind on specified port \n");
    // Another port works after all those, and its stream is the one that is found.
    const uint16_t port = FreePort();
    EXPECT_EQ(Begin(client, {.flag = 3, .video = RTP_CODEC_MP2T, .videoPort = port}), 0);
    UdpPeer().SendTo(port, Bytes(RtpPacket{.payloadType = 33, .sequenceNumber = 5}));
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_MP2T, 1), Numbers(5, 5));
}
