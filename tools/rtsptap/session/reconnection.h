// How often, and after which pauses, a server is tried again.
#pragma once

#include "base/outcome.h"

#include <chrono>
#include <optional>
#include <random>

namespace tool {

class Reconnection {
public:
    // Attempts in a row; 0: without end; none: not at all.
    explicit Reconnection(std::optional<int> limit) : limit_(limit) {}

    bool IsWorthwhile(const Outcome &failure) const; // it may pass, and attempts are left

    std::chrono::milliseconds NextPause(); // counts the attempt
    int Attempt() const { return attempt_; }
    // Counts anew after a session that delivered for longer than the pause before it: a server that breaks off at
    // once, again and again, is one that fails.
    void NoteSession(std::chrono::nanoseconds delivered) {
        if (delivered > pause_) attempt_ = 0;
    }

private:
    const std::optional<int> limit_;
    int attempt_ = 0;
    std::chrono::milliseconds pause_{0}; // before the current session
    std::minstd_rand random_{std::random_device{}()};
};

} // namespace tool
