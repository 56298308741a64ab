// What result codes mean, and which version of the library this is. Constant data, any thread.
#include "rtsptap_extended.h"

#include <algorithm>
#include <iterator>

namespace {

struct Meaning {
    int32_t code;
    const char *text;
};

constexpr Meaning kMeanings[] = {
    {RTSP_FAILURE, "failure; nothing came, or nothing was found"},
    {RTSP_MULTICAST_FAILED, "the multicast transport that the server granted is unusable"},
    {RTSP_NO_SUCH_CLIENT, "no such client"},
    {RTSP_BAD_NUMBER, "a number in a reply, description or header is not one"},
    {RTSP_UNLOCK_FAILED, "a lock could not be released"},
    {RTSP_LOCK_FAILED, "a lock could not be taken"},
    {RTSP_MUTEX_FAILED, "a lock could not be made"},
    {RTSP_CONNECT_FAILED, "connection refused, or server unreachable"},
    {RTSP_SOCKET_FAILED, "a socket could not be made"},
    {RTSP_INVALID_SESSION, "the reply names another session"},
    {RTSP_INVALID_STATE, "not allowed in the client's state"},
    {RTSP_SMALL_BUFFER, "the buffer is too small"},
    {RTSP_REDIRECTED, "the server sends elsewhere (3xx)"},
    {RTSP_CLIENT_ERROR, "the server refuses the request (4xx)"},
    {RTSP_UNAUTHORIZED, "the server asks for a password (401)"},
    {RTSP_SERVER_ERROR, "the server failed (5xx)"},
    {RTSP_BAD_RESPONSE, "the reply or its description is not readable"},
    {RTSP_NO_RESPONSE, "the server closed the connection"},
    {RTSP_RESPONSE_TIMEOUT, "no reply in time"},
    {RTSP_SEND_FAILED, "sending failed, or a step of the automatic connection"},
    {RTSP_REQUEST_NOT_BUILT, "the request could not be built"},
    {RTSP_NOT_CONNECTED, "not connected"},
    {RTSP_INVALID_HEADER_LIST, "a header is not acceptable, or a port is taken"},
    {RTSP_HEADER_NAME, "the header is in the list already, or not in it"},
    {RTSP_NO_MEMORY, "out of memory"},
    {RTSP_INVALID_ARGUMENT, "invalid argument or handle"},
    {RTSPTAP_UNKNOWN_OPTION, "no such option"},
    {RTSPTAP_OUT_OF_RANGE, "the value is out of its range"},
    {RTSPTAP_TOO_LATE, "too late: the client is connected, or receives"},
    {RTSPTAP_UNKNOWN_RULE, "no such rule"},
    {RTSPTAP_READ_ONLY, "the option is only told"},
    {RTSPTAP_SENDER_LEFT, "the stream has ended: its sender said goodbye"},
    {RTSPTAP_CONNECTION_CLOSED, "the stream has ended: the connection was closed"},
    {RTSPTAP_TORN_DOWN, "the stream has ended: the session was torn down"},
    {RTSPTAP_SESSION_TIMED_OUT, "the stream has ended: the server let the session time out"},
    {RTSPTAP_BAD_URL, "the URL is not readable, or too long"},
    {RTSPTAP_OTHER_SCHEME, "the URL is not one of rtsp"},
    {RTSPTAP_HOST_NOT_FOUND, "the host has no address"},
    {RTSPTAP_TOO_MANY_REDIRECTS, "the server redirects again and again"},
    {RTSPTAP_NO_MEDIA, "the server plays, but no packet comes"},
    {RTSPTAP_UNKNOWN_CHALLENGE, "the server asks for an unknown or forbidden way to authenticate"},
    {RTSPTAP_INTERRUPTED, "interrupted"},
    {RTSPTAP_NO_TLS, "the URL asks for TLS, which is not set up"},
    {RTSPTAP_CERTIFICATE_REFUSED, "the server's certificate is refused"},
    {RTSPTAP_HANDSHAKE_FAILED, "the handshake with the server failed"},
    {RTSPTAP_HANDSHAKE_TIMEOUT, "the server did not finish the handshake in time"},
    {RTSPTAP_BAD_TLS_ROOTS, "the trusted certificates cannot be read"},
    {RTSPTAP_BAD_TLS_CERTIFICATE, "the certificate of our own or its key cannot be used"},
    {RTSPTAP_TUNNEL_REFUSED, "the server refuses a tunnel through HTTP"},
    {RTSPTAP_BAD_TUNNEL, "the server's HTTP reply is none of a tunnel"},
    {RTSPTAP_NO_PROTECTION, "the stream is protected (SRTP), which is not set up"},
    {RTSPTAP_BAD_KEYS, "the stream is protected, and its keys cannot be used"},
    {RTSPTAP_BUSY, "an operation of the client is pending"},
    {RTSPTAP_NONE_BEGUN, "no operation was begun"},
    {RTSPTAP_NOT_TAKEN, "a packet that was not taken there, or is given back already"},
    {RTSPTAP_HAS_THREADS, "threads of the library receive for the client"},
    {RTSPTAP_IN_GROUP, "the client is in a group already"},
    {RTSPTAP_NOT_IN_GROUP, "the client is not in the group"},
};

} // namespace

int32_t RTSPTapVersion(void) { return RTSPTAP_VERSION_NUMBER; }

const char *RTSPTapResultText(int32_t code) {
    if (code >= 0) return "success";
    const Meaning *const meaning = std::ranges::find(kMeanings, code, &Meaning::code);
    return meaning != std::end(kMeanings) ? meaning->text : "unknown result";
}
