// The part of the report's page about one stream: its figures and its plots.
#pragma once

#include "views/probe_result.h"
#include "views/series.h"

#include <string>

namespace tool {

// probed: what the description says of it; null: nothing.
std::string StreamSection(const StreamObservation &stream, const ProbedStream *probed,
                          const std::vector<SeriesPoint> &series);

} // namespace tool
