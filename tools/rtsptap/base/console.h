// Standard error of the process: lines that stay, and on a terminal a few below them that are redrawn in place.
// Whatever is said while media is received goes through here, so that nothing tears the redrawn lines. Any thread.
#pragma once

#include "base/settings.h"

#include <cstdio>
#include <string>
#include <vector>

namespace tool {

// What the command line asks for. Once, before a command runs.
void SetUpConsole(const ConsoleSettings &settings);

// "rtsptap: text", above the redrawn lines; a notice only unless quiet.
void PrintNotice(const std::string &text);
void PrintError(const std::string &text); // may have several lines

// A line of its own, as it is, above the redrawn lines.
void PrintLine(const std::string &line);

// In place of those drawn before, cut to the width; nothing unless MayRedraw.
void DrawLines(const std::vector<std::string> &lines);

// What is drawn stays where it is: what is written next begins below. Also before anybody else uses standard error.
void KeepLines();

// While nobody reads standard error its lines wait: what can be written is, without waiting, and with it. The
// latter also before anybody else uses standard error.
void PassLines();
void FlushLines();

bool IsQuiet();
bool MayRedraw();                  // a terminal that nothing but DrawLines writes to while media is received
bool MayUseColor();                // there
std::size_t TerminalColumns();     // its width now; 80 when unknown
std::size_t ColumnsOf(FILE *file); // the same of any terminal; of what is none 80, too

} // namespace tool
