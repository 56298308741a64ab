// What arrived, as a table, and whether it was enough.
#pragma once

#include "reception/observation.h"

#include <string>
#include <vector>

namespace tool {

// One line per stream, columns aligned and as many as the width allows; below it what was without media, and
// reconnections.
std::string ReportTable(const Observation &observation, std::size_t width);

// Ok only when every stream delivered.
Outcome JudgeStreams(const std::vector<StreamObservation> &streams);

} // namespace tool
