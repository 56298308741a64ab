#include "rtp/interleaved/byte_stream.h"

#include "platform/system.h"
#include "platform/text.h"
#include "platform/waiting.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <new>
#include <utility>

namespace rtsptap {

// ---- application thread ----

void CloseByteStream(ByteStream *stream) {
    if (stream == nullptr) return;
    if (stream->state != nullptr) stream->maker->table.close(stream->state);
    DropTable(stream->maker);
    delete stream;
}

ByteStreamPtr OpenByteStream(StreamMaker &maker, int32_t socket, const char *host) {
    ByteStreamPtr stream(new (std::nothrow) ByteStream{});
    if (!stream) return nullptr;
    stream->maker = &maker;
    ++maker.uses;
    stream->socket = socket;
    if (fcntl(socket, F_SETFL, O_NONBLOCK) == 0) stream->state = maker.table.open(maker.context, socket, host);
    return stream->state != nullptr ? std::move(stream) : nullptr;
}

int32_t ShakeHands(ByteStream &stream, int limitMs) {
    const RTSPTapByteStream &table = stream.maker->table;
    if (table.handshake == nullptr) return RTSP_SUCCESS;
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(limitMs);
    for (;;) {
        const int32_t result = table.handshake(stream.state);
        if (result <= 0) return result;
        const uint64_t nowMs = MonotonicMs();
        if (MustGiveUp()) return RTSPTAP_INTERRUPTED;
        if (nowMs >= deadlineMs) return RTSPTAP_HANDSHAKE_TIMEOUT;
        pollfd wait = StreamWait(&stream, stream.socket, RTSPTAP_STREAM_HANDSHAKE);
        const int ready = WaitForSockets({&wait, 1}, static_cast<int>(deadlineMs - nowMs));
        if (ready < 0 && !IsInterrupted(LastError())) return RTSPTAP_HANDSHAKE_FAILED;
    }
}

const char *FailureOf(const ByteStream &stream) {
    const RTSPTapByteStream &table = stream.maker->table;
    const char *const text = table.failure != nullptr ? table.failure(stream.state) : nullptr;
    return text != nullptr ? text : "";
}

void AddByteStream(ByteStreams &streams, ByteStreamPtr stream) {
    stream->next = streams.first.load(std::memory_order_relaxed);
    streams.first.store(stream.release(), std::memory_order_release);
}

void LeaveByteStream(const ByteStreams &streams, int32_t socket) {
    const ByteStream *const stream = FindByteStream(streams, socket);
    if (stream != nullptr && stream->maker->table.leave != nullptr) stream->maker->table.leave(stream->state);
}

void EndByteStream(ByteStreams &streams, int32_t socket) {
    ByteStream *const stream = FindByteStream(streams, socket);
    if (stream == nullptr) return;
    ByteStream *before = streams.first;
    if (before == stream) {
        streams.first = stream->next;
    } else {
        while (before->next != stream) before = before->next;
        before->next = stream->next;
    }
    CopyText(streams.failure, FailureOf(*stream));
    CloseByteStream(stream);
}

void EndByteStreams(ByteStreams &streams) {
    while (streams.first != nullptr) EndByteStream(streams, streams.first.load()->socket);
}

// ---- whoever reads or writes ----

namespace {

constexpr std::size_t kMostAtOnce = std::numeric_limits<int32_t>::max();

// A table of the program's may say anything.
ssize_t Checked(int64_t result, std::size_t most) {
    if (result <= static_cast<int64_t>(most)) return static_cast<ssize_t>(std::max<int64_t>(result, -1));
    errno = EPROTO;
    return -1;
}

} // namespace

ssize_t ReadBytes(const ByteStream &stream, void *bytes, std::size_t count) {
    const std::size_t most = std::min(count, kMostAtOnce);
    return Checked(stream.maker->table.read(stream.state, bytes, static_cast<uint32_t>(most)), most);
}

ssize_t WriteBytes(const ByteStream &stream, const void *bytes, std::size_t count) {
    const std::size_t most = std::min(count, kMostAtOnce);
    return Checked(stream.maker->table.write(stream.state, bytes, static_cast<uint32_t>(most)), most);
}

bool HasPendingBytes(const ByteStream &stream) {
    return stream.maker->table.pending != nullptr && stream.maker->table.pending(stream.state) > 0;
}

pollfd StreamWait(const ByteStream *stream, int32_t socket, RTSPTapStreamWait wait) {
    pollfd waited = {socket, static_cast<short>(wait == RTSPTAP_STREAM_WRITING ? POLLOUT : POLLIN), 0};
    if (stream == nullptr || stream->maker->table.wanted == nullptr) return waited;
    int32_t descriptor = socket;
    waited.events = static_cast<short>(stream->maker->table.wanted(stream->state, wait, &descriptor));
    waited.fd = descriptor;
    return waited;
}

bool WantsToWrite(const ByteStream *stream) {
    return stream != nullptr && (StreamWait(stream, stream->socket, RTSPTAP_STREAM_READING).events & POLLOUT) != 0;
}

} // namespace rtsptap
