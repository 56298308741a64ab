// How far a command of known length is: one line on standard error, only where that is a terminal.
#pragma once

#include "cli/settings.h"
#include "reception/observation.h"

#include <memory>
#include <string>

namespace tool {

// What is of no length is 0; split: how long one file becomes. Shows nothing when quiet.
std::unique_ptr<Watcher> MakeProgress(std::chrono::milliseconds duration, std::chrono::milliseconds split,
                                      const ConsoleSettings &console);

// "[######..............] 00:18 of 01:00, 00:42 left, 3.4 MB"
std::string ProgressLine(std::chrono::milliseconds elapsed, std::chrono::milliseconds duration,
                         std::chrono::milliseconds split, uint64_t bytes);

} // namespace tool
