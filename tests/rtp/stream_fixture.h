// A live client with one stream and no threads: a test or a fuzzer delivers packets the way a receive thread does.
#pragma once

#include "platform/handle_table.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream.h"
#include "tests/support/packet_builder.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace rtsptap {

using Bytes = std::vector<uint8_t>;

inline Bytes Packet(int number, uint32_t timestamp = 0, unsigned payloadType = 96) {
    const std::string bytes = test::Bytes(test::RtpPacket{
        .payloadType = payloadType, .sequenceNumber = static_cast<uint16_t>(number), .timestamp = timestamp});
    return {bytes.begin(), bytes.end()};
}

inline void Must(bool holds) {
    if (!holds) std::abort();
}

struct LiveStream {
    explicit LiveStream(int32_t ringBytes = 100000) : stream(&AddStream(RTP_CODEC_H264, ringBytes)) {
        Must(AddHandle(Handle()));
        session.mtuSize = 1500;
    }
    ~LiveStream() {
        RemoveHandle(Handle());
        for (RTSPStreamInfo *at = session.streamList; at != nullptr;)
            ReleaseStream(std::exchange(at, at->next.load()));
    }

    RTSPStreamInfo &AddStream(int32_t codecType, int32_t ringBytes = 100000) {
        RTSPStreamInfo &added = *AppendStream(session);
        Must(CreateStreamLocks(added) == StreamLock::kNone && AllocateRing(added.ring, ringBytes));
        added.codecType = codecType;
        return added;
    }

    // Null when the packet is refused.
    RTPStreamData *Parse(const Bytes &packet) {
        const auto length = static_cast<uint32_t>(packet.size());
        Must(PlaceNextPacket(stream->ring, session.mtuSize).room >= length);
        const RTPDataBuffer buffer{length, stream->ring.storage + stream->ring.writeIndex};
        std::ranges::copy(packet, buffer.data);
        stream->ring.writeIndex += length;
        return ParseRTPData(&buffer, stream);
    }
    void Arrive(const Bytes &packet) {
        RTPStreamData *const parsed = Parse(packet);
        parsed != nullptr ? InsertPacket(*stream, parsed, rules) : CountHandled(*stream);
        SignalReaders(*stream);
    }

    intptr_t Handle() { return reinterpret_cast<intptr_t>(&session); }
    RTPStreamData *Get() {
        RTPStreamData *packet = nullptr;
        RTPClientGetRTPStreamData(Handle(), &packet, RTP_CODEC_H264);
        return packet;
    }
    void Free(RTPStreamData *packet) { Must(RTPClientFreeRTPStreamData(Handle(), packet, RTP_CODEC_H264) == 0); }
    void Drain() {
        while (stream->packetListHead != nullptr) Free(Get());
    }

    // The queue's numbers from head to tail; the tail must be the last one.
    std::vector<int> Queued() const {
        std::vector<int> numbers;
        const RTPStreamData *last = nullptr;
        for (const RTPStreamData *at = stream->packetListHead; at != nullptr; last = at, at = at->next)
            numbers.push_back(at->rtpHeader->sequenceNumber);
        Must(stream->packetListTail == last);
        return numbers;
    }

    MediaSession session;
    RTSPStreamInfo *stream;
    ArrivalRules rules{.reorder = true};
};

} // namespace rtsptap
