
#include "rtp/udp_reception.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/packet_queue.h"
#include "rtp/rtp_packet.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace rtsptap {

namespace {

constexpr uint32_t kFullSleepMs = 1;

// A reader in its turn waits in the receive call itself; shutting the socket down ends the wait. False when the
// system refuses: a call that waited without limit would miss orders.
bool LimitReceiveWait(int socket) {
    const timeval slice{0, kTurnSliceMs * 1000};
    return setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &slice, sizeof slice) == 0;
}

// Where the next datagram goes; a ring full of packets that nobody holds or will hold counts as empty.
RingPlace FindRoom(RTSPStreamInfo &stream) {
    const uint32_t mtu = stream.client->mtuSize;
    RingPlace place = PlaceNextPacket(stream.ring, mtu);
    if (place.room > 0 || !NothingInUse(stream)) return place;
    EmptyRing(stream.ring);
    return PlaceNextPacket(stream.ring, mtu);
}

// What a turn received before it had to wait for more.
struct Batch {
    static constexpr int kMost = 64; // so that no reader waits for the end of a flood
    int datagrams = 0;
    enum { kNothingLeft, kMaybeMore, kRingFull, kEnded } reason = kMaybeMore;
};

int Receive(RTSPStreamInfo &stream, int64_t room, int flags) {
    socklen_t addressLength = sizeof stream.rtpAddr;
    return ReceiveDatagram(stream.rtpSocket, stream.ring.storage + stream.ring.writeIndex, static_cast<int>(room),
                           flags, reinterpret_cast<sockaddr *>(&stream.rtpAddr), &addressLength);
}

// A signal ends the wait of a socket that has a time-out, whatever its handler asks for: whoever receives looks at
// its orders and the clock, then waits on.
bool NothingArrived(int received) { return received < 0 && (errno == EAGAIN || IsInterrupted(errno)); }

// A socket that fails or delivers a datagram without content is done with.
void EndReceiving(ReceiveTurn &turn) {
    DebugPrint(kDebugEntry, " %s : Stopping Thread \n", __func__);
    if (!MustEnd(*turn.thread)) perror("Exiting:");
    turn.ended = true;
}

// Queues what has arrived. Waits for the first datagram as the flags say, never for the others.
Batch ReceiveBatch(RTSPStreamInfo &stream, int flags) {
    constexpr ArrivalRules kUdpRules{.reorder = true};
    Batch batch;
    for (; batch.datagrams < Batch::kMost; ++batch.datagrams) {
        const int64_t room = std::min<int64_t>(FindRoom(stream).room, INT_MAX);
        batch.reason = room > 0 ? Batch::kNothingLeft : Batch::kRingFull;
        if (batch.reason == Batch::kRingFull) return batch;
        const int received = Receive(stream, room, batch.datagrams == 0 ? flags : MSG_DONTWAIT);
        if (NothingArrived(received)) return batch;
        if (received < 1) {
            EndReceiving(stream.turn);
            batch.reason = Batch::kEnded;
            return batch;
        }
        AcceptPacket(stream, static_cast<uint32_t>(std::min<int64_t>(received, room)), kUdpRules,
                     "%s: Invalid packet received ignoring\n");
    }
    batch.reason = Batch::kMaybeMore;
    return batch;
}

// The thread's turn, when no reader has it: what lies in the socket.
Batch ReceiveAsThread(RTSPStreamInfo &stream) {
    const ScopedTurn turn(stream.turn, ScopedTurn::kTry);
    if (!turn.IsMine()) return {};
    if (stream.turn.ended) return {.datagrams = 0, .reason = Batch::kEnded};
    return ReceiveBatch(stream, MSG_DONTWAIT);
}

enum class Pass { kGoOn, kStop };

// Readers are signalled once for all that arrived together: waking one costs several times what receiving does.
Pass ServeDatagrams(const StreamThread &thread, RTSPStreamInfo &stream) {
    if (RestForReaders(thread, stream.turn)) return Pass::kGoOn;
    const Batch batch = ReceiveAsThread(stream);
    if (batch.datagrams > 0) SignalReaders(stream);
    if (batch.reason == Batch::kEnded) return Pass::kStop;
    if (batch.reason == Batch::kNothingLeft) WaitForData(thread, stream.turn, stream.rtpSocket);
    if (batch.reason == Batch::kRingFull) MSecDelay(kFullSleepMs); // no packet is lost: the kernel keeps what comes
    return Pass::kGoOn;
}

// A paused stream keeps its thread, which receives nothing and leaves when the session is over.
Pass WaitWhilePaused(const RTSPStreamInfo &stream) {
    if (stream.client->state == CLIENT_INIT_STATE) return Pass::kStop;
    MSecDelay(kPausedSleepMs);
    return Pass::kGoOn;
}

