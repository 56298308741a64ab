// The exit statuses and what they mean; help, man page and main read this one table.
#pragma once

#include "base/outcome.h"

#include <span>

namespace tool {

struct ExitStatus {
    int number;
    const char *meaning;
};

std::span<const ExitStatus> ExitStatuses();

const char *MeaningOf(ExitCode code); // empty when there is none

} // namespace tool
