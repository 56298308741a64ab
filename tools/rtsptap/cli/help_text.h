// The manual as text, in the forms it is read in.
#pragma once

#include "cli/manual.h"

#include <string>

namespace tool {

// For --help: of one command, or, without one, of the whole program.
std::string HelpText(const Manual &manual, const std::string &command);

// Section 1 of the system's manual, as troff.
std::string ManPage(const Manual &manual);

// What a shell ("bash", "zsh" or "fish") reads to complete command lines; empty for any other.
std::string Completion(const Manual &manual, const std::string &shell);

} // namespace tool
