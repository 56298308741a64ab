// What the library calls instead of the system in the tests, the torture and the fuzzers of whole sessions: in a
// copy of its archive these calls are renamed (system_calls.cmake), so nobody else's are touched. One chosen call
// fails, time runs faster; all that the library takes is counted and must be given back, and it may use no
// descriptor but its own. Threads: any.
#pragma once

#include <atomic>
#include <functional>
#include <string>

namespace torture {

// What another thread may do just there: runs when this thread next reads the clock, through the library.
extern thread_local std::function<void()> atNextClock;
extern thread_local std::function<void()> atNextAlarm; // the same before it sets an alarm
extern thread_local std::function<void()> atNextSleep; // and before it sleeps

// What happens to a call: it fails with an error, a positive number, or
enum Effect : int {
    kStrikes = -10, // it fails for want of memory, and so does every later one
    kShort,         // it moves half the bytes, at least one
    kNothing        // it gives 0: closed, an empty datagram, nothing ready, a wake-up without reason
};

// While it is set the name server does not answer; and how often the library has asked.
extern std::atomic<bool> namesHang;
extern std::atomic<int> namesAsked;

struct Fault {
    std::string call; // see system_calls.cpp
    int effect;
    bool isRepeated = false; // the library makes the call again
};

// The nth such call from now (0: the next) meets the fault. From then on, unless it is repeated, time hurries.
void Arm(const Fault &fault, long nth);
void Hurry(); // from now on the library's clocks and waits go a thousand times faster, up to the next Arm
bool HasStruck();

// What the library called on this thread, since the last look, that may wait: a lock that is taken counts as no
// wait, nor does a join. Empty when it called nothing.
std::string WhatMayWait();

// What the library has kept or done wrong since the last look; empty when all is as it should be.
const char *Complaint();

} // namespace torture
