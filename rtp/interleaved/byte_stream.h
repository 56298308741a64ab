// What lies between the RTSP connection's socket and its bytes, where the program has set something of the kind
// (RTSPTapSetByteStream): TLS, a tunnel. Made and ended by the application thread while nobody reads the
// connection; read and written by whoever has the right to the socket's bytes. A plain socket has none, and pays
// nothing.
#pragma once

#include "rtp/shared_table.h"
#include "rtsptap_extended.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <poll.h>
#include <sys/types.h>

namespace rtsptap {

struct StreamMaker : SharedTable<RTSPTapByteStream> {};

struct ByteStream {
    StreamMaker *maker = nullptr;
    void *state = nullptr; // the maker's
    int32_t socket = -1;
    ByteStream *next = nullptr; // constant once it is found by its socket
};

// Those of a connection's sockets; a plain pointer is enough for nearly all, which have none.
struct ByteStreams {
    std::atomic<ByteStream *> first{nullptr};
    char failure[256] = {}; // of the last one that was ended, empty when it had not failed; application thread
};

inline ByteStream *FindByteStream(const ByteStreams &streams, int32_t socket) {
    ByteStream *stream = streams.first.load(std::memory_order_acquire);
    while (stream != nullptr && stream->socket != socket) stream = stream->next;
    return stream;
}

// ---- Application thread ----

void CloseByteStream(ByteStream *stream);
struct ByteStreamDeleter {
    void operator()(ByteStream *stream) const { CloseByteStream(stream); }
};
using ByteStreamPtr = std::unique_ptr<ByteStream, ByteStreamDeleter>;

// On a socket that is connected, which does not block from here on; the handshake is still to be made. Null when
// memory is short.
ByteStreamPtr OpenByteStream(StreamMaker &maker, int32_t socket, const char *host);
// RTSP_SUCCESS, or the code of what went wrong; RTSPTAP_HANDSHAKE_TIMEOUT after `limitMs`.
int32_t ShakeHands(ByteStream &stream, int limitMs);
// Why it failed, for people; never null.
const char *FailureOf(const ByteStream &stream);

// Before the socket is the connection's.
void AddByteStream(ByteStreams &streams, ByteStreamPtr stream);
// Before the socket is shut down: the peer is told.
void LeaveByteStream(const ByteStreams &streams, int32_t socket);
// Nobody uses the socket any more, or any socket.
void EndByteStream(ByteStreams &streams, int32_t socket);
void EndByteStreams(ByteStreams &streams);

// ---- Whoever reads or writes ----

// As recv(2) and send(2) of a socket that does not block; without SIGPIPE.
ssize_t ReadBytes(const ByteStream &stream, void *bytes, std::size_t count);
ssize_t WriteBytes(const ByteStream &stream, const void *bytes, std::size_t count);
// Bytes are there to be read, whatever the socket says.
bool HasPendingBytes(const ByteStream &stream);
inline bool HasPending(const ByteStream *stream) { return stream != nullptr && HasPendingBytes(*stream); }
// What to wait for. Without a stream the socket itself.
pollfd StreamWait(const ByteStream *stream, int32_t socket, RTSPTapStreamWait wait);
// Reading alone will not wake whoever waits for the socket: something is still to be written.
bool WantsToWrite(const ByteStream *stream);

} // namespace rtsptap
