// The figures for programs: one JSON object a second, one line each, and a summary at the end.
#pragma once

#include "reception/observation.h"

#include <cstdio>
#include <memory>
#include <string>

namespace tool {

// The file is opened at once; "-" is standardOutput. Fails with kOutputFailed, here or in Finish.
Outcome OpenStatsJson(const std::string &file, FILE *standardOutput, std::unique_ptr<Watcher> &watcher);

} // namespace tool
