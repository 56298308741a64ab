#include "base/outcome.h"

#include "base/secrets.h"
#include "base/text.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <csignal>
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
    {RTSPTAP_HOST_NOT_FOUND, ExitCode::kNameNotResolved, "the server's name has no address"},
    {RTSPTAP_BAD_URL, ExitCode::kUsage, "the URL is none that can be opened"},
    {RTSPTAP_NO_TLS, ExitCode::kUsage, "this rtsptap was built without TLS"},
    {RTSPTAP_BAD_TLS_ROOTS, ExitCode::kUsage, "the file of --ca-file cannot be used"},
    {RTSPTAP_BAD_TLS_CERTIFICATE, ExitCode::kUsage, "the file of --client-cert cannot be used"},
    {RTSPTAP_NO_PROTECTION, ExitCode::kNoSupportedStream,
     "the stream is protected, and this rtsptap was built without SRTP"},
    {RTSPTAP_BAD_KEYS, ExitCode::kNoSupportedStream, "the stream is protected, by keys that cannot be used"},
    {RTSPTAP_CERTIFICATE_REFUSED, ExitCode::kUnreachable, "the server's certificate is refused"},
    {RTSPTAP_HANDSHAKE_FAILED, ExitCode::kUnreachable, "no connection through TLS or HTTP"},
    {RTSPTAP_HANDSHAKE_TIMEOUT, ExitCode::kTimeout, "no connection through TLS or HTTP in time"},
    {RTSPTAP_TUNNEL_REFUSED, ExitCode::kUnreachable, "the server refuses a tunnel through HTTP"},
    {RTSPTAP_BAD_TUNNEL, ExitCode::kNotUnderstood, "no tunnel through HTTP"},
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

ExitCode CodeOfStatus(int status) {
    if (status >= 500) return ExitCode::kServerError;
    if (status == 401) return ExitCode::kAuthentication;
    if (status == 404 || status == 410) return ExitCode::kNotFound;
    return status >= 400 ? ExitCode::kClientError : ExitCode::kRedirected;
}

bool IsRefusal(int32_t result) {
    return result == RTSP_REDIRECTED || result == RTSP_UNAUTHORIZED || result == RTSPTAP_UNKNOWN_CHALLENGE ||
           result == RTSP_CLIENT_ERROR || result == RTSP_SERVER_ERROR;
}

} // namespace

std::span<const ExitStatus> ExitStatuses() { return kExitStatuses; }

const char *MeaningOf(ExitCode code) {
    for (const ExitStatus &row : kExitStatuses)
        if (row.number == Number(code)) return row.meaning;
    return "";
}

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
