// RTP over UDP: a stream's datagrams, received straight into its ring and queued.
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/receive_turn.h"
#include "rtp/rtp_packet.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <span>

namespace rtsptap {
namespace {

constexpr std::size_t kMostAtOnce = 64; // so that no reader waits for the end of a flood
constexpr int kLookMs = 200;            // orders wake the thread; this is for what nobody thought of

// A signal ends the wait of a socket that has a time-out, whatever its handler asks for: whoever receives looks at
// its orders and the clock, then waits on.
bool NothingArrived(int received) { return received < 0 && (errno == EAGAIN || IsInterrupted(errno)); }

// A socket that fails or delivers a datagram without content is done with, unless the latter is passed over.
Served EndReceiving(RTSPStreamInfo &stream) {
    DebugPrint(kDebugEntry, " %s : Stopping Thread \n", __func__);
    if (!MustEnd(*stream.turn.thread)) {
        PrintSystemError(errno, "Exiting:");
        EndReception(stream, RTSPTAP_CONNECTION_CLOSED);
    }
    stream.turn.ended = true;
    return Served::kEnded;
}

// ---- a batch of datagrams ----

// Datagrams are received into places that lie behind one another in the ring, each as long as the longest one of
// the last batch was. What is longer spills into the room behind twice the longest batch, and is joined.
struct Batch {
    std::array<DatagramPlace, kMostDatagrams> places; // not cleared: few are used
    std::span<DatagramPlace> used;
    std::array<DatagramArrival, kMostDatagrams> arrivals; // known where the client has asked for them
};

// As many places as the last batches had use for, and as have room even if every datagram is the longest.
void MakePlaces(RTSPStreamInfo &stream, const RingPlace &ringPlace, Batch &batch) {
    const auto longest = static_cast<std::size_t>(std::min<int64_t>(ringPlace.room, INT_MAX));
    const auto fitting = static_cast<std::size_t>((ringPlace.contiguous - 1) / (2 * ringPlace.room));
    const std::size_t most = stream.batches.refused ? 1 : kMostDatagrams;
    const std::size_t count = std::clamp<std::size_t>(std::min(fitting, stream.batches.places), 1, most);
    const std::size_t size = count == 1 ? longest : std::clamp<std::size_t>(stream.batches.longest, 1, longest);
    batch.used = std::span(batch.places).first(count);
    uint8_t *const base = PlaceOf(stream.ring);
    uint8_t *spill = base + count * longest;
    for (std::size_t i = 0; i < count; ++i, spill += longest - size)
        batch.places[i] = {base + i * size, size, spill, longest - size, 0};
}

// Where the system takes no batches: one by one from then on.
int ReceiveBatch(RTSPStreamInfo &stream, const RingPlace &ringPlace, Batch &batch, int flags) {
    MakePlaces(stream, ringPlace, batch);
    const int came = stream.statistics == nullptr
                         ? ReceiveDatagrams(stream.rtpSocket, batch.used, flags)
                         : ReceiveDatagrams(stream.rtpSocket, batch.used, batch.arrivals.data(), flags);
    if (came >= 0 || batch.used.size() == 1 || !IsRefused(errno)) return came;
    stream.batches.refused = true;
    return ReceiveBatch(stream, ringPlace, batch, flags);
}

// Bytes that have been received of it.
std::size_t LengthOf(const DatagramPlace &place) {
    return std::min(static_cast<std::size_t>(std::max(place.received, 0)), place.size + place.spillSize);
}

std::size_t SpilledBytes(const DatagramPlace &place) {
    return LengthOf(place) - std::min(LengthOf(place), place.size);
}

// What came, in bytes.
struct BatchSizes {
    std::size_t bytes = 0;
    std::size_t longest = 0;
    std::size_t spilled = 0;
    std::size_t gaps = 0; // of places that were not filled
};

BatchSizes Measure(std::span<const DatagramPlace> received) {
    BatchSizes sizes;
    for (const DatagramPlace &place : received) {
        const std::size_t length = LengthOf(place);
        sizes.bytes += length;
        sizes.longest = std::max(sizes.longest, length);
        if (length > place.size)
            sizes.spilled += length - place.size;
        else
            sizes.gaps += place.size - length;
    }
    return sizes;
}

// Makes every datagram of the batch lie in one piece, in the order in which they came.
void JoinSpilled(std::span<DatagramPlace> received, std::size_t shift) {
    for (std::size_t i = received.size(); shift > 0 && i-- > 0;) {
        DatagramPlace &place = received[i];
        const std::size_t spilled = SpilledBytes(place);
        shift -= spilled;
        std::memmove(place.bytes + shift, place.bytes, place.size);
        std::memcpy(place.bytes + shift + place.size, place.spill, spilled);
        place.bytes += shift;
    }
}

// Short datagrams in places for long ones would fill the ring with gaps: they move together.
void CloseGaps(std::span<DatagramPlace> received, const BatchSizes &sizes) {
    if (4 * sizes.gaps <= sizes.bytes) return;
    uint8_t *at = received.front().bytes;
    for (DatagramPlace &place : received) {
        std::memmove(at, place.bytes, LengthOf(place));
        place.bytes = at;
        at += LengthOf(place);
    }
}

// The next batch has places for twice as many when this one was full, else for one more than came.
void LearnFrom(BatchHabits &habits, std::size_t longest, std::size_t came, std::size_t asked) {
    habits.places = std::min(came == asked ? 2 * came : came + 1, kMostDatagrams);
    habits.longest = longest;
}

// What a socket delivers that was shut down looks the same: then the thread has been told to end before.
bool PassesOverEmpty(const RTSPStreamInfo &stream) {
    return !IsOver(stream.turn) && stream.session->dialect.Permits(Rule::kEmptyDatagram);
}

// Queues the datagrams, up to one without content that ends the reception. False when there was one.
[[gnu::always_inline]] inline bool AcceptBatch(RTSPStreamInfo &stream, std::span<const DatagramPlace> received) {
    constexpr ArrivalRules kUdpRules{.reorder = true};
    for (const DatagramPlace &place : received) {
        const auto fits = static_cast<int>(place.size + place.spillSize);
        if (place.received > fits) TellLongDatagram(place.received, fits);
        if (place.received < 1 && PassesOverEmpty(stream)) continue;
        if (place.received < 1) return false;
        stream.ring.writeIndex = place.bytes - stream.ring.storage - stream.ring.gaps;
        AcceptPacket(stream, static_cast<uint32_t>(std::min(place.received, fits)), kUdpRules,
                     "%s: Invalid packet received ignoring\n");
    }
    return true;
}

// The same where each packet is told from when it came.
[[gnu::noinline]] bool AcceptWithArrivals(RTSPStreamInfo &stream, std::span<const DatagramPlace> received,
                                          const DatagramArrival *arrivals) {
    for (std::size_t i = 0; i < received.size(); ++i) {
        NoteDatagram(*stream.statistics, arrivals[i]);
        if (!AcceptBatch(stream, received.subspan(i, 1))) return false;
    }
    return true;
}

// Queues what has arrived. Waits for the first datagram as the flags say, never for the others.
Served ReceiveAndQueue(RTSPStreamInfo &stream, int flags) {
    for (std::size_t count = 0; count < kMostAtOnce;) {
        const RingPlace ringPlace = FindRoom(stream, 1);
        if (ringPlace.room < 1) return Served::kNoRoom;
        Batch batch;
        const int came = ReceiveBatch(stream, ringPlace, batch, count == 0 ? flags : MSG_DONTWAIT);
        if (NothingArrived(came)) return Served::kNothingLeft;
        if (came < 1) return EndReceiving(stream);
        const auto received = batch.used.first(static_cast<std::size_t>(came));
        const BatchSizes sizes = Measure(received);
        JoinSpilled(received, sizes.spilled);
        CloseGaps(received, sizes);
        LearnFrom(stream.batches, sizes.longest, received.size(), batch.used.size());
        const bool goesOn = stream.statistics == nullptr
                                ? AcceptBatch(stream, received)
                                : AcceptWithArrivals(stream, received, batch.arrivals.data());
        if (!goesOn) return EndReceiving(stream);
        if (received.size() < batch.used.size()) return Served::kNothingLeft;
        count += received.size();
    }
    return Served::kMaybeMore;
}

bool Open(StreamThread &thread) {
    RTSPStreamInfo &stream = *thread.stream;
    const ScopedTurn turn(stream.turn, ScopedTurn::kWait);
    stream.baseSeqNum = -1;
    SizeRing(stream);
    if (!OpenRing(stream)) {
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", kRtpService.threadName, __LINE__);
        EndReception(stream, RTSP_NO_MEMORY);
        return false;
    }
    // A reader in its turn waits in the receive call itself: one that waited without limit would miss orders.
    stream.turn.readersMayWait = LimitReceiveWait(stream.rtpSocket, kTurnSliceMs);
    OpenTurn(stream.turn, thread);
    return true;
}

bool IsPlaying(RTSPStreamInfo &stream) { return stream.streamState == kStreamPlaying; }

Served Serve(StreamThread &thread, const Readiness & /*readiness*/) {
    return ReceiveAndQueue(*thread.stream, MSG_DONTWAIT);
}

int Socket(const RTSPStreamInfo &stream) { return stream.rtpSocket; }

int WaitMs(RTSPStreamInfo & /*stream*/) { return kLookMs; }

ReceiveTurn *Turn(RTSPStreamInfo &stream) { return &stream.turn; }

bool AdmitsReaders(const RTSPStreamInfo &stream) {
    return stream.turn.readersMayWait && stream.streamState == kStreamPlaying;
}

Served ServeWaiting(RTSPStreamInfo &stream) { return ReceiveAndQueue(stream, 0); }

Served ServeWithin(RTSPStreamInfo &stream, int ms) {
    pollfd arrival = {stream.rtpSocket, POLLIN, 0};
    if (ms > 0) poll(&arrival, 1, ms); // whatever it says: receiving tells
    return ReceiveAndQueue(stream, MSG_DONTWAIT);
}

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
    .dueMs = nullptr,
    .close = Close,
    .turn = Turn,
    .admitsReaders = AdmitsReaders,
    .serveWaiting = ServeWaiting,
    .serveWithin = ServeWithin,
    .announce = SignalReaders,
};

} // namespace rtsptap
