// Whether a reception kept to the limits that were set for it.
#pragma once

#include "cli/settings.h"
#include "reception/observation.h"

#include <memory>
#include <string>

namespace tool {

// Reads "64000", "500k", "2M", "1.5G" as bits per second; false when it is none of these.
bool ParseBitRate(const std::string &text, double &bitsPerSecond);

// Judges at the end: kHealthLimit names every limit that was not kept. Ok when nothing at all arrived, which
// is told in its own way.
std::unique_ptr<Watcher> MakeHealthCheck(const HealthSettings &settings);

} // namespace tool
