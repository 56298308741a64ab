// What the library says goes nowhere, or, when asked for, to standard error: requests as "> ", replies as "< ",
// other lines as they are. Standard output is for data.
#pragma once

#include <cstdio>
#include <string_view>

namespace tool {

class LibraryOutput {
public:
    explicit LibraryOutput(bool show);
    ~LibraryOutput(); // what the library still says is lost
    LibraryOutput(const LibraryOutput &) = delete;
    LibraryOutput &operator=(const LibraryOutput &) = delete;

    FILE *Data() const { return stdout; }
};

// What a server replied, in its place among what the library says, where that is shown. Any thread.
void ShowReply(std::string_view text);

} // namespace tool
