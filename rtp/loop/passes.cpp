#include "rtp/loop/passes.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "platform/waiting.h"
#include "rtp/delivery.h"
#include "rtp/interleaved/tending.h"
#include "rtp/media_session.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <poll.h>
#include <span>
#include <utility>

namespace rtsptap {
namespace {

// Every service of the session that is not over.
template <typename Step> void ForEachServed(const MediaSession &session, const Step &step) {
    RTSPStreamInfo *stream = session.streamList;
    for (; stream != nullptr; stream = stream->next) {
        StreamThread *const thread = stream->thread;
        if (!IsServing(thread) || thread->hasThread) continue;
        const bool isActive = IsActive(*thread);
        for (std::size_t at = 0; at < thread->served; ++at)
            if (!thread->over[at]) step(*thread, at, isActive);
    }
}

int Earlier(int ms, int otherMs) { return ms < 0 || otherMs < 0 ? std::max(ms, otherMs) : std::min(ms, otherMs); }

struct Place {
    StreamThread *thread = nullptr;
    std::size_t service = 0;
};

// The sockets of a session, and whose they are.
class SessionWait {
public:
    SessionWait(const MediaSession &session, int beside) {
        std::size_t most = 1;
        ForEachServed(session, [&most](StreamThread &, std::size_t, bool) { ++most; });
        Add(beside, {});
        if (most > kFew && !Grow(most)) return;
        ForEachServed(session, [this](StreamThread &thread, std::size_t at, bool isActive) {
            Add(AwaitedSocket(thread, at, isActive), {&thread, at});
            dueMs_ = Earlier(dueMs_, DueIn(thread, at, isActive));
        });
    }

    // A socket alone need not be asked when nobody waits.
    void Wait(int timeoutMs) {
        if (timeoutMs == 0 && count_ == 2 && sockets_[0].fd < 0) {
            sockets_[1].revents = POLLIN;
            return;
        }
        const int waitMs = Earlier(timeoutMs, dueMs_);
        const int ready = poll(sockets_, count_, waitMs);
        if (ready > 0) return;
        if (ready < 0 && !IsInterrupted(errno)) MSecDelay(1); // the system is short of memory
        for (pollfd &socket : std::span(sockets_, count_)) socket.revents = 0;
    }
    void Serve() const {
        for (nfds_t i = 1; i < count_; ++i)
            if (sockets_[i].revents != 0) ServeNow(*places_[i].thread, places_[i].service, sockets_[i].revents);
    }
    short Beside() const { return sockets_[0].revents; }

private:
    static constexpr std::size_t kFew = 16;

    bool Grow(std::size_t most) {
        manySockets_.reset(new (std::nothrow) pollfd[most]);
        manyPlaces_.reset(new (std::nothrow) Place[most]);
        if (manySockets_ == nullptr || manyPlaces_ == nullptr) return false;
        manySockets_[0] = fewSockets_[0];
        sockets_ = manySockets_.get();
        places_ = manyPlaces_.get();
        return true;
    }
    void Add(int socket, Place place) {
        if (socket < 0 && count_ > 0) return;
        sockets_[count_] = {socket, POLLIN, 0};
        places_[count_++] = place;
    }

    pollfd fewSockets_[kFew];
    Place fewPlaces_[kFew];
    std::unique_ptr<pollfd[]> manySockets_;
    std::unique_ptr<Place[]> manyPlaces_;
    pollfd *sockets_ = fewSockets_;
    Place *places_ = fewPlaces_;
    nfds_t count_ = 0; // the one beside is the first
    int dueMs_ = -1;
};

void ServeWhatIsDue(const MediaSession &session) {
    ForEachServed(session, [](StreamThread &thread, std::size_t at, bool isActive) {
        if (DueIn(thread, at, isActive) == 0) ServeNow(thread, at, 0);
    });
}

int Left(uint64_t deadlineMs, int longestMs) {
    const uint64_t now = MonotonicMs();
    const auto longest = static_cast<uint64_t>(longestMs);
    return now >= deadlineMs ? 0 : static_cast<int>(std::min(deadlineMs - now, longest));
}

} // namespace

short ServeSession(MediaSession &session, int timeoutMs, int beside) {
    const PrintsFor client(HandleOf(session));
    SessionWait wait(session, beside);
    wait.Wait(timeoutMs);
    wait.Serve();
    ServeWhatIsDue(session);
    return wait.Beside();
}

void ServeAll(MediaSession &session) {
    ForEachServed(session, [](StreamThread &thread, std::size_t at, bool isActive) {
        if (AwaitedSocket(thread, at, isActive) >= 0) ServeNow(thread, at, POLLIN);
    });
}

void NoteRoom(RTSPStreamInfo &stream) {
    if (stream.thread == nullptr || !std::exchange(stream.thread->isFull, false)) return;
    SettleSockets(*stream.thread);
}

int SessionDueIn(const MediaSession &session) {
    int dueMs = -1;
    ForEachServed(session, [&dueMs](StreamThread &thread, std::size_t at, bool isActive) {
        dueMs = Earlier(dueMs, DueIn(thread, at, isActive));
    });
    return dueMs;
}

void ServeForReader(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    const uint32_t handledBefore = stream.handled;
    const uint32_t endsBefore = stream.receptionsEnded;
    do {
        ServeSession(*stream.session, Left(deadlineMs, kTurnSliceMs));
    } while (stream.handled == handledBefore && stream.receptionsEnded == endsBefore &&
             !SessionIsOver(*stream.session) && MonotonicMs() < deadlineMs);
}

void ServeForTaker(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    ServeSession(*stream.session, IsCalledOff(stream) ? 0 : Left(deadlineMs, kTurnSliceMs));
}

int ServeUntilReadable(MediaSession &session, int socket, int limitMs) {
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(limitMs);
    for (;;) {
        const int left = Left(deadlineMs, limitMs);
        const short found = ServeSession(session, left, socket);
        if ((found & POLLNVAL) != 0) return RTSP_FAILURE;
        if (found != 0) return 1;
        if (left == 0) return 0;
    }
}

RecvBufferPtr ServeUntilReply(MediaSession &session) {
    Connection &connection = session.connection;
    const ReplyWait wait(connection);
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(connection.replyLimitMs);
    for (;;) {
        if (RecvBufferPtr reply = TakePostedReply(connection)) return reply;
        if (!ConnectionIsServed(session) || IsClosed(connection)) return nullptr;
        const int left = Left(deadlineMs, connection.replyLimitMs);
        if (left == 0 || MustGiveUp()) return nullptr;
        if (IsOnFiber()) wait.For(connection.socket, left); // the program goes on, and serves, too
        ServeSession(session, IsOnFiber() ? 0 : left);
    }
}

} // namespace rtsptap
