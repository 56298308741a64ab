// Tables in tests/data: a case a line, its fields apart by " => ". Lines that begin with '#' are comments; in a row
// "\xHH" is a byte, <N*TEXT> is TEXT so many times, and "|" stands for the end of a line.
#pragma once

#include <string>
#include <vector>

namespace rtsptap::test {

std::vector<std::vector<std::string>> Rows(const std::string &file);
std::string Literal(std::string text);                         // bytes and repetitions written out
std::string Lines(std::string text, const char *end = "\r\n"); // "|" written out
std::string OnOneLine(std::string text);                       // the way back, for what was printed

} // namespace rtsptap::test
