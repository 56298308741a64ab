#include "session/reconnection.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr double kFirstPauseMs = 1000;
constexpr double kLongestPauseMs = 30000;
constexpr int kMostDoublings = 5;
constexpr double kJitter = 0.2; // so that many clients do not come back at once

constexpr ExitCode kPassing[] = {ExitCode::kNameNotResolved, ExitCode::kUnreachable, ExitCode::kTimeout,
                                 ExitCode::kServerError,     ExitCode::kNoMedia,     ExitCode::kEndedEarly};

} // namespace

bool Reconnection::IsWorthwhile(const Outcome &failure) const {
    const bool passes = std::find(std::begin(kPassing), std::end(kPassing), failure.code) != std::end(kPassing);
    return passes && limit_ && (*limit_ == 0 || attempt_ < *limit_);
}

std::chrono::milliseconds Reconnection::NextPause() {
    const double pause = std::min(kFirstPauseMs * (1 << std::min(attempt_, kMostDoublings)), kLongestPauseMs);
    ++attempt_;
    std::uniform_real_distribution<double> jitter(1 - kJitter, 1 + kJitter);
    pause_ = std::chrono::milliseconds(static_cast<int64_t>(pause * jitter(random_)) / 100 * 100); // as it is shown
    return pause_;
}

} // namespace tool
