// The order of a stream's received packets, list work under packetListLock, and telling those that wait for them.
// Whoever receives inserts, the application takes the head. Nothing is printed under the lock.
#pragma once

#include "rtsptap.h"

#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

inline constexpr int64_t kTicksPerMs = 90; // RTP timestamp units, for every codec

// What differs between the ways packets arrive.
struct ArrivalRules {
    bool reorder = false;       // place by sequence number: datagrams may overtake each other
    bool announceDrops = false; // name the packets that leave the queue unread, for frames that followed a reply
    uint32_t channel = 0;       // named with them
};

// Puts a packet into the stream's queue: latency trim, reordering, limit. Whoever receives.
void InsertPacket(RTSPStreamInfo &stream, RTPStreamData *packet, const ArrivalRules &rules);

// Counts a datagram or frame as handled, whether it had a packet for the queue or not. Whoever receives.
void CountHandled(RTSPStreamInfo &stream);

// Wakes one reader that waits for the stream's next datagram or frame; costs nothing when none does.
void SignalReaders(RTSPStreamInfo &stream);

// Ends the wait of every reader of the stream: its reception has ended.
void EndReaderWaits(RTSPStreamInfo &stream);

// Unlinks and returns the oldest packet, which must exist. The caller holds packetListLock.
RTPStreamData *TakeHead(RTSPStreamInfo &stream);

// Frees the packet that was shown, then left the queue. The caller holds packetListLock.
void FreeDeferredPacket(RTSPStreamInfo &stream);

// Empties the queue. A packet that was shown stays until the next look. The caller holds packetListLock.
void DropAllPackets(RTSPStreamInfo &stream);

// Timestamp distance in clock ticks, negative when `newer` is the older one.
int32_t TimestampSpan(const RTPStreamData &newer, const RTPStreamData &older);

} // namespace rtsptap
