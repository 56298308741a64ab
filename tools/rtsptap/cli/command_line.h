// From the words of the command line to the command that they name, with its settings filled.
#pragma once

#include "cli/command.h"

#include <string>

namespace tool {

struct CommandLine {
    const Command *command = nullptr; // of the manual; null, where a page is asked for: the whole program
    std::string page;                 // "help", "version" or "man" instead, which are asked for by options
};

// Fills line. A refusal is one sentence and, on a second line, where to read on; it never repeats an argument that
// may hold a password.
Outcome ParseCommandLine(int argc, char **argv, const Manual &manual, CommandLine &line);

} // namespace tool
