// Making a stream record and its locks, finding a stream, releasing everything a stream owns.
// Application thread, except the look-ups, which any thread may use.
#pragma once

#include <cstdint>

namespace rtsptap {

struct ReceiveRing;
struct RTSPClient;
struct RTSPStreamInfo;

// A new record at the tail of the client's streamList, counted in streamCount, its client set;
// null when memory is short. Its locks are still to be made. A caller that appends many names the stream it
// appended last, from which the tail is looked for: a description may open tens of thousands of sections.
RTSPStreamInfo *AppendStream(RTSPClient &client, RTSPStreamInfo *last = nullptr);

// The stream's RTP channel on an interleaved connection, also while frames come.
void SetChannel(RTSPStreamInfo &stream, uint32_t channel);

// The streams of an ended session are kept for those who hold their packets or descriptions. What comes next starts
// with stream 1 again, so they leave the list.
void RetireEndedStreams(RTSPClient &client);

// After a TEARDOWN, when no thread of the client lives any more: frees what the session's streams took, and retires
// them. Their descriptions stay until Destroy, a ring until the application has freed the last packet in it. One
// that it was only shown stays until the next session ends.
void EndStreams(RTSPClient &client);

// When a connection is replaced by another one, whose server may never send to the old streams again: frees the
// rings that no thread serves and no packet needs. PLAY makes them anew.
void FreeIdleRings(const RTSPClient &client);

// A packet that the application has, or will look at, keeps the ring; the stream's last holder frees it, and the
// pool.
void HoldRing(RTSPStreamInfo &stream);
void LetGoOfRing(RTSPStreamInfo &stream);

enum class StreamLock { kNone, kPacketList, kSignal, kCondition };

// Makes packetListLock, signalLock and dataCondition, in that order. Returns the one that could not be
// made, or kNone. The stream can be used and released all the same.
StreamLock CreateStreamLocks(RTSPStreamInfo &stream);
void DestroyStreamLocks(RTSPStreamInfo &stream);

// Frees the record and all it owns: lines, queued packets, pool, ring, codec configuration, locks.
// Its threads have been joined and its sockets closed.
void ReleaseStream(RTSPStreamInfo *stream);

// Stream number 1 and up in description order; null when the list is shorter.
RTSPStreamInfo *FindStreamByNumber(const RTSPClient &client, int32_t number);
// The stream with that ring, also of an ended session; null when it is not one of this client's.
RTSPStreamInfo *FindStreamByRing(const RTSPClient &client, const ReceiveRing *ring);
// The first of the client's streamCount streams with that codec; null when there is none.
RTSPStreamInfo *FindStreamByCodec(const RTSPClient &client, int32_t codecType);

bool IsCodecType(int32_t codecType);

} // namespace rtsptap
