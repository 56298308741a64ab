#include "base/outcome.h"

#include "base/secrets.h"
#include "base/text.h"
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
    {RTSP_INVALID_HEADER_LIST, ExitCode::kUsage, "a header of -H cannot go with it, or its port is taken"},
    {RTSP_HEADER_NAME, ExitCode::kUsage, "a header of -H is given twice"},
    {RTSP_NO_MEMORY, ExitCode::kUsage, "out of memory"},
    {RTSP_INVALID_ARGUMENT, ExitCode::kUsage, "an argument is out of range"},
};

ExitCode CodeOfStatus(int status) {
    if (status >= 500) return ExitCode::kServerError;
    if (status == 401) return ExitCode::kAuthentication;
    if (status == 404 || status == 410) return ExitCode::kNotFound;
    return status >= 400 ? ExitCode::kClientError : ExitCode::kRedirected;
}

bool IsRefusal(int32_t result) {
    return result == RTSP_REDIRECTED || result == RTSP_UNAUTHORIZED || result == RTSP_CLIENT_ERROR ||
           result == RTSP_SERVER_ERROR;
}

} // namespace

Outcome OutcomeOfCall(const std::string &phase, int32_t result) {
    if (result == RTSP_SUCCESS) return {};
    const Meaning *meaning = std::find_if(std::begin(kMeanings), std::end(kMeanings),
                                          [result](const Meaning &row) { return row.result == result; });
    if (meaning == std::end(kMeanings))
        return {ExitCode::kUsage, phase + ": failed with code " + std::to_string(result)};
    return {meaning->code, phase + ": " + meaning->text};
}

// A reply of 201, say, counts as success in the library and yet changes nothing.
Outcome OutcomeOfRequest(const std::string &phase, int32_t result, const Reply &reply) {
    const std::string said = phase + ": " + Presentable(reply.statusLine);
    if (result == RTSP_SUCCESS && reply.status != kOk && reply.status != 0)
        return {ExitCode::kNotUnderstood, said + " is no answer that can be used"};
    if (!IsRefusal(result) || reply.status == 0) return OutcomeOfCall(phase, result);
    const std::string location = HeaderOf(reply, "Location");
    const bool elsewhere = result == RTSP_REDIRECTED && !location.empty();
    return {CodeOfStatus(reply.status),
            elsewhere ? said + ": the server sends us to " + Presentable(location) : said};
}

Outcome OutcomeOfTimeout(const std::string &phase, std::chrono::milliseconds limit) {
    const std::string what = phase.rfind("connect", 0) == 0 ? "no connection"
                             : phase == "resolve"           ? "no answer"
                                                            : "no reply";
    return {ExitCode::kTimeout, phase + ": " + what + " within " + TimeText(limit)};
}

Outcome OutcomeOfSignal(int signal) {
    return {static_cast<ExitCode>(static_cast<int>(ExitCode::kSignal) + signal), ""};
}

} // namespace tool
