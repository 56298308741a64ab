// Standard error of the process: lines that stay, and on a terminal a few below them that are redrawn in place.
// Whatever is said while media is received goes through here, so that nothing tears the redrawn lines. Any thread.
#pragma once

#include <string>
#include <vector>

namespace tool {

// "rtsptap: text", above the redrawn lines.
void PrintNotice(const std::string &text);

// A line of its own, as it is, above the redrawn lines.
void PrintLine(const std::string &line);

// In place of those drawn before. Only for terminals; each line must fit the width.
void DrawLines(const std::vector<std::string> &lines);

// What is drawn stays where it is: what is written next begins below. Also before anybody else uses standard error.
void KeepLines();

// Without control characters: what a server says of itself does not command the terminal.
std::string Printable(std::string text);

bool IsTerminal();             // lines can be redrawn on standard error: a terminal, TERM not "dumb"
bool MayUseColor();            // and NO_COLOR is not set
std::size_t TerminalColumns(); // its width now; 80 when unknown

} // namespace tool
