#include "tls/stream.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

namespace rtsptap_tls {
namespace {

constexpr std::size_t kMostAtOnce = 65536;        // of what is written in one call
constexpr std::size_t kMostOutgoing = 256 * 1024; // bytes that wait for the socket

struct Stream {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // of all but the first two; a leaf
    int socket = -1;
    bool verifies = true;
    SSL *ssl = nullptr;
    unsigned char *outgoing = nullptr; // owned, free()
    std::size_t size = 0;              // bytes of it
    std::size_t sent = 0;              // of those
    std::size_t room = 0;
    bool stands = false;   // the handshake is over
    bool hasEnded = false; // the peer has closed the connection
    bool hasFailed = false;
    char failure[256] = {};
};

Stream &StreamOf(void *stream) { return *static_cast<Stream *>(stream); }

class Locked {
public:
    explicit Locked(Stream &stream) : stream_(stream) {
        pthread_mutex_lock(&stream_.lock);
        ERR_clear_error(); // of this thread: what was left there tells nothing of us
    }
    ~Locked() { pthread_mutex_unlock(&stream_.lock); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

private:
    Stream &stream_;
};

void Fail(Stream &stream, const char *why) {
    if (!stream.hasFailed) (void)std::snprintf(stream.failure, sizeof stream.failure, "%s", why);
    stream.hasFailed = true;
}

// ---- the socket, as OpenSSL sees it ----

int ReadSocket(BIO *bio, char *bytes, int count) {
    Stream &stream = StreamOf(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    const ssize_t received = recv(stream.socket, bytes, static_cast<std::size_t>(count), MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_read(bio);
    stream.hasEnded = stream.hasEnded || received == 0;
    return static_cast<int>(received);
}

bool HasRoom(Stream &stream, std::size_t count) {
    const std::size_t needed = stream.size + count;
    if (needed > kMostOutgoing) return false;
    if (needed <= stream.room) return true;
    const std::size_t room = std::max(needed, 2 * stream.room);
    auto *const grown = static_cast<unsigned char *>(std::realloc(stream.outgoing, room));
    if (grown == nullptr) return false;
    stream.outgoing = grown;
    stream.room = room;
    return true;
}

int WriteSocket(BIO *bio, const char *bytes, int count) {
    Stream &stream = StreamOf(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    if (!HasRoom(stream, static_cast<std::size_t>(count))) {
        BIO_set_retry_write(bio);
        return -1;
    }
    std::memcpy(stream.outgoing + stream.size, bytes, static_cast<std::size_t>(count));
    stream.size += static_cast<std::size_t>(count);
    return count;
}

long ControlSocket(BIO * /*bio*/, int command, long /*number*/, void * /*argument*/) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

// Sends what OpenSSL has written. False while some is left, or for good.
bool Flush(Stream &stream) {
    while (stream.sent < stream.size) {
        const ssize_t sent = send(stream.socket, stream.outgoing + stream.sent, stream.size - stream.sent,
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && (errno == EAGAIN || errno == EINTR)) return false;
        if (sent < 0) {
            Fail(stream, std::strerror(errno));
            return false;
        }
        stream.sent += static_cast<std::size_t>(sent);
    }
    stream.size = stream.sent = 0;
    return true;
}

// ---- making one ----

// A name is asked for and checked, an address checked only (RFC 6066, 3). The zone of an address is this machine's.
bool AimAt(SSL *ssl, const char *host) {
    char name[256];
    (void)std::snprintf(name, sizeof name, "%.*s", static_cast<int>(std::strcspn(host, "%")), host);
    X509_VERIFY_PARAM *const checks = SSL_get0_param(ssl);
    X509_VERIFY_PARAM_set_hostflags(checks, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    if (X509_VERIFY_PARAM_set1_ip_asc(checks, name) == 1) return true;
    ERR_clear_error();
    return SSL_set1_host(ssl, host) == 1 && SSL_set_tlsext_host_name(ssl, host) == 1;
}

bool Equip(Stream &stream, const Context &context, const char *host) {
    stream.ssl = SSL_new(context.ssl);
    BIO *const bio = stream.ssl != nullptr ? BIO_new(context.socket) : nullptr;
    if (bio == nullptr) return false;
    BIO_set_data(bio, &stream);
    BIO_set_init(bio, 1);
    SSL_set_bio(stream.ssl, bio, bio);
    SSL_set_connect_state(stream.ssl);
    return AimAt(stream.ssl, context.serverName[0] != '\0' ? context.serverName : host);
}

void Release(Stream *stream) {
    if (stream == nullptr) return;
    SSL_free(stream->ssl);
    std::free(stream->outgoing);
    pthread_mutex_destroy(&stream->lock);
    std::free(stream);
}

void *Open(void *made, int32_t socket, const char *host) {
    const Context &context = *static_cast<Context *>(made);
    auto *const stream = static_cast<Stream *>(std::malloc(sizeof(Stream)));
    if (stream == nullptr) return nullptr;
    *stream = Stream{};
    stream->socket = socket;
    stream->verifies = context.verifies;
    ERR_clear_error();
    if (Equip(*stream, context, host)) return stream;
    ERR_clear_error();
    Release(stream);
    return nullptr;
}

// ---- why something failed ----

const char *Reason() {
    const unsigned long error = ERR_peek_last_error();
    const char *const text = error != 0 ? ERR_reason_error_string(error) : nullptr;
    return text != nullptr ? text : "the protocol of TLS was broken";
}

void FailWith(Stream &stream, int outcome) {
    const int error = errno;
    if (outcome == SSL_ERROR_SYSCALL)
        Fail(stream, stream.hasEnded ? "the server closed the connection" : std::strerror(error));
    else
        Fail(stream, Reason());
}

int32_t FailHandshake(Stream &stream, int outcome) {
    const long verdict = SSL_get_verify_result(stream.ssl);
    if (stream.verifies && outcome == SSL_ERROR_SSL && verdict != X509_V_OK) {
        Fail(stream, X509_verify_cert_error_string(verdict));
        return RTSPTAP_CERTIFICATE_REFUSED;
    }
    FailWith(stream, outcome);
    return RTSPTAP_HANDSHAKE_FAILED;
}

// ---- the table ----

bool IsLater(int outcome) { return outcome == SSL_ERROR_WANT_READ || outcome == SSL_ERROR_WANT_WRITE; }

int32_t Handshake(void *opened) {
    Stream &stream = StreamOf(opened);
    const Locked locked(stream);
    const int result = SSL_connect(stream.ssl);
    const int outcome = SSL_get_error(stream.ssl, result);
    const bool isOut = Flush(stream); // also an alert that tells the server why
    if (result != 1 && !IsLater(outcome)) return FailHandshake(stream, outcome);
    if (stream.hasFailed) return RTSPTAP_HANDSHAKE_FAILED;
    stream.stands = result == 1 && isOut;
    return stream.stands ? 0 : 1;
}

int32_t FailCall(int error) {
    errno = error;
    return -1;
}

int32_t Read(void *opened, void *bytes, uint32_t count) {
    Stream &stream = StreamOf(opened);
    const Locked locked(stream);
    if (stream.hasFailed) return FailCall(EPROTO);
    const int most = static_cast<int>(std::min<uint32_t>(count, kMostAtOnce));
    const int result = SSL_read(stream.ssl, bytes, most);
    const int outcome = SSL_get_error(stream.ssl, result);
    if (result <= 0 && !IsLater(outcome) && outcome != SSL_ERROR_ZERO_RETURN &&
        !(outcome == SSL_ERROR_SYSCALL && stream.hasEnded))
        FailWith(stream, outcome);
    Flush(stream);
    if (result > 0) return result;
    if (stream.hasFailed) return FailCall(EPROTO);
    return IsLater(outcome) ? FailCall(EAGAIN) : 0;
}

int32_t Write(void *opened, const void *bytes, uint32_t count) {
    Stream &stream = StreamOf(opened);
    const Locked locked(stream);
    const bool isOut = Flush(stream);
    if (stream.hasFailed) return FailCall(EPIPE);
    if (!isOut) return FailCall(EAGAIN);
    if (count == 0) return 0;
    const int result = SSL_write(stream.ssl, bytes, static_cast<int>(std::min<uint32_t>(count, kMostAtOnce)));
    const int outcome = SSL_get_error(stream.ssl, result);
    if (result <= 0 && !IsLater(outcome)) FailWith(stream, outcome);
    Flush(stream);
    if (result > 0 && !stream.hasFailed) return result;
    return FailCall(stream.hasFailed ? EPIPE : EAGAIN);
}

uint32_t Pending(void *opened) {
    Stream &stream = StreamOf(opened);
    const Locked locked(stream);
    return static_cast<uint32_t>(std::max(SSL_pending(stream.ssl), 0));
}

int32_t Wanted(void *opened, int32_t wait, int32_t * /*descriptor*/) {
    Stream &stream = StreamOf(opened);
    const Locked locked(stream);
    if (wait == RTSPTAP_STREAM_WRITING) return POLLOUT;
    return POLLIN | (stream.sent < stream.size ? POLLOUT : 0);
}

const char *Failure(void *opened) { return StreamOf(opened).failure; }

void Leave(void *opened) {
    Stream &stream = StreamOf(opened);
    const Locked locked(stream);
    if (!stream.stands || stream.hasFailed) return;
    SSL_shutdown(stream.ssl);
    Flush(stream);
    stream.failure[0] = '\0'; // that nobody hears it any more is none
}

void Close(void *opened) {
    Release(&StreamOf(opened));
    ERR_clear_error();
}

} // namespace

BIO_METHOD *MakeSocketMethod() {
    BIO_METHOD *const method = BIO_meth_new(BIO_TYPE_SOURCE_SINK, "rtsptap socket");
    if (method == nullptr) return nullptr;
    BIO_meth_set_read(method, ReadSocket);
    BIO_meth_set_write(method, WriteSocket);
    BIO_meth_set_ctrl(method, ControlSocket);
    return method;
}

constinit const RTSPTapByteStream kTable = {
    .recordSize = sizeof(RTSPTapByteStream),
    .open = Open,
    .handshake = Handshake,
    .read = Read,
    .write = Write,
    .pending = Pending,
    .wanted = Wanted,
    .failure = Failure,
    .leave = Leave,
    .close = Close,
    .release = nullptr,
};

} // namespace rtsptap_tls
