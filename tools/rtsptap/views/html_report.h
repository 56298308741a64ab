// The page about a reception: one self-contained HTML file that needs neither scripts nor other files.
#pragma once

#include "views/events.h"
#include "views/probe_result.h"
#include "views/series.h"

#include <string>
#include <vector>

namespace tool {

struct ReportPage {
    ProbeResult probed;
    std::vector<std::string> omissions; // streams that are left out, a sentence each
    std::string time;                   // when it began
};

std::string HtmlReport(const ReportPage &page, const SeriesRecorder &recorder, const EventLog &events);

} // namespace tool
