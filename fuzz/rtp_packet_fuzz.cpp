// Hostile packets into one stream: each is received, parsed and queued; now and then one is taken, held for a while
// and read to its end, as an application would. Input: two bytes of settings, then packets, each with a
// length byte before it.
#include "fuzz/fuzz_target.h"
#include "rtp/packet_queue.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"

#include <cstring>
#include <deque>
#include <vector>

using namespace rtsptap;
using fuzz::Require;

namespace {

struct Receiver {
    explicit Receiver(uint8_t choices) : settings(choices) {
        Require(LinkClient(&client) == 0 && CreateStreamLocks(stream) == StreamLock::kNone);
        stream.codecType = RTP_CODEC_H264;
        client.media.targetLatency = client.media.overflowLimit = settings & 1;
        client.media.mtuSize = 100;
        AllocateRing(stream.ring, settings & 2 ? 30000 : 90);
    }
    ~Receiver() {
        while (!held.empty()) FreeOldest();
        UnlinkClient(&client);
        ReleaseStream(&stream);
    }

    void Arrive(std::string_view bytes) {
        RingPlace place = PlaceNextPacket(stream.ring, client.media.mtuSize);
        if (place.room <= 0 && NothingInUse(stream))
            EmptyRing(stream.ring);
        else if (place.room <= 0)
            return;
        place = PlaceNextPacket(stream.ring, client.media.mtuSize);
        bytes = bytes.substr(0, static_cast<std::size_t>(place.room));
        const RTPDataBuffer buffer{static_cast<uint32_t>(bytes.size()),
                                   stream.ring.storage + stream.ring.writeIndex};
        std::memcpy(buffer.data, bytes.data(), bytes.size());
        RTPStreamData *const packet = ParseRTPData(&buffer, &stream);
        stream.ring.writeIndex += static_cast<int64_t>(bytes.size());
        if (packet == nullptr) return;
        Require(packet->packetIndex == arrived.size() + 1);
        arrived.push_back(bytes);
        InsertPacket(stream, packet, {.reorder = (settings & 4) == 0});
    }

    void TakeNext() {
        RTPStreamData *packet = nullptr;
        if (stream.packetListHead == nullptr) return;
        if (settings & 8) RTPClientPeekRTPStreamData(handle, &packet, RTP_CODEC_H264);
        if (RTPClientGetRTPStreamData(handle, &packet, RTP_CODEC_H264) != 0) return;
        held.push_back(packet);
        if (held.size() > settings >> 4) FreeOldest();
    }

    void FreeOldest() {
        RTPStreamData *const packet = held.front();
        held.pop_front();
        // Neither queued nor held is a packet overwritten.
        Require(fuzz::TextOf(packet->packetData, packet->packetLength) == arrived[packet->packetIndex - 1]);
        const uint32_t stored = packet->payloadLength <= packet->packetLength ? packet->payloadLength : 1;
        [[maybe_unused]] volatile uint8_t last = stored > 0 ? packet->payload[stored - 1] : uint8_t{0};
        if (packet->extensionLength > 0) last = packet->extensionData[packet->extensionLength - 1];
        RTPClientFreeRTPStreamData(handle, packet, RTP_CODEC_H264);
    }

    const uint8_t settings;
    RTSPClient client;
    RTSPStreamInfo &stream = *AppendStream(client.media);
    const intptr_t handle = reinterpret_cast<intptr_t>(&client);
    std::vector<std::string_view> arrived; // accepted, by packetIndex
    std::deque<RTPStreamData *> held;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    Receiver receiver(input.U8());
    if (input.U8() > 200) receiver.stream.packetCount = 1022; // as if the queue were near its limit
    while (!input.IsEmpty()) {
        const uint8_t length = input.U8();
        receiver.Arrive(input.Take(length));
        if (length & 1) receiver.TakeNext();
    }
    return 0;
}
