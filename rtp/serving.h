// Serving a socket: one shape for RTP datagrams, RTCP datagrams and an interleaved connection, whoever does it. A
// service handles what has arrived; around it stand the loops that wait: that of a receive thread, which may serve
// a socket or two (RunServing), and that of a reader which would otherwise sleep until the thread woke it
// (ServeAsReader). Nothing is armed or disarmed from one pass to the next.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

struct ReceiveTurn;
struct RTSPStreamInfo;
struct StreamThread;

// What a wait found.
struct Readiness {
    bool failed = false; // the wait itself; errno says why
    short events = 0;    // as poll(2) tells them; 0: nothing came
};

enum class Served {
    kNothingLeft, // wait for the socket before the next time
    kMaybeMore,   // stopped in between, so that nobody waits for the end of a flood
    kNoRoom,      // the receive ring is full: the kernel keeps what comes
    kEnded        // nothing more will come, or can be taken
};

struct Service {
    const char *threadName; // in its messages
    // Makes ready for the thread, which may take over from another; false, after the message, when that cannot be.
    bool (*open)(StreamThread &thread);
    // Asked before every pass; false while its streams are paused, when nothing is received.
    bool (*isActive)(RTSPStreamInfo &stream);
    // Handles what has arrived, without waiting for more. In the turn, where there is one; else after the wait, of
    // which `readiness` tells.
    Served (*serve)(StreamThread &thread, const Readiness &readiness);
    int (*socket)(const RTSPStreamInfo &stream);
    int (*waitMs)(RTSPStreamInfo &stream); // until something is due without anything arriving: served then, too
    int (*dueMs)(RTSPStreamInfo &stream);  // the same for who looks around by itself: -1 nothing is; null: never
    void (*close)(StreamThread &thread);

    // ---- Readers: the rest is null where they have no part ----
    ReceiveTurn *(*turn)(RTSPStreamInfo &stream) = nullptr;
    // In the turn: true when a reader may serve in place of the thread.
    bool (*admitsReaders)(const RTSPStreamInfo &stream) = nullptr;
    // In a reader's turn: waits a moment (kTurnSliceMs) for something, and handles it.
    Served (*serveWaiting)(RTSPStreamInfo &stream) = nullptr;
    // The same for another moment: `ms`, 0 for what is there.
    Served (*serveWithin)(RTSPStreamInfo &stream, int ms) = nullptr;
    // Outside of the turn, after something of the thread's stream was handled in it: tells the readers.
    void (*announce)(RTSPStreamInfo &stream) = nullptr;
};

// The sooner of two things that may be due in so many ms; -1: one is not.
inline int Sooner(int ms, int otherMs) {
    return ms < 0 || otherMs < 0 ? std::max(ms, otherMs) : std::min(ms, otherMs);
}

// ---- The services ----

// RTP over UDP: a stream's datagrams, received straight into its ring and queued. Ends when its socket fails or
// delivers a datagram without content, and when the session is over.
extern const Service kRtpService;
// A stream's RTCP over UDP. Ends as the other does.
extern const Service kRtcpService;
// All streams of an interleaved connection: a service of the session, by the thread of its first stream and by
// readers of any. Ends when the connection fails or is closed, and when the session is over.
extern const Service kInterleavedService;
// What is due on an interleaved connection without anything arriving: beside the service above, and ends with it.
extern const Service kKeepAliveService;
// True reports of the streams of an interleaved connection, beside the first of these two, and ends with it.
extern const Service kReportService;
// The RTSP connection of a session over UDP, read while nobody asks, and what is due on it. Ends with its thread.
extern const Service kConnectionService;

// ---- The loops ----

// Thread body: serves until it is told to end, nothing more can come, or the session is over.
void RunServing(StreamThread &thread);

// ---- Without a thread: what the program's own calls do in its place, see rtp/loop/passes.h ----

void BeginServing(StreamThread &thread);
void EndServing(StreamThread &thread);

// False while its streams are paused: then only the connection is served.
bool IsActive(StreamThread &thread);
// The socket that a service waits for; -1: none, at the moment or any more.
int AwaitedSocket(const StreamThread &thread, std::size_t service, bool isActive);
// In how many ms a service has something to do without anything arriving; -1: not at all.
int DueIn(const StreamThread &thread, std::size_t service, bool isActive);
// Handles what has come, as poll(2) tells it, or what is due.
Served ServeNow(StreamThread &thread, std::size_t service, short events);

// How a reader's turn, taken in place of waiting for the thread, came to its end.
enum class TurnEnd {
    kNotDone, // no turn was to be had, the stream stopped playing, or the deadline came: the reader waits on
    kHandled, // something of the stream has been queued or refused
    kOver     // the stream receives nothing any more
};

// A reader's turn, in place of waiting for the thread: serves until something of this stream has been queued or
// refused, at most until the deadline (MonotonicMs). A full ring ends it, too. A reader that may nap lets packets
// gather first.
TurnEnd ServeAsReader(const Service &service, RTSPStreamInfo &stream, uint64_t deadlineMs);

// The same for a reader that names its stream by number: serves until `handled` of the stream is another number
// than `handledBefore`, the deadline has come, or the reader is called off, and at least once. False when it could
// not: no turn was to be had, or there is no room.
bool ServeAsTaker(const Service &service, RTSPStreamInfo &stream, uint32_t handledBefore, uint64_t deadlineMs);

} // namespace rtsptap
