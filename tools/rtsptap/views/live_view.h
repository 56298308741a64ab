// How a reception goes, while it goes: one line for each stream on standard error. On a terminal the lines are
// redrawn up to four times a second; elsewhere one is added for each stream every ten seconds.
#pragma once

#include "reception/observation.h"

#include <memory>

namespace tool {

std::unique_ptr<Watcher> MakeLiveView();

} // namespace tool
