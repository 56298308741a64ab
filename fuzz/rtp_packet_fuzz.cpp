// Hostile packets into one stream: each is received, parsed and queued; now and then one is taken, held for a while
// and read to its end, as an application would. Input: two bytes of settings, then packets, each with a
// length byte before it.
#include "fuzz/fuzz_target.h"
#include "tests/rtp/stream_fixture.h"

#include <deque>

using namespace rtsptap;
using fuzz::Require;

namespace {

struct Receiver : LiveStream {
    explicit Receiver(uint8_t choices) : LiveStream(choices & 2 ? 30000 : 90), settings(choices) {
        session.targetLatency = session.overflowLimit = settings & 1;
        session.mtuSize = 100;
        rules = {.reorder = (settings & 4) == 0};
    }
    ~Receiver() {
        while (!held.empty()) FreeOldest();
    }

    void Arrive(std::string_view bytes) {
        if (PlaceNextPacket(stream->ring, session.mtuSize).room <= 0 && NothingInUse(*stream))
            EmptyRing(stream->ring);
        const RingPlace place = PlaceNextPacket(stream->ring, session.mtuSize);
        if (place.room <= 0) return;
        bytes = bytes.substr(0, static_cast<std::size_t>(place.room));
        RTPStreamData *const packet = Parse({bytes.begin(), bytes.end()});
        if (packet == nullptr) return;
        Require(packet->packetIndex == arrived.size() + 1);
        arrived.push_back(bytes);
        InsertPacket(*stream, packet, rules);
    }

    void TakeNext() {
        RTPStreamData *packet = nullptr;
        if (stream->packetListHead == nullptr) return;
        if (settings & 8) RTPClientPeekRTPStreamData(Handle(), &packet, RTP_CODEC_H264);
        packet = Get();
        if (packet == nullptr) return;
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
        LookIntoExtension(*packet);
        Free(packet);
    }

    static void LookIntoExtension(const RTPStreamData &packet) {
        const uint8_t *data = nullptr;
        uint32_t found = 0;
        for (const int id : {1, 2, 7, 14, 15, 255}) {
            if (RTSPTapGetHeaderExtension(&packet, id, &data, &found) != 0 || found == 0) continue;
            Require(data > packet.extensionData && data + found <= packet.extensionData + packet.extensionLength);
        }
        RTSPTapReplayHeader header = {};
        header.recordSize = sizeof header;
        Require(RTSPTapGetReplayHeader(&packet, &header) != 0 || packet.extensionLength >= 12);
    }

    const uint8_t settings;
    std::vector<std::string_view> arrived; // accepted, by packetIndex
    std::deque<RTPStreamData *> held;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    Receiver receiver(input.U8());
    if (input.U8() > 200) receiver.stream->packetCount = 1022; // as if the queue were near its limit
    while (!input.IsEmpty()) {
        const uint8_t length = input.U8();
        receiver.Arrive(input.Take(length));
        if (length & 1) receiver.TakeNext();
    }
    return 0;
}
