// How far a command of known length is: one line on standard error, redrawn on a terminal; elsewhere one every ten
// seconds.
#pragma once

#include "reception/observation.h"

#include <chrono>
#include <memory>

namespace tool {

// What is of no length is 0; split: how long one file becomes.
std::unique_ptr<Watcher> MakeProgress(std::chrono::milliseconds duration, std::chrono::milliseconds split);

} // namespace tool