// False when the thread cannot serve the stream.
bool OpenReception(StreamThread &thread, RTSPStreamInfo &stream) {
    const ScopedTurn turn(stream.turn, ScopedTurn::kWait);
    stream.baseSeqNum = -1;
    PlanRing(stream);
    if (!OpenRing(stream)) return false;
    stream.turn.readersMayWait = LimitReceiveWait(stream.rtpSocket);
    OpenTurn(stream.turn, thread);
    return true;
}

// A successor goes on where the thread stops: readers then wait on.
void CloseReception(const StreamThread &thread, RTSPStreamInfo &stream) {
    {
        const ScopedTurn turn(stream.turn, ScopedTurn::kWait);
        CloseTurn(stream.turn);
    }
    if (!thread.yield) EndReaderWaits(stream);
}

bool IsPlaying(const RTSPStreamInfo &stream) { return stream.streamState == kStreamPlaying; }

// In slices, so that the reader hears of orders to the thread.
bool ReceiveUntil(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    Batch batch;
    while (batch.datagrams == 0 && batch.reason != Batch::kRingFull && !stream.turn.ended && IsPlaying(stream) &&
           !MustEnd(*stream.turn.thread) && MonotonicMs() < deadlineMs)
        batch = ReceiveBatch(stream, 0);
    return batch.datagrams > 0;
}

} // namespace

bool NothingInUse(const RTSPStreamInfo &stream) {
    // In this order: a packet that is being taken holds the ring before it leaves the head.
    return stream.packetListHead.load(std::memory_order_acquire) == nullptr &&
           stream.ringHolders.load(std::memory_order_acquire) == 1;
}

void PlanRing(RTSPStreamInfo &stream) {
    const RTSPClient &client = *stream.client;
    const int32_t size = stream.isVideo == 1 ? client.videoBufferSize : client.audioBufferSize;
    if (stream.ring.size != size && NothingInUse(stream)) ReleaseRing(stream.ring);
    if (stream.ring.storage == nullptr) stream.ring.size = size;
}

bool OpenRing(RTSPStreamInfo &stream) {
    ReceiveRing &ring = stream.ring;
    return ring.storage != nullptr || AllocateRing(ring, static_cast<int32_t>(ring.size));
}

uint32_t ChooseSsrc(const RTSPStreamInfo &stream) {
    // A generator of our own: the host's sequence of rand() is left alone.
    auto seed = static_cast<unsigned>(GetTimeValue() + reinterpret_cast<uintptr_t>(&stream));
    const auto high = static_cast<uint32_t>(rand_r(&seed)) << 16;
    return high ^ static_cast<uint32_t>(rand_r(&seed));
}

void AcceptPacket(RTSPStreamInfo &stream, uint32_t length, const ArrivalRules &rules,
                  FailureText invalidPacketText) {
    const RTPDataBuffer bytes{.length = length, .data = stream.ring.storage + stream.ring.writeIndex};
    RTPStreamData *const packet = ParseRTPData(&bytes, &stream);
    if (packet != nullptr) {
        InsertPacket(stream, packet, rules);
    } else {
        PassOver(stream);
        CallTrace("RTPDataReceiveThread").Fail(RTSP_FAILURE, invalidPacketText);
    }
    stream.ring.writeIndex += length; // also behind a refused packet
}

void ReceiveRtp(StreamThread &thread) {
    const CallTrace trace("RTPDataReceiveThread");
    RTSPStreamInfo &stream = *thread.stream;
    if (!OpenReception(thread, stream)) {
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", trace.Function(), __LINE__);
        return;
    }
    Pass pass = Pass::kGoOn;
    while (pass == Pass::kGoOn && !MustEnd(thread))
        pass = IsPlaying(stream) ? ServeDatagrams(thread, stream) : WaitWhilePaused(stream);
    CloseReception(thread, stream);
}

TurnEnd ReceiveAsReader(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    const ReaderTurn turn(stream.turn);
    if (!turn.IsMine() || !stream.turn.readersMayWait || !IsPlaying(stream)) return TurnEnd::kNotDone;
    // Looked at again in the turn: the thread may have queued what this reader would now wait for.
    if (stream.packetListHead.load(std::memory_order_acquire) != nullptr) return TurnEnd::kHandled;
    if (stream.turn.ended) return TurnEnd::kNotDone; // another one has seen it: the thread's end ends the wait
    if (ReceiveUntil(stream, deadlineMs)) return TurnEnd::kHandled;
    return IsOver(stream.turn) ? TurnEnd::kOver : TurnEnd::kNotDone;
}

} // namespace rtsptap
