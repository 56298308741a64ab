// Writing what a command puts out, and what is said when that fails.
#pragma once

#include "base/outcome.h"

#include <cstdio>
#include <string>

namespace tool {

constexpr const char *kStandardOutput = "standard output";

// "name: No space left on device"; error: the errno of it, or 0 when there is none.
Outcome WriteFailure(const std::string &name, int error);

// The whole text, flushed.
Outcome WriteText(FILE *file, const std::string &text, const std::string &name);

// A reader of standard output that has enough, as head, is no failure to talk about: as if ended by SIGPIPE.
Outcome QuietIfAbandoned(const Outcome &outcome, FILE *standardOutput);

// A file that is there as a whole or not at all. Takes its place in the file system before anything is connected;
// one of before stays until the new one is complete.
class PageFile {
public:
    PageFile() = default;
    ~PageFile(); // leaves nothing behind that is not complete
    PageFile(const PageFile &) = delete;
    PageFile &operator=(const PageFile &) = delete;

    Outcome Open(const std::string &path, FILE *standardOutput); // "-": standard output
    Outcome Write(const std::string &page);

private:
    std::string Name() const;

    std::string path_;
    std::string temporary_; // empty: written in place, since it is a pipe, say
    bool owned_ = false;
    FILE *file_ = nullptr;
};

} // namespace tool
