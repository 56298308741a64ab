// Serving a socket: one shape for RTP datagrams, RTCP datagrams and an interleaved connection, whoever does it. A
// service handles what has arrived and never waits; around it stand the loops that wait: that of a receive thread
// (RunServing) and that of a reader which would otherwise sleep until the thread woke it (ServeAsReader). A program
// that waits by itself calls the same `serve` when the socket is readable or `waitMs` has passed.
#pragma once

#include <cstdint>

namespace rtsptap {

struct ReceiveTurn;
struct RTSPStreamInfo;
struct StreamThread;

// What a wait found.
struct Readiness {
    bool failed = false;   // the wait itself; errno says why
    bool timedOut = false; // nothing came while it lasted
    short events = 0;      // as poll(2) tells them
};

enum class Served {
    kNothingLeft, // all that had arrived: the next time is when more has
    kMaybeMore,   // stopped in between, so that nobody waits for the end of a flood
    kNoRoom,      // the receive ring is full: the kernel keeps what comes
    kEnded        // nothing more will come, or can be taken
};

struct Service {
    const char *threadName; // in its thread's messages
    // Makes ready for the thread, which may take over from another; false, after the message, when that cannot be.
    bool (*open)(StreamThread &thread);
    // False while its streams are paused: nothing is received.
    bool (*isActive)(RTSPStreamInfo &stream);
    // Handles what has arrived. In the turn, where there is one.
    Served (*serve)(StreamThread &thread, const Readiness &readiness);
    // Outside of the turn, after something was served: tells the readers.
    void (*announce)(RTSPStreamInfo &stream);
    int (*socket)(const RTSPStreamInfo &stream);
    int (*waitMs)(RTSPStreamInfo &stream);        // until something is due without anything arriving
    ReceiveTurn *(*turn)(RTSPStreamInfo &stream); // null: readers have no part in it
    // In the turn: true when a reader may serve in place of the thread.
    bool (*admitsReaders)(const RTSPStreamInfo &stream);
    // In a reader's turn: waits a moment (kTurnSliceMs) for something, and handles it.
    Served (*serveWaiting)(RTSPStreamInfo &stream);
    void (*close)(StreamThread &thread);
};

// ---- The services ----

// RTP over UDP: a stream's datagrams, received straight into its ring and queued. Ends when its socket fails or
// delivers a datagram without content, and when the session is over.
extern const Service kRtpService;
// A stream's RTCP over UDP. Ends as the other does.
extern const Service kRtcpService;
// All streams of an interleaved connection: a service of the session, by the thread of its first stream and by
// readers of any. Ends when the connection fails or is closed, and when the session is over.
extern const Service kInterleavedService;

// ---- The loops ----

// Thread body: serves until it is told to end, nothing more can come, or the session is over.
void RunServing(StreamThread &thread);

// How a reader's turn, taken in place of waiting for the thread, came to its end.
enum class TurnEnd {
    kNotDone, // no turn was to be had, the stream stopped playing, or the deadline came: the reader waits on
    kHandled, // something of the stream has been queued or refused
    kOver     // the stream receives nothing any more
};

// A reader's turn, in place of waiting for the thread: serves until something of this stream has been queued or
// refused, at most until the deadline (MonotonicMs). A full ring ends it, too.
TurnEnd ServeAsReader(const Service &service, RTSPStreamInfo &stream, uint64_t deadlineMs);

} // namespace rtsptap
