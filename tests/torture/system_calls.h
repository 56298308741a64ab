// What the library under torture calls instead of the system: in a copy of its archive these calls are renamed
// (CMakeLists.txt), so nobody else's are touched. One chosen call fails; all that the library takes is counted and
// must be given back, and it may use no descriptor but its own. Threads: any.
#pragma once

namespace torture {

// What happens to a call: it fails with an error, a positive number, or
enum Effect : int {
    kStrikes = -10, // it fails for want of memory, and so does every later one
    kShort,         // it moves half the bytes, at least one
    kNothing        // it gives 0: closed, an empty datagram, nothing ready, a wake-up without reason
};

struct Fault {
    const char *call; // see system_calls.cpp
    int effect;
    bool isRepeated = false; // the library makes the call again
};

// The nth such call from now (0: the next) meets the fault. From then on, unless it is repeated, a wait in which
// nothing happens is cut to 30 ms, and the waiting thread finds its clock moved on by the rest.
void Arm(Fault fault, long nth);
bool HasStruck();

// What the library has kept or done wrong since the last look; empty when all is as it should be.
const char *Complaint();

} // namespace torture
