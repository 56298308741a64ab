// --man for the small programs: the manual page, out of what --help knows.
#pragma once

#include <CLI/CLI.hpp>

// Adds the option. The app's footer is the DESCRIPTION. Called after all other options were added.
void AddManPage(CLI::App &app);
