// What the program says of itself, in the forms in which it is read.
#pragma once

#include "cli/command.h"

#include <string>

namespace tool {

// For --help: of a command, or, without one, of the whole program.
std::string HelpText(const Manual &manual, const Command *command);

// Section 1 of the system's manual, as troff.
std::string ManPage(const Manual &manual, const std::string &version);

} // namespace tool
