// A program that a test starts, reads and ends by its process id.
#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rtsptap::test {

class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string> &arguments); // [0] is the program, looked for in PATH
    ~ChildProcess(); // SIGTERM, and SIGKILL where that does not help
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    std::string ReadLine(std::chrono::seconds limit); // of standard output; empty after the limit
    void Signal(int signal) const;
    int Wait(std::chrono::seconds limit); // exit status, 128 + n after signal n, -1 when it goes on

    std::string Output() const; // so far; standard output, ReadLine's lines taken out
    std::string Errors() const; // so far; standard error

private:
    pid_t pid_ = -1;
    int outputFile_; // in memory, like the next
    int errorFile_;
    std::size_t bytesRead_ = 0; // by ReadLine
};

} // namespace rtsptap::test
