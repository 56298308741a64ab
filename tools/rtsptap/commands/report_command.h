// rtsptap report: receives for a while and writes a page about it.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"
#include "base/settings.h"

#include <chrono>
#include <cstdio>
#include <string>

namespace tool {

struct ReportSettings {
    ServerSettings server;
    std::chrono::milliseconds duration{60000};
    std::string output; // the HTML file; "-": standard output
};

Outcome WriteReport(const ReportSettings &settings, FILE *standardOutput, Interruption &interruption);

} // namespace tool
