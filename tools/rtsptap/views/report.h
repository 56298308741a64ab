// What arrived, as a table, and whether it was enough.
#pragma once

#include "cli/outcome.h"
#include "reception/statistics.h"
#include "session/session.h"

#include <cstdio>
#include <vector>

namespace tool {

struct StreamReport {
    Stream stream;
    StreamStatistics statistics;
};

// One line per stream, columns aligned. False when it could not be written.
bool PrintReport(FILE *out, const std::vector<StreamReport> &report);

// Ok only when every stream delivered.
Outcome JudgeReport(const std::vector<StreamReport> &report);

} // namespace tool
