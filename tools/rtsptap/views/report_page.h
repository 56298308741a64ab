// The page about a reception: one HTML file that needs neither scripts nor other files. Texts in it may come from
// anywhere, so they are escaped where they are put in.
#pragma once

#include "views/history.h"
#include "views/probe_result.h"

#include <string>
#include <vector>

namespace tool {

struct ReportPage {
    ProbeResult probed;
    std::vector<std::string> omissions; // streams that are left out, a sentence each
    std::string time;                   // when it began
};

std::string HtmlReport(const ReportPage &page, const SeriesRecorder &recorder, const EventLog &events);

// Its parts that report_plots.cpp draws: what is measured, in the unit that suits the value, "1.5 Mbit/s"; and the
// plots of a stream as SVG, whose colours come from the page's style.
enum class Measure { kBitRate, kPercent, kMilliseconds, kPackets };
std::string MeasureText(Measure measure, double value);
std::string DrawPlots(const std::vector<SeriesPoint> &series);

} // namespace tool
