// Receiving RTP over UDP: the thread body of one stream, and what it shares with the interleaved one:
// opening the ring, and what becomes of a packet that lies in it.
#pragma once

#include "platform/printers.h"

#include <cstdint>

namespace rtsptap {

struct ArrivalRules;
enum class TurnEnd;
struct RTSPStreamInfo;
struct StreamThread;

// Thread body: receives datagrams into the stream's ring and queues them until it is told to end, its
// socket fails or delivers nothing, or the session is over.
void ReceiveRtp(StreamThread &thread);

// A reader's turn, in place of waiting for the thread: receives until something has been queued or refused, at most
// until the deadline (MonotonicMs). A full ring ends it, too.
TurnEnd ReceiveAsReader(RTSPStreamInfo &stream, uint64_t deadlineMs);

// Gives the ring the client's size of now; the storage is kept while packets in it are queued or held.
void PlanRing(RTSPStreamInfo &stream);
// Makes the planned ring's storage, if it has none. False when memory is short.
bool OpenRing(RTSPStreamInfo &stream);

// True when no packet of the stream is queued or held by the application.
bool NothingInUse(const RTSPStreamInfo &stream);

// Parses and queues the `length` bytes at the ring's writeIndex and moves it behind them. Signals nobody.
void AcceptPacket(RTSPStreamInfo &stream, uint32_t length, const ArrivalRules &rules,
                  FailureText invalidPacketText);

// A new SSRC for our receiver reports (RFC 3550, 8.1).
uint32_t ChooseSsrc(const RTSPStreamInfo &stream);

} // namespace rtsptap
