// How far a command of known length is: one line on standard error, only where that is a terminal.
#pragma once

#include "statistics.h"

#include <string>

namespace tool {

class Progress {
public:
    // What is of no length is 0; split: how long one file becomes.
    Progress(std::chrono::milliseconds duration, std::chrono::milliseconds split);
    ~Progress(); // leaves the line and begins the next
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void Show(Clock::duration elapsed, uint64_t bytes);

private:
    const std::chrono::milliseconds duration_;
    const std::chrono::milliseconds split_;
    const bool shows_;
    bool shown_ = false;
    Clock::time_point lastShown_{};
};

// "[######..............] 00:18 of 01:00, 00:42 left, 3.4 MB"
std::string ProgressLine(std::chrono::milliseconds elapsed, std::chrono::milliseconds duration,
                         std::chrono::milliseconds split, uint64_t bytes);

} // namespace tool
