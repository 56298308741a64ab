#include "rtp/receive_thread.h"

#include "platform/call_trace.h"
#include "platform/socket.h"
#include "rtp/packet_queue.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream_record.h"
#include "rtp/stream_thread.h"
#include "rtsp/client/client_record.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace rtsptap {
namespace {

constexpr uint32_t kFullSleepMs = 1;
constexpr suseconds_t kReceiveSliceUs = 50000; // a silent socket lets its thread look at its orders this often

// The receive call itself waits, so a datagram costs one system call; shutting the socket down ends the wait.
void LimitReceiveWait(int socket) {
    const timeval slice{0, kReceiveSliceUs};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &slice, sizeof slice);
}

// Where the next datagram goes; a ring full of packets that nobody holds or will hold counts as empty.
RingPlace FindRoom(RTSPStreamInfo &stream) {
    const uint32_t mtu = stream.client->mtuSize;
    RingPlace place = PlaceNextPacket(stream.ring, mtu);
    if (place.room > 0 || !NothingInUse(stream)) return place;
    EmptyRing(stream.ring);
    return PlaceNextPacket(stream.ring, mtu);
}

enum class Pass { kGoOn, kStop };

// Packets queued since the readers were last signalled. Waking a reader costs several times what receiving a
// datagram does, so it is done once for all that arrived together.
struct Arrivals {
    static constexpr int kMost = 16; // without a pause between them, so that no reader waits for the end of a flood
    int unsignalled = 0;
};

void SignalArrivals(RTSPStreamInfo &stream, Arrivals &arrivals) {
    if (std::exchange(arrivals.unsignalled, 0) > 0) SignalReaders(stream);
}

int Receive(RTSPStreamInfo &stream, int room, int flags) {
    socklen_t addressLength = sizeof stream.rtpAddr;
    return ReceiveDatagram(stream.rtpSocket, stream.ring.storage + stream.ring.writeIndex, room, flags,
                           reinterpret_cast<sockaddr *>(&stream.rtpAddr), &addressLength);
}

bool NothingArrived(int received) { return received < 0 && errno == EAGAIN; }

// The next datagram. Readers hear of those before it before this thread waits.
int ReceiveNext(RTSPStreamInfo &stream, int room, Arrivals &arrivals) {
    if (arrivals.unsignalled > 0) {
        const int received = Receive(stream, room, MSG_DONTWAIT);
        if (!NothingArrived(received)) return received;
        SignalArrivals(stream, arrivals);
    }
    return Receive(stream, room, 0);
}

Pass ServeDatagram(StreamThread &thread, RTSPStreamInfo &stream, Arrivals &arrivals) {
    const RingPlace place = FindRoom(stream);
    if (place.room <= 0) { // no packet is lost by waiting: the kernel keeps what comes
        SignalArrivals(stream, arrivals);
        MSecDelay(kFullSleepMs);
        return Pass::kGoOn;
    }
    const int room = static_cast<int>(std::min<int64_t>(place.room, INT_MAX));
    const int received = ReceiveNext(stream, room, arrivals);
    if (NothingArrived(received)) return Pass::kGoOn;
    if (received < 1) {
        DebugPrint(kDebugEntry, " %s : Stopping Thread \n", __func__);
        if (!MustEnd(thread)) perror("Exiting:");
        return Pass::kStop;
    }
    constexpr ArrivalRules kUdpRules{.reorder = true};
    AcceptPacket(stream, static_cast<uint32_t>(std::min(received, room)), kUdpRules,
                 "%s: Invalid packet received ignoring\n");
    if (++arrivals.unsignalled >= Arrivals::kMost) SignalArrivals(stream, arrivals);
    return Pass::kGoOn;
}

// A paused stream keeps its thread, which receives nothing and leaves when the session is over.
Pass WaitWhilePaused(RTSPStreamInfo &stream, Arrivals &arrivals) {
    SignalArrivals(stream, arrivals);
    if (stream.client->state == CLIENT_INIT_STATE) return Pass::kStop;
    MSecDelay(kPausedSleepMs);
    return Pass::kGoOn;
}

} // namespace

bool NothingInUse(const RTSPStreamInfo &stream) {
    // In this order: a packet that is being taken is counted as outstanding before it leaves the head.
    return stream.packetListHead.load(std::memory_order_acquire) == nullptr &&
           stream.outstanding.load(std::memory_order_acquire) == 0;
}

bool OpenRing(RTSPStreamInfo &stream) {
    const RTSPClient &client = *stream.client;
    const int32_t size = stream.isVideo == 1 ? client.videoBufferSize : client.audioBufferSize;
    const bool keeps = stream.ring.storage != nullptr && (stream.ring.size == size || !NothingInUse(stream));
    return keeps || AllocateRing(stream.ring, size);
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
    if (packet != nullptr)
        InsertPacket(stream, packet, rules);
    else
        CallTrace("RTPDataReceiveThread").Fail(RTSP_FAILURE, invalidPacketText);
    stream.ring.writeIndex += length; // also behind a refused packet
}

void ReceiveRtp(StreamThread &thread) {
    const CallTrace trace("RTPDataReceiveThread");
    RTSPStreamInfo &stream = *thread.stream;
    stream.baseSeqNum = -1;
    if (!OpenRing(stream)) {
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", trace.Function(), __LINE__);
        return;
    }
    LimitReceiveWait(stream.rtpSocket);
    Arrivals arrivals;
    Pass pass = Pass::kGoOn;
    while (pass == Pass::kGoOn && !MustEnd(thread))
        pass = stream.streamState == kStreamPlaying ? ServeDatagram(thread, stream, arrivals)
                                                    : WaitWhilePaused(stream, arrivals);
    SignalArrivals(stream, arrivals);
}

} // namespace rtsptap
