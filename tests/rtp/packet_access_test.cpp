#include "rtp/udp_reception.h"
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"

#include <thread>

namespace rtsptap {
namespace {

class PacketAccess : public StreamFixture {
protected:
    CapturedStdout out;
};

TEST_F(PacketAccess, WaitsForTheNextDatagramWhateverItIs) {
    for (const unsigned payloadType : {96u, 34u}) {
        std::thread sender([this, payloadType] {
            while (stream->waitingReaders == 0) std::this_thread::yield();
            Arrive(Packet(5, 0, payloadType));
        });
        RTPStreamData *packet = nullptr;
        EXPECT_EQ(RTPClientGetRTPStreamData(Handle(), &packet, RTP_CODEC_H264), payloadType == 96 ? 0 : -1);
        sender.join();
        if (packet != nullptr) Free(packet);
    }
    EXPECT_EQ(out.Text().find("No data received"), std::string::npos);
}

TEST_F(PacketAccess, IsNotWokenForPacketsItHasTakenAlready) {
    InsertPacket(*stream, Parse(Packet(5)), rules);
    Free(Get());
    std::thread sender([this] {
        while (stream->waitingReaders == 0) std::this_thread::yield();
        SignalReaders(*stream); // of packet 5, late
        MSecDelay(20);
        Arrive(Packet(6));
    });
    RTPStreamData *const packet = Get();
    sender.join();
    ASSERT_NE(packet, nullptr);
    Free(packet);
}

TEST_F(PacketAccess, GivesAPacketBackToItsOwnStreamWhateverItIsFreedWith) {
    const RTSPStreamInfo &other = AddStream(RTP_CODEC_PCMA);
    for (const int number : {1, 2, 3}) Arrive(Packet(number));
    EXPECT_EQ(RTPClientFreeRTPStreamData(Handle(), Get(), RTP_CODEC_PCMA), 0);
    EXPECT_EQ(RTPClientFreeRTPStreamData(Handle(), Get(), RTP_CODEC_G726), 0);
    EXPECT_EQ(other.ring.readIndex, 0);
    EXPECT_EQ(stream->ring.readIndex, 2 * 20);
    Free(Get());
    EXPECT_TRUE(NothingInUse(*stream) && NothingInUse(other));
}

TEST_F(PacketAccess, ComputesTheTimestampOffset) {
    uint32_t offset = 77;
    stream->srRtpTimestamp = 1000;
    for (const int32_t codecType : {RTP_CODEC_MPEG4_GENERIC, RTP_CODEC_H264})
        EXPECT_EQ(RTPClientGetTSOffset(Handle(), codecType, &offset, 8000), -1) << "no audio stream";
    AddStream(RTP_CODEC_MPEG4_GENERIC);
    RTSPStreamInfo &audio = AddStream(RTP_CODEC_MPEG4_GENERIC); // of several the last one counts
    for (const int32_t codecType : {RTP_CODEC_PCMA, RTP_CODEC_H264})
        EXPECT_EQ(RTPClientGetTSOffset(Handle(), codecType, &offset, 8000), 0);
    EXPECT_EQ(offset, 77u);
    EXPECT_EQ(RTPClientGetTSOffset(Handle(), RTP_CODEC_PCMA, nullptr, 8000), 0);
    EXPECT_EQ(RTPClientGetTSOffset(Handle(), RTP_CODEC_MPEG4_GENERIC, nullptr, 8000), -99);
    const struct {
        uint32_t audioTimestamp;
        int32_t clockRate;
        uint32_t audioTicks;
    } cases[] = {{16000, 8000, 180000},
                 {16000, 0, 0},
                 {50000, 44100, 4649}, // 4500000000 has wrapped
                 {134217728, -1, 0x80000000}};
    for (const auto &at : cases) {
        audio.srRtpTimestamp = at.audioTimestamp;
        EXPECT_EQ(RTPClientGetTSOffset(Handle(), RTP_CODEC_MPEG4_GENERIC, &offset, at.clockRate), 0);
        EXPECT_EQ(offset, at.audioTicks - 1000) << at.audioTimestamp;
    }
}

} // namespace
} // namespace rtsptap
