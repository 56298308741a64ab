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
    int32_t target = 0, underflow = 0, overflow = 0;
};

int32_t Begin(intptr_t client, const Start &with) {
    return StartThirdPartyClient(client, with.flag, with.video, with.videoPort, with.videoBytes, with.audio,
                                 with.audioPort, with.audioBytes, with.target, with.underflow, with.overflow);
}

uint16_t FreePort() { return UdpPeer().Port(); } // was free a moment ago

} // namespace

TEST(StandaloneReceiver, DeliversBothMediaUntilDestroy) {
    const std::size_t threads = CountThreads();
    const std::size_t descriptors = CountDescriptors();
    const uint16_t videoPort = FreePort();
    const uint16_t audioPort = FreePort();
    Client client;
    EXPECT_EQ(Begin(client, {.videoPort = videoPort, .audioPort = audioPort}), 0);
    {
        const UdpPeer sender;
        for (const uint16_t number : std::vector<uint16_t>{10, 12, 11}) sender.SendTo(videoPort, Rtp(number));
        ASSERT_TRUE(Eventually([&] { return RTPClientGetNbOfPktInBuffer(client, RTP_CODEC_H264) == 3; }));
        sender.SendTo(audioPort, Bytes(RtpPacket{.payloadType = 0, .sequenceNumber = 7}));
    }
    EXPECT_EQ(RTPClientGetStreamPktCount(client, RTP_CODEC_H264), 1); // no connect has set the counter
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_H264, 3), Numbers(10, 12));
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_PCMU, 1), Numbers(7, 7));
    EXPECT_EQ(CountThreads(), threads + 2);
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(client.Destroy(), 0); }), 2);
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(UdpPeer(videoPort).Port(), videoPort);
}

TEST(StandaloneReceiver, ArgumentsAreCheckedInOrder) {
    const Client client;
    const UdpPeer taken;
    const auto begin = [&](intptr_t handle, const Start &with) { return [=] { return Begin(handle, with); }; };
    const std::string name = "EXIT : StartThirdPartyClient ";
    const std::string video = name + ": Video port or Codec name invalid\n";
    const std::string audio = name + ":Audio port or Codec name invalid\n";
    const std::string ts = name + ": TS port or TS name invalid\n";
    const std::string noStream = name + ":Unable to create RTP Stream\n";
    ExpectRefusals({
        {"null handle", begin(0, {.flag = 1}), -99, name + ":Invalid Input Arguments\n"},
        {"video port 0", begin(client, {.flag = 1}), -99, video},
        {"TS as video", begin(client, {.flag = 1, .video = 103, .videoPort = 5}), -99, video},
        {"no video buffer", begin(client, {.flag = 1, .videoPort = 5, .videoBytes = 0}), -99, video},
        {"codec below audio", begin(client, {.flag = 2, .audio = 199, .audioPort = 5}), -99, audio},
        {"codec above audio", begin(client, {.flag = 2, .audio = 206, .audioPort = 5}), -99, audio},
        {"no audio buffer", begin(client, {.flag = 2, .audioPort = 5, .audioBytes = 0}), -99, audio},
        {"video as TS", begin(client, {.flag = 3, .videoPort = 5}), -99, ts},
        {"both, audio port 0", begin(client, {.videoPort = 5}), -99, audio},
        {"flag 4 checks both", begin(client, {.flag = 4, .audioPort = 5}), -99, video},
        {"no client", begin(1, {.flag = 1, .videoPort = 5}), -99, name + ":Invalid client handle\n"},
        {"latency", begin(client, {.flag = 1, .videoPort = 5, .target = 1}), -1,
         "EXIT :: StartThirdPartyClient : Unable to set the target latency values\n"},
        {"audio size", begin(client, {.flag = 1, .videoPort = 5, .audioBytes = -1}), -1,
         name + ":Unable to set Audio and Video Buffer Size \n"},
        {"port taken", begin(client, {.flag = 1, .videoPort = taken.Port()}), -1, noStream},
        {"audio port taken", begin(client, {.flag = 2, .audioPort = taken.Port()}), -1, noStream},
        {"TS port taken", begin(client, {.flag = 3, .video = 103, .videoPort = taken.Port()}), 0, ""}, // Kept
        {"flag 4", begin(client, {.flag = 4, .videoPort = 5, .audioPort = 5}), 0, ""}, // Kept: creates no stream
        {"stream of null", [] { return CreateRTPStream(0, 100, 5, 1); }, -99,
         "EXIT : CreateRTPStream :Invalid Input Arguments\n"},
        {"stream without a port", [&] { return CreateRTPStream(client, 100, 0, 1); }, -99,
         "EXIT : CreateRTPStream :Invalid Input Arguments\n"},
        {"stream of no client", [] { return CreateRTPStream(1, 100, 5, 1); }, -99,
         "EXIT : CreateRTPStream :Invalid Input Arguments\n"},
        {"stream on a taken port", [&] { return CreateRTPStream(client, 100, taken.Port(), 1); }, -1,
         "EXIT : CreateRTPStream :Unable to bind on specified port \n"},
        {"stream without a descriptor",
         [&] {
             const DescriptorLimit limit(0);
             return CreateRTPStream(client, 100, 5, 1);
         },
         -1, "EXIT : CreateRTPStream :RTSP Client socket creation failed\n"},
    });
    // Another port works after all those, and its stream is the one that is found.
    const uint16_t port = FreePort();
    EXPECT_EQ(Begin(client, {.flag = 3, .video = RTP_CODEC_MP2T, .videoPort = port}), 0);
    const UdpPeer sender;
    sender.SendTo(port, Bytes(RtpPacket{.payloadType = 33, .sequenceNumber = 5}));
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_MP2T, 1), Numbers(5, 5));
}
