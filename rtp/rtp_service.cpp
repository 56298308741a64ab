// RTP over UDP: a stream's datagrams, received straight into its ring and queued.
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/packet_queue.h"
#include "rtp/receive_turn.h"
#include "rtp/rtp_packet.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

namespace rtsptap {
namespace {

constexpr int kMostAtOnce = 64; // so that no reader waits for the end of a flood
constexpr int kLookMs = 200;    // orders wake the thread; this is for what nobody thought of

// A reader in its turn waits in the receive call itself; shutting the socket down ends the wait. False when the
// system refuses: a call that waited without limit would miss orders.
bool LimitReceiveWait(int socket) {
    const timeval slice{0, kTurnSliceMs * 1000};
    return setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &slice, sizeof slice) == 0;
}

int Receive(RTSPStreamInfo &stream, int64_t room, int flags) {
    return ReceiveDatagram(stream.rtpSocket, stream.ring.storage + stream.ring.writeIndex, static_cast<int>(room),
                           flags, nullptr, nullptr);
}

// A signal ends the wait of a socket that has a time-out, whatever its handler asks for: whoever receives looks at
// its orders and the clock, then waits on.
bool NothingArrived(int received) { return received < 0 && (errno == EAGAIN || IsInterrupted(errno)); }

// A socket that fails or delivers a datagram without content is done with.
Served EndReceiving(ReceiveTurn &turn) {
    DebugPrint(kDebugEntry, " %s : Stopping Thread \n", __func__);
    if (!MustEnd(*turn.thread)) perror("Exiting:");
    turn.ended = true;
    return Served::kEnded;
}

// Queues what has arrived. Waits for the first datagram as the flags say, never for the others.
Served ReceiveDatagrams(RTSPStreamInfo &stream, int flags) {
    constexpr ArrivalRules kUdpRules{.reorder = true};
    for (int count = 0; count < kMostAtOnce; ++count) {
        const int64_t room = std::min<int64_t>(FindRoom(stream, 1).room, INT_MAX);
        if (room < 1) return Served::kNoRoom;
        const int received = Receive(stream, room, count == 0 ? flags : MSG_DONTWAIT);
        if (NothingArrived(received)) return Served::kNothingLeft;
        if (received < 1) return EndReceiving(stream.turn);
        AcceptPacket(stream, static_cast<uint32_t>(std::min<int64_t>(received, room)), kUdpRules,
                     "%s: Invalid packet received ignoring\n");
    }
    return Served::kMaybeMore;
}

bool Open(StreamThread &thread) {
    RTSPStreamInfo &stream = *thread.stream;
    const ScopedTurn turn(stream.turn, ScopedTurn::kWait);
    stream.baseSeqNum = -1;
    SizeRing(stream);
    if (!OpenRing(stream)) {
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", thread.service->threadName, __LINE__);
        return false;
    }
    stream.turn.readersMayWait = LimitReceiveWait(stream.rtpSocket);
    OpenTurn(stream.turn, thread);
    return true;
}

bool IsPlaying(RTSPStreamInfo &stream) { return stream.streamState == kStreamPlaying; }

Served Serve(StreamThread &thread, const Readiness & /*readiness*/) {
    return ReceiveDatagrams(*thread.stream, MSG_DONTWAIT);
}

int Socket(const RTSPStreamInfo &stream) { return stream.rtpSocket; }

int WaitMs(RTSPStreamInfo & /*stream*/) { return kLookMs; }

ReceiveTurn *Turn(RTSPStreamInfo &stream) { return &stream.turn; }

bool AdmitsReaders(const RTSPStreamInfo &stream) {
    return stream.turn.readersMayWait && stream.streamState == kStreamPlaying;
}

Served ServeWaiting(RTSPStreamInfo &stream) { return ReceiveDatagrams(stream, 0); }

// A successor goes on where the thread stops: readers then wait on.
void Close(StreamThread &thread) {
    RTSPStreamInfo &stream = *thread.stream;
    {
        const ScopedTurn turn(stream.turn, ScopedTurn::kWait);
        CloseTurn(stream.turn);
    }
    if (!thread.yield) EndReaderWaits(stream);
}

} // namespace

constinit const Service kRtpService{
    .threadName = "RTPDataReceiveThread",
    .open = Open,
    .isActive = IsPlaying,
    .serve = Serve,
    .socket = Socket,
    .waitMs = WaitMs,
    .close = Close,
    .turn = Turn,
    .admitsReaders = AdmitsReaders,
    .serveWaiting = ServeWaiting,
    .announce = SignalReaders,
};

} // namespace rtsptap
