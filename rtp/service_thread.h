// A started receive thread, which serves a socket or two, and what its starter and its successor tell it.
// Control functions run on the application's thread. A thread body tests its control block on every pass.
//
// Starting where a thread already serves is a hand-over: the new thread asks the old one to yield, joins it
// and goes on where it stopped, so that a socket or ring never has two readers and nothing is lost.
#pragma once

#include "rtsptap.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;
struct Service;

inline constexpr uint32_t kPausedSleepMs = 10; // how often a thread of a paused stream looks at its orders

inline constexpr std::size_t kMostServed = 3;              // a stream's RTP and RTCP, and the RTSP connection
using Services = std::array<const Service *, kMostServed>; // null behind the last one

struct StreamThread {
    // ---- Constant once the thread runs ----
    RTSPStreamInfo *stream = nullptr;
    Services services = {};
    std::size_t served = 0;              // how many places of that are looked at
    uint32_t dataProto = DATA_PROTO_UDP; // how the session receives, taken once
    int wake = -1;                       // eventfd, readable when the thread is to look around
    bool isWatched = false;              // the reader watch runs for it
    bool hasThread = true;               // false: calls of the program serve in its place; no wake then

    // ---- Starting thread, then the new thread, which joins and frees it ----
    StreamThread *predecessor = nullptr;

    // ---- The thread itself ----
    std::array<bool, kMostServed> over = {}; // services that have ended
    uint32_t visitsSeen = 0;                 // of readers, when it last looked
    bool hasRested = false;                  // for readers, and has not looked since
    bool isFull = false;                     // without a thread: the ring was, and no packet has come back since

    std::array<int, kMostServed> watchedSockets = {-1, -1, -1}; // without a thread: in the watch, by service

    // ---- Control thread only ----
    pthread_t handle = {};

    // ---- Written by one, read by the other ----
    std::atomic<bool> stop{false};     // the session ends
    std::atomic<bool> yield{false};    // a successor waits to take over
    std::atomic<bool> tookOver{false}; // the predecessor has been joined
    std::atomic<bool> ended{false};    // the body has returned
};

inline bool MustEnd(const StreamThread &thread) {
    return thread.stop.load(std::memory_order_acquire) || thread.yield.load(std::memory_order_acquire);
}

// True while a thread was started and its body has not returned.
bool IsServing(const StreamThread *thread);

// Starts a thread for services of the stream, taking over from the thread in `slot` if there is one; the slot then
// holds the new thread. When no thread can be created the slot keeps what it had. At most two threads of a slot are
// alive: a hand-over still under way is waited for first. Of a session without threads only the record changes.
void StartStreamThread(StreamThread *&slot, RTSPStreamInfo &stream, const Services &services);

// Makes a thread that waits look around: what it waits on has changed.
void WakeStreamThread(const StreamThread &thread);

// Takes note of all wake-ups so far.
void DrainWake(int wake);

// Tells the thread to end, shuts `socket` down to wake it, joins it and clears the slot. The socket stays open.
void StopStreamThread(StreamThread *&slot, int socket);

} // namespace rtsptap
