// What goes wrong during a reception, said once on standard error, with what helps against it: little socket
// buffer, datagrams that the kernel dropped, a silent stream, loss.
#pragma once

#include "cli/settings.h"
#include "reception/observation.h"

#include <memory>

namespace tool {

// Says nothing when quiet.
std::unique_ptr<Watcher> MakeWarnings(const ConsoleSettings &console);

} // namespace tool
