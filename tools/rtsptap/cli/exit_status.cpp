#include "cli/exit_status.h"

#include <csignal>

namespace tool {
namespace {

constexpr int Number(ExitCode code, int signal = 0) { return static_cast<int>(code) + signal; }

constexpr ExitStatus kExitStatuses[] = {
    {Number(ExitCode::kOk), "all was well"},
    {Number(ExitCode::kUsage), "the command line cannot be followed"},
    {Number(ExitCode::kNameNotResolved), "the server's name has no address"},
    {Number(ExitCode::kUnreachable), "the server refuses the connection or cannot be reached"},
    {Number(ExitCode::kTimeout), "the server did not answer in time; the text names the step"},
    {Number(ExitCode::kAuthentication), "user name or password is missing or wrong"},
    {Number(ExitCode::kNotFound), "the server knows no such address (404)"},
    {Number(ExitCode::kClientError), "the server refuses the request (another 4xx)"},
    {Number(ExitCode::kServerError), "the server failed (5xx)"},
    {Number(ExitCode::kRedirected), "the server sends us elsewhere (3xx)"},
    {Number(ExitCode::kNotUnderstood), "a reply or a description is not understood"},
    {Number(ExitCode::kNoSupportedStream), "no stream has a codec that can be received"},
    {Number(ExitCode::kNoMedia), "no media arrived"},
    {Number(ExitCode::kEndedEarly), "the media ended before it should"},
    {Number(ExitCode::kHealthLimit), "a limit of the health check was not kept"},
    {Number(ExitCode::kOutputFailed), "the output could not be written"},
    {Number(ExitCode::kSignal, SIGHUP), "ended by SIGHUP (the terminal is gone); files are complete"},
    {Number(ExitCode::kSignal, SIGINT), "ended by SIGINT (Ctrl-C); files are complete"},
    {Number(ExitCode::kSignal, SIGPIPE), "nobody reads standard output any more, as after head"},
    {Number(ExitCode::kSignal, SIGTERM), "ended by SIGTERM; files are complete"},
};

} // namespace

std::span<const ExitStatus> ExitStatuses() { return kExitStatuses; }

const char *MeaningOf(ExitCode code) {
    for (const ExitStatus &row : kExitStatuses)
        if (row.number == Number(code)) return row.meaning;
    return "";
}

} // namespace tool
