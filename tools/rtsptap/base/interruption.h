// SIGINT, SIGTERM and SIGHUP. The first one asks the command to finish; the second one ends the program at once,
// whatever its thread is held up by.
#pragma once

#include "rtsptap_extended.h"

#include <chrono>

namespace tool {

class Interruption {
public:
    Interruption(); // one at a time
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    int Signal() const;                              // 0: there was none
    int WaitFor(std::chrono::milliseconds duration); // the signal as soon as there was one, else 0

    // A signal ends its wait. Never destroyed: a signal may come at any time.
    RTSPTapGroup *Group() const;
};

} // namespace tool
