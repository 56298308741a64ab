// Hostile packets into one stream: each is received, parsed and queued; now and then one is taken and read to
// its end, as an application would. Input: a byte of settings, then packets, each with a length byte before it.
#include "rtp/packet_queue.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/registry.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using namespace rtsptap;

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return std::freopen("/dev/null", "w", stdout) == nullptr; }

static void TakeAndFree(intptr_t handle) {
    RTPStreamData *packet = nullptr;
    if (RTPClientGetRTPStreamData(handle, &packet, RTP_CODEC_H264) != 0) return;
    const uint32_t stored = packet->payloadLength <= packet->packetLength ? packet->payloadLength : 1;
    [[maybe_unused]] volatile uint8_t last = stored > 0 ? packet->payload[stored - 1] : uint8_t{0};
    if (packet->extensionLength > 0) last = packet->extensionData[packet->extensionLength - 1];
    RTPClientFreeRTPStreamData(handle, packet, RTP_CODEC_H264);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    RTSPClient client;
    RTSPStreamInfo &stream = *AppendStream(client);
    stream.codecType = RTP_CODEC_H264;
    if (LinkClient(&client) != 0 || CreateStreamLocks(stream) != StreamLock::kNone) __builtin_trap();
    client.targetLatency = client.overflowLimit = data[0] & 1;
    client.mtuSize = 100;
    AllocateRing(stream.ring, data[0] & 2 ? 1000 : 90);
    for (std::size_t at = 1, length = 0; at < size; at += 1 + length) {
        const RingPlace place = PlaceNextPacket(stream.ring, client.mtuSize);
        length = std::min({std::size_t{data[at]}, size - at - 1, static_cast<std::size_t>(place.room)});
        const RTPDataBuffer buffer{static_cast<uint32_t>(length), stream.ring.storage + stream.ring.writeIndex};
        std::memcpy(buffer.data, data + at + 1, length);
        RTPStreamData *const packet = place.room > 0 ? ParseRTPData(&buffer, &stream) : nullptr;
        if (packet != nullptr) InsertPacket(stream, packet, {.reorder = true});
        stream.ring.writeIndex += static_cast<int64_t>(length);
        if ((data[at] & 1 || place.room == 0) && stream.packetListHead != nullptr)
            TakeAndFree(reinterpret_cast<intptr_t>(&client));
    }
    UnlinkClient(&client);
    ReleaseStream(&stream);
    return 0;
}
