// When the streams of a session show themselves: the first packet, the first key frame, what the pictures are.
#pragma once

#include "reception/statistics.h"
#include "views/probe_result.h"

#include <mutex>
#include <vector>

namespace tool {

// Noted on the threads that read; asked by any.
class Arrivals {
public:
    void Begin(std::vector<ProbedStream> streams); // PLAY was answered
    void Note(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival);
    bool AreComplete() const; // every stream has shown itself
    std::vector<ProbedStream> Streams() const;

private:
    mutable std::mutex lock_; // guards the two below
    std::vector<ProbedStream> streams_;
    Clock::time_point begin_;
};

} // namespace tool
