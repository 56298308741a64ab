// Processor time of each step that a packet takes between the kernel and the application and back, per packet:
// parse, insert, take, free, without system calls. One thread does everything, so no cache line changes owner.
#include "rtp/packet_queue.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace rtsptap {
namespace {

constexpr uint32_t kPacketBytes = 12 + 1200;
constexpr std::size_t kBatch = 512; // below the queue's limit
constexpr ArrivalRules kUdpRules{.reorder = true};

enum Step { kParse, kInsert, kTake, kFree, kAllSteps };
constexpr const char *kStepNames[] = {"parse", "insert", "take", "free", "all four"};

// A live client with one H.264 stream and no threads.
class Receiver {
public:
    Receiver() : stream_(AppendStream(client_.media)) {
        client_.media.mtuSize = kDefaultMtuSize;
        stream_->codecType = RTP_CODEC_H264;
        const bool ready = LinkClient(&client_) == 0 && CreateStreamLocks(*stream_) == StreamLock::kNone;
        if (!ready || !AllocateRing(stream_->ring, 4 << 20)) std::abort();
    }
    ~Receiver() {
        UnlinkClient(&client_);
        ReleaseStream(stream_);
    }

    RTPStreamData *Parse() {
        ReceiveRing &ring = stream_->ring;
        PlaceNextPacket(ring, client_.media.mtuSize);
        const RTPDataBuffer buffer{kPacketBytes, ring.storage + ring.writeIndex};
        ++number_;
        const uint8_t header[12] = {0x80, 96, static_cast<uint8_t>(number_ >> 8), static_cast<uint8_t>(number_)};
        std::memcpy(buffer.data, header, sizeof header);
        ring.writeIndex += kPacketBytes;
        return ParseRTPData(&buffer, stream_);
    }
    void Insert(RTPStreamData *packet) {
        InsertPacket(*stream_, packet, kUdpRules);
        SignalReaders(*stream_);
    }
    RTPStreamData *Take() {
        RTPStreamData *packet = nullptr;
        RTPClientGetRTPStreamData(Handle(), &packet, RTP_CODEC_H264);
        return packet;
    }
    void Free(RTPStreamData *packet) { RTPClientFreeRTPStreamData(Handle(), packet, RTP_CODEC_H264); }

private:
    intptr_t Handle() { return reinterpret_cast<intptr_t>(&client_); }

    RTSPClient client_;
    RTSPStreamInfo *stream_;
    uint16_t number_ = 0;
};

// Processor time of this thread: other load on the machine does not count.
double ThreadSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void PacketPath(benchmark::State &state) {
    Receiver receiver;
    std::array<RTPStreamData *, kBatch> packets;
    const auto step = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        std::array<double, kAllSteps + 1> at;
        at[kParse] = ThreadSeconds();
        for (RTPStreamData *&packet : packets) packet = receiver.Parse();
        at[kInsert] = ThreadSeconds();
        for (RTPStreamData *packet : packets) receiver.Insert(packet);
        at[kTake] = ThreadSeconds();
        for (RTPStreamData *&packet : packets) packet = receiver.Take();
        at[kFree] = ThreadSeconds();
        for (RTPStreamData *packet : packets) receiver.Free(packet);
        at[kAllSteps] = ThreadSeconds();
        state.SetIterationTime(step == kAllSteps ? at[kAllSteps] - at[kParse] : at[step + 1] - at[step]);
    }
    state.SetLabel(kStepNames[step]);
    state.counters["perPacket"] = benchmark::Counter(
        static_cast<double>(kBatch), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(PacketPath)->DenseRange(kParse, kAllSteps)->UseManualTime();

} // namespace
} // namespace rtsptap

BENCHMARK_MAIN();
