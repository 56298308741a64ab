// How many threads the process has. One that has been joined shows in /proc until the kernel has put it away, so a
// mere count of entries is now and then too high: those on their way out are not counted.
#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace rtsptap::test {

inline bool IsLeaving(const std::filesystem::path &task) {
    constexpr unsigned kExiting = 4; // PF_EXITING of the kernel
    std::string facts;
    if (!std::getline(std::ifstream(task / "stat"), facts)) return true;
    unsigned flags = 0; // proc(5): the seventh field behind the name in parentheses
    sscanf(facts.c_str() + facts.rfind(')'), ") %*c %*d %*d %*d %*d %*d %u", &flags);
    return (flags & kExiting) != 0;
}

inline std::size_t CountThreads() {
    static const bool begun =
        (std::thread([] {}).join(), true); // a sanitizer's own thread comes with the first one
    std::size_t count = begun ? 0 : 1;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task"))
        count += !IsLeaving(task.path());
    return count;
}

} // namespace rtsptap::test
