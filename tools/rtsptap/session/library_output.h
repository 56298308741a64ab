// Keeps standard output for data. The library prints its lines there, so descriptor 1 is moved aside before the
// first call into it: what it prints goes nowhere, or, when asked for, to standard error: requests as "> ", replies
// as
// "< ", other lines as they are.
#pragma once

#include <cstdio>
#include <string_view>
#include <thread>

namespace tool {

class LibraryOutput {
public:
    explicit LibraryOutput(bool show);
    ~LibraryOutput(); // what the library still prints is lost
    LibraryOutput(const LibraryOutput &) = delete;
    LibraryOutput &operator=(const LibraryOutput &) = delete;

    FILE *Data() const { return data_; } // the real standard output

private:
    FILE *data_ = nullptr;
    std::thread drain_; // so that a full pipe never holds up a library thread
};

// What a server replied, in its place among what the library prints, where that is shown. Any thread.
void ShowReply(std::string_view text);

} // namespace tool
