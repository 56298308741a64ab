// What arrived, as a table, and whether it was enough.
#pragma once

#include "reception/observation.h"

#include <string>
#include <vector>

namespace tool {

// One line per stream, columns aligned.
std::string ReportTable(const std::vector<StreamObservation> &streams);

// Ok only when every stream delivered.
Outcome JudgeStreams(const std::vector<StreamObservation> &streams);

} // namespace tool
