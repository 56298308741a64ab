// The drift between a sender's clock and ours, by its reports. Whoever handles a stream's RTCP.
#pragma once

#include "rtp/statistics.h"

namespace rtsptap {

// A report that came at `local` seconds of a clock that nobody sets: fills in driftPpm and driftReports. The last
// one is still in `statistics`.
void CountDrift(StreamStatistics &statistics, ReportFigures &report, double local);

} // namespace rtsptap
