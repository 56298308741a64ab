// What this program is made of.
#pragma once

#include <string>

namespace tool {

std::string ProgramVersion(); // "0.1.0"

// For --version: also the compiler, the libraries and those that are missing, and which file the rtsptap library
// is.
std::string BuildFacts();

} // namespace tool
