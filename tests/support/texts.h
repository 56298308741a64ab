// Tables in tests/data: a case a line, its fields apart by " => ". Lines that begin with '#' are comments; in a row
// "\xHH" is a byte, <N*TEXT> is TEXT so many times, and "|" stands for the end of a line.
// And what the library prints, for a test to compare.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Descriptor 1 goes to a file in memory meanwhile.
class CapturedStdout {
public:
    explicit CapturedStdout(bool discard = false); // discard: keeps nothing, however much comes
    ~CapturedStdout();
    CapturedStdout(CapturedStdout &&) = delete; // nor copied

    // Everything printed since the capture began, from any thread. May be asked repeatedly.
    std::string Text();

private:
    int savedFd_, memoryFd_;
};

namespace rtsptap::test {

std::vector<std::vector<std::string>> Rows(const std::string &file);
std::string Literal(std::string text);                         // bytes and repetitions written out
std::string Lines(std::string text, const char *end = "\r\n"); // "|" written out
std::string Hex(const uint8_t *bytes, int64_t size);           // small digits
std::size_t CountOf(const std::string &text, const std::string &part);
std::string ContentOf(const std::string &path);
std::string OnOneLine(std::string text); // the way back, for what was printed

} // namespace rtsptap::test
