// Writing what a command puts out, and what is said when that fails.
#pragma once

#include "base/outcome.h"

#include <cstdio>
#include <string>

namespace tool {

constexpr const char *kStandardOutput = "standard output";

// "name: No space left on device"; error: the errno of it, or 0 when there is none.
Outcome WriteFailure(const std::string &name, int error);

// The whole text, flushed.
Outcome WriteText(FILE *file, const std::string &text, const std::string &name);

// A reader of standard output that has enough, as head, is no failure to talk about: as if ended by SIGPIPE.
Outcome QuietIfAbandoned(const Outcome &outcome, FILE *standardOutput);

} // namespace tool
