// A file that is there as a whole or not at all. Takes its place in the file system before anything is connected;
// one of before stays until the new one is complete.
#pragma once

#include "base/outcome.h"

#include <cstdio>
#include <string>

namespace tool {

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
