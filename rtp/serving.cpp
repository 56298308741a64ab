#include "rtp/serving.h"

#include "platform/system.h"
#include "rtp/loop/watch.h"
#include "rtp/media_session.h"
#include "rtp/nap.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>

namespace rtsptap {
namespace {

// ---- what a thread waits for between two passes ----

constexpr int kNoRoomWaitMs = 1; // no packet is lost: the kernel keeps what comes

// Its orders, the sockets of its services, and what is due.
class PassWait {
public:
    explicit PassWait(const StreamThread &thread) : sockets_{{{thread.wake, POLLIN, 0}}} {}

    void AddSocket(std::size_t service, int socket) {
        sockets_[count_] = {socket, POLLIN, 0};
        placeOf_[service] = count_++;
    }
    bool HasSocket(std::size_t service) const { return placeOf_[service] > 0; }
    void EndAfter(int ms) { timeoutMs_ = timeoutMs_ < 0 ? ms : std::min(timeoutMs_, ms); }

    void Wait() {
        if (timeoutMs_ == 0 && count_ == 1) return;
        const int ready = poll(sockets_.data(), count_, timeoutMs_);
        failed_ = ready < 0 && errno != EINTR;
        hasEvents_ = ready > 0;
        if (hasEvents_ && (sockets_[0].revents & POLLIN) != 0) DrainWake(sockets_[0].fd);
    }
    Readiness Found(std::size_t service) const {
        const short events = sockets_[placeOf_[service]].revents;
        return {.failed = failed_, .events = hasEvents_ ? events : short{0}};
    }

private:
    std::array<pollfd, 1 + kMostServed> sockets_;
    std::array<nfds_t, kMostServed> placeOf_ = {}; // 0: its socket is not waited for
    nfds_t count_ = 1;
    int timeoutMs_ = -1; // without limit
    bool failed_ = false;
    bool hasEvents_ = false;
};

// ---- a pass of a thread ----

void EndService(StreamThread &thread, std::size_t service) {
    thread.over[service] = true;
    thread.services[service]->close(thread);
}

// Readers are told once of all that arrived together, outside of the turn: waking one costs several times what
// receiving does.
Served ServeInTurn(StreamThread &thread, const Service &service, ReceiveTurn &turn) {
    RTSPStreamInfo &stream = *thread.stream;
    const uint32_t before = stream.handled;
    Served served = Served::kEnded;
    {
        const ScopedTurn mine(turn, ScopedTurn::kTry);
        if (!mine.IsMine()) return Served::kMaybeMore;
        if (!turn.ended) served = service.serve(thread, {});
    }
    if (service.announce != nullptr && stream.handled != before) service.announce(stream);
    return served;
}

// Of a service that readers have a part in: handles what is there, unless they do, and says what to wait for.
void ServeBesideReaders(StreamThread &thread, std::size_t at, PassWait &wait) {
    const Service &service = *thread.services[at];
    RTSPStreamInfo &stream = *thread.stream;
    ReceiveTurn &turn = *service.turn(stream);
    if (RestsForReaders(thread, turn)) return;
    switch (ServeInTurn(thread, service, turn)) {
    case Served::kEnded:
        EndService(thread, at);
        return wait.EndAfter(0);
    case Served::kNoRoom:
        return wait.EndAfter(kNoRoomWaitMs);
    case Served::kMaybeMore:
        return wait.EndAfter(0);
    case Served::kNothingLeft:
        break;
    }
    if (!BeginSocketWait(turn)) return wait.EndAfter(0);
    wait.AddSocket(at, service.socket(stream));
    wait.EndAfter(service.waitMs(stream));
}

void ServeBeforeWait(StreamThread &thread, std::size_t at, PassWait &wait) {
    const Service &service = *thread.services[at];
    if (service.turn != nullptr) return ServeBesideReaders(thread, at, wait);
    wait.AddSocket(at, service.socket(*thread.stream));
    wait.EndAfter(service.waitMs(*thread.stream));
}

// What the wait found is handled whatever has become of the stream meanwhile.
void ServeAfterWait(StreamThread &thread, std::size_t at, const PassWait &wait) {
    const Service &service = *thread.services[at];
    if (service.turn == nullptr) {
        if (!MustEnd(thread) && service.serve(thread, wait.Found(at)) == Served::kEnded) EndService(thread, at);
    } else if (wait.HasSocket(at)) {
        EndSocketWait(*service.turn(*thread.stream));
    }
}

template <typename Step> void ForEachService(StreamThread &thread, const Step &step) {
    for (std::size_t at = 0; at < thread.served; ++at)
        if (!thread.over[at]) step(at);
}

void ServeOnce(StreamThread &thread) {
    PassWait wait(thread);
    ForEachService(thread, [&](std::size_t at) { ServeBeforeWait(thread, at, wait); });
    wait.Wait();
    ForEachService(thread, [&](std::size_t at) { ServeAfterWait(thread, at, wait); });
}

bool HasServices(const StreamThread &thread) { return std::ranges::find(thread.over, false) != thread.over.end(); }

constexpr std::size_t kConnection = kMostServed - 1; // its place among the services

// A paused stream keeps its thread, which goes on with what it does for the connection.
void ServePaused(StreamThread &thread) {
    if (thread.over[kConnection]) {
        MSecDelay(kPausedSleepMs);
        return;
    }
    PassWait wait(thread);
    ServeBeforeWait(thread, kConnection, wait);
    wait.EndAfter(kPausedSleepMs);
    wait.Wait();
    ServeAfterWait(thread, kConnection, wait);
}

} // namespace

bool IsActive(StreamThread &thread) {
    bool isActive = false;
    ForEachService(thread, [&](std::size_t at) {
        isActive = thread.services[at]->isActive(*thread.stream) || isActive; // asked of each
    });
    return isActive;
}

void BeginServing(StreamThread &thread) {
    for (std::size_t at = 0; at < kMostServed; ++at)
        thread.over[at] = thread.services[at] == nullptr || !thread.services[at]->open(thread);
}

void EndServing(StreamThread &thread) {
    ForEachService(thread, [&](std::size_t at) { EndService(thread, at); });
}

void RunServing(StreamThread &thread) {
    BeginServing(thread);
    while (!MustEnd(thread) && HasServices(thread)) {
        if (IsActive(thread))
            ServeOnce(thread);
        else if (thread.stream->session->state == CLIENT_INIT_STATE)
            break;
        else
            ServePaused(thread);
    }
    EndServing(thread);
}

// ---- without a thread ----

int AwaitedSocket(const StreamThread &thread, std::size_t service, bool isActive) {
    const bool isServed = !thread.over[service] && (isActive || service == kConnection);
    if (!isServed || (service == 0 && thread.isFull)) return -1;
    return thread.services[service]->socket(*thread.stream);
}

int DueIn(const StreamThread &thread, std::size_t service, bool isActive) {
    const bool isServed = !thread.over[service] && (isActive || service == kConnection);
    if (!isServed || thread.services[service]->dueMs == nullptr) return -1;
    return thread.services[service]->dueMs(*thread.stream);
}

// What has no socket of its own may have lost its cause.
static void EndWith(StreamThread &thread, std::size_t ended) {
    EndService(thread, ended);
    ForEachService(thread, [&thread](std::size_t at) {
        const Service &service = *thread.services[at];
        const bool isBeside = service.turn == nullptr && service.socket(*thread.stream) < 0;
        if (isBeside && service.serve(thread, {}) == Served::kEnded) EndService(thread, at);
    });
    thread.ended = !HasServices(thread);
}

Served ServeNow(StreamThread &thread, std::size_t at, short events) {
    if (thread.over[at]) return Served::kEnded;
    const Service &service = *thread.services[at];
    const Served served = service.turn != nullptr ? ServeInTurn(thread, service, *service.turn(*thread.stream))
                                                  : service.serve(thread, {.events = events});
    thread.isFull = served == Served::kNoRoom || (at != 0 && thread.isFull);
    if (served == Served::kEnded) EndWith(thread, at);
    if (served == Served::kEnded || served == Served::kNoRoom || at == kConnection) SettleSockets(thread);
    return served;
}

// ---- a reader ----

TurnEnd ServeAsReader(const Service &service, RTSPStreamInfo &stream, uint64_t deadlineMs) {
    ReceiveTurn &turn = *service.turn(stream);
    const ReaderTurn reader(turn);
    if (!reader.IsMine() || !service.admitsReaders(stream)) return TurnEnd::kNotDone;
    // Looked at again in the turn: the thread may have queued what this reader would now wait for.
    if (stream.packetListHead.load(std::memory_order_acquire) != nullptr) return TurnEnd::kHandled;
    const uint32_t before = stream.handled;
    const auto isDone = [&](Served served) {
        return stream.handled != before || served == Served::kNoRoom || served == Served::kEnded || turn.ended ||
               stream.streamState != kStreamPlaying || MustEnd(*turn.thread);
    };
    const bool naps = NapUs(*stream.session) > 0;
    bool done = MustEnd(*turn.thread) || (naps && isDone(ServeAfterNap(service, stream)));
    const bool waits = !done;
    while (!done) // in slices, so that it hears of orders to the thread; the first one asks for no time
        done = isDone(service.serveWaiting(stream)) || MonotonicMs() >= deadlineMs;
    if (naps && waits) BeginToGather(turn);
    if (stream.handled != before) return TurnEnd::kHandled;
    return IsOver(turn) ? TurnEnd::kOver : TurnEnd::kNotDone;
}

} // namespace rtsptap
