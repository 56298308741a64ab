// How a command ends: the one place that turns a result code of the library, or a server's refusal, into a text and
// an exit status.
#pragma once

#include "base/reply.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

namespace tool {

// Exit statuses; scripts rely on the numbers.
enum class ExitCode {
    kOk = 0,
    kUsage = 1,
    kNameNotResolved = 2,
    kUnreachable = 3,
    kTimeout = 4,
    kAuthentication = 5,
    kNotFound = 6,
    kClientError = 7,
    kServerError = 8,
    kRedirected = 9,
    kNotUnderstood = 10,
    kNoSupportedStream = 11,
    kNoMedia = 12,
    kEndedEarly = 13,
    kHealthLimit = 14,
    kOutputFailed = 15,
    kSignal = 128 // plus the signal's number, as 130 for SIGINT
};

struct ExitStatus {
    int number;
    const char *meaning;
};

std::span<const ExitStatus> ExitStatuses(); // all of them, those of signals, too

const char *MeaningOf(ExitCode code); // empty when there is none

struct Outcome {
    ExitCode code = ExitCode::kOk;
    std::string text; // for standard error; empty when there is nothing to say

    bool IsOk() const { return code == ExitCode::kOk; }
};

// What the result of a library call means to the user; phase names the step, as in "DESCRIBE".
Outcome OutcomeOfCall(const std::string &phase, int32_t result);

// The same for a request: where the server refused, its own words tell.
Outcome OutcomeOfRequest(const std::string &phase, int32_t result, const Reply &reply);

// A step that took too long.
Outcome OutcomeOfTimeout(const std::string &phase, std::chrono::milliseconds limit);

Outcome OutcomeOfSignal(int signal);

} // namespace tool
