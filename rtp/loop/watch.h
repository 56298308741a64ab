// What a program's own loop waits on, for one session without threads or for a group of them: a descriptor that is
// readable while something is there for the program. In it are the sockets of the sessions, so that what comes is
// told by the system itself, and a timer, which tells of everything else: what is due, and what the program has
// left in queues. Sockets that nobody would read just now are not in it. Level-triggered throughout.
//
// Streams where something happened since the program last looked are in a list, and sessions for which something
// will be due in another, sorted one: nothing looks at all members of a group.
//
// One thread at a time, as for everything of a session without threads.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;
struct StreamThread;

struct Watch {
    int epoll = -1;
    int timer = -1;       // in it, once it was needed
    int caller = -1;      // in it, of a group: readable once somebody ends its wait
    uint64_t timerMs = 0; // MonotonicMs that it is set to; 0: none
    bool isShown = false; // the program waits on it; else the timer is of no use
    RTSPStreamInfo *firstReady = nullptr;
    RTSPStreamInfo *lastReady = nullptr;
    MediaSession *firstDue = nullptr;
    MediaSession *lastDue = nullptr;
    MediaSession *members = nullptr; // of a group
};

// A session's part in it.
struct LoopPlace {
    Watch *watch = nullptr;   // null: nobody waits on a descriptor
    Watch *own = nullptr;     // owned: the session's own
    bool inGroup = false;     // `watch` is the group's
    void *context = nullptr;  // what the program knows it by there
    bool isShort = false;     // of memory: a socket is not in the descriptor, and looked at by the clock meanwhile
    int awaited = -1;         // epoll of what the pending operation waits for, in the watch's; -1: nothing
    bool isBlind = false;     // of memory or descriptors for that: it is looked at by the clock
    bool hasNews = false;     // an operation has ended, and nobody was told
    uint64_t notBeforeMs = 0; // MonotonicMs before which a group does not tell of the operation again
    uint64_t dueMs = 0;       // MonotonicMs when something is due, or before; 0: not in the watch's list
    MediaSession *earlier = nullptr;
    MediaSession *later = nullptr;
    MediaSession *nextMember = nullptr;
    MediaSession *previousMember = nullptr;
};

// Whose socket an event is of.
struct WatchedSocket {
    StreamThread *thread = nullptr; // null: the timer, or what an operation waits for
    std::size_t service = 0;
    bool isOperation = false;
    bool isCall = false; // of somebody who ends the wait
};
WatchedSocket SocketOf(uint64_t eventData);

// Makes the descriptor; false when the system has none.
bool OpenWatch(Watch &watch);
// From here on a wait can be ended; false likewise.
bool OpenCaller(Watch &watch);
void EndWait(const Watch &watch); // any thread, any signal handler
// No session is in it.
void CloseWatch(Watch &watch);

// ---- What happens ----

// Something of the stream is there for the program: packets, or its end. Where there is no watch only ends are
// noted.
void NoteReady(RTSPStreamInfo &stream);
// The program has looked, and there is nothing more.
void NoteEmpty(RTSPStreamInfo &stream);
// It has taken so many packets, or heard of the end, with room for others.
void NoteTaken(RTSPStreamInfo &stream, int32_t result, int32_t room);

// Makes the watch fit what the session's sockets are to be waited for by now. Where there is one; a single service
// that has changed costs less.
void SettleSockets(StreamThread &thread);
void SettleSession(MediaSession &session);
// After all that: when something is due.
void SettleDue(MediaSession &session);
void SettleTimer(Watch &watch);

// The pending operation waits for something else, has ended, or its end was told.
void SettlePending(MediaSession &session);
// Whether it is to go on by the clock, or its end to be told. Said again only after a while.
bool OperationIsDue(MediaSession &session);

// Its sockets leave, because they will be closed or somebody else's.
void ForgetSockets(StreamThread &thread);

// In how many ms the program has to come back for the session even if nothing arrives; -1: not at all.
int64_t ComeBackIn(const MediaSession &session);

// ---- Who is in it ----

// The session leaves the watch that it is in for this one (null: none).
void MoveTo(MediaSession &session, Watch *watch);
// It goes back to its own, if it has one.
void LeaveGroup(MediaSession &session);
// The session is released.
void ReleaseLoop(MediaSession &session);

} // namespace rtsptap
