#include "outcome.h"

#include "rtsptap.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

struct Meaning {
    int32_t result;
    ExitCode code;
    const char *text;
};

constexpr Meaning kMeanings[] = {
    {RTSP_CONNECT_FAILED, ExitCode::kUnreachable, "connection refused, or the server cannot be reached"},
    {RTSP_NOT_CONNECTED, ExitCode::kUnreachable, "connection refused, or the server cannot be reached"},
    {RTSP_SOCKET_FAILED, ExitCode::kUnreachable, "no socket could be created"},
    {RTSP_NO_RESPONSE, ExitCode::kUnreachable, "the server closed the connection instead of replying"},
    {RTSP_SEND_FAILED, ExitCode::kUnreachable, "the request could not be sent"},
    {RTSP_RESPONSE_TIMEOUT, ExitCode::kTimeout, "no reply within 25 seconds"},
    {RTSP_UNAUTHORIZED, ExitCode::kAuthentication, "user name and password are missing or wrong (401)"},
    {RTSP_CLIENT_ERROR, ExitCode::kClientError, "the server refuses the request (4xx)"},
    {RTSP_SERVER_ERROR, ExitCode::kServerError, "the server failed (5xx)"},
    {RTSP_REDIRECTED, ExitCode::kRedirected, "the server sends us elsewhere (3xx)"},
    {RTSP_BAD_RESPONSE, ExitCode::kNotUnderstood, "the reply or its description is not understood"},
    {RTSP_BAD_NUMBER, ExitCode::kNotUnderstood, "a number in the reply is not understood"},
    {RTSP_INVALID_SESSION, ExitCode::kNotUnderstood, "the reply belongs to another session"},
    {RTSP_MULTICAST_FAILED, ExitCode::kNotUnderstood, "the multicast transport of the reply cannot be used"},
    {RTSP_NO_MEMORY, ExitCode::kUsage, "out of memory"},
    {RTSP_INVALID_ARGUMENT, ExitCode::kUsage, "an argument is out of range"},
};

} // namespace

Outcome OutcomeOfCall(const std::string &phase, int32_t result) {
    if (result == RTSP_SUCCESS) return {};
    const Meaning *meaning = std::find_if(std::begin(kMeanings), std::end(kMeanings),
                                          [result](const Meaning &row) { return row.result == result; });
    if (meaning == std::end(kMeanings))
        return {ExitCode::kUsage, phase + ": failed with code " + std::to_string(result)};
    return {meaning->code, phase + ": " + meaning->text};
}

Outcome OutcomeOfSignal(int signal) {
    return {static_cast<ExitCode>(static_cast<int>(ExitCode::kSignal) + signal), ""};
}

} // namespace tool
