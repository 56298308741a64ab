// What goes wrong during a reception, said once on standard error, with what helps against it: little socket
// buffer, datagrams that the kernel dropped, a silent stream, loss.
#pragma once

#include "reception/observation.h"

#include <memory>

namespace tool {

std::unique_ptr<Watcher> MakeWarnings();

} // namespace tool
