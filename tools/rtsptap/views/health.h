// Whether a reception kept to the limits that were set for it.
#pragma once

#include "base/settings.h"
#include "reception/observation.h"

#include <memory>

namespace tool {

// Judges at the end: kHealthLimit names every limit that was not kept. Ok when nothing at all arrived, which
// is told in its own way.
std::unique_ptr<Watcher> MakeHealthCheck(const HealthSettings &settings);

} // namespace tool
