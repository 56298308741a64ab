// What the library prints, for a test to compare: descriptor 1 goes to a file in memory meanwhile.
#pragma once

#include <string>

class CapturedStdout {
public:
    explicit CapturedStdout(bool discard = false); // discard: keeps nothing, however much comes
    ~CapturedStdout();
    CapturedStdout(const CapturedStdout &) = delete;
    CapturedStdout &operator=(const CapturedStdout &) = delete;

    // Everything printed since the capture began, from any thread. May be asked repeatedly.
    std::string Text();

private:
    int savedFd_;
    int memoryFd_;
};
