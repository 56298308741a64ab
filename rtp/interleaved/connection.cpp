
#include "rtp/interleaved/connection.h"

#include "platform/system.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <poll.h>

namespace rtsptap {

RecvBuffer *CreateRecvBuffer(uint32_t capacity) {
    RecvBufferPtr recvBuffer(new (std::nothrow) RecvBuffer{});
    if (!recvBuffer) return nullptr;
    recvBuffer->data = static_cast<char *>(std::calloc(std::size_t{capacity} + 1, 1));
    return recvBuffer->data == nullptr ? nullptr : recvBuffer.release();
}

void ShrinkRecvBuffer(RecvBuffer &recvBuffer) {
    void *const shrunk = std::realloc(recvBuffer.data, static_cast<std::size_t>(recvBuffer.length) + 1);
    if (shrunk != nullptr) recvBuffer.data = static_cast<char *>(shrunk);
}

void ReleaseRecvBuffer(RecvBuffer *recvBuffer) {
    if (recvBuffer == nullptr) return;
    std::free(recvBuffer->data);
    delete recvBuffer;
}

namespace {

void StartAfresh(InterleavedReader &reader, int32_t socket) {
    reader.socket = socket;
    reader.begin = reader.end = reader.replyTail = reader.freshBytes = reader.staleBytes = 0;
    reader.replySinceMs = 0;
    reader.outOfStep = false;
}

// Moves what is left to the front when a whole read no longer fits behind it.
void MakeRoom(InterleavedReader &reader) {
    if (kReaderBytes - reader.end >= kReadAheadBytes) return;
    memmove(reader.bytes, reader.bytes + reader.begin, Buffered(reader));
    reader.end -= reader.begin;
    reader.begin = 0;
}

} // namespace

InterleavedReader *OpenReader(RTSPClient &client) {
    if (client.interleaved == nullptr) client.interleaved = new (std::nothrow) InterleavedReader{};
    InterleavedReader *const reader = client.interleaved;
    const int32_t socket = client.rtspSocket;
    if (reader != nullptr && reader->socket != socket) StartAfresh(*reader, socket);
    return reader;
}

void ForgetConnection(RTSPClient &client) {
    if (client.interleaved != nullptr) StartAfresh(*client.interleaved, -1);
}

void ReleaseReader(InterleavedReader *reader) { delete reader; }

std::size_t Buffered(const InterleavedReader &reader) { return reader.end - reader.begin; }

std::string_view BufferedText(const InterleavedReader &reader) {
    return {reinterpret_cast<const char *>(reader.bytes + reader.begin), Buffered(reader)};
}

void Consume(InterleavedReader &reader, std::size_t count) {
    reader.begin += count;
    reader.replyTail -= std::min(reader.replyTail, count);
    reader.staleBytes -= std::min(reader.staleBytes, count);
    if (reader.begin == reader.end) reader.begin = reader.end = 0;
}

Fill FillReader(InterleavedReader &reader, int timeoutMs) {
    if (timeoutMs > 0) {
        pollfd arrival = {reader.socket, POLLIN, 0};
        const int ready = poll(&arrival, 1, timeoutMs);
        if (ready < 0) return errno == EINTR ? Fill::kNothing : Fill::kClosed;
        if (ready == 0) return Fill::kNothing;
    }
    MakeRoom(reader);
    const std::size_t room = std::min(kReadAheadBytes, kReaderBytes - reader.end);
    const int received =
        ReceiveBytes(reader.socket, reader.bytes + reader.end, static_cast<int>(room), MSG_DONTWAIT);
    if (received < 0 && errno == EAGAIN) return Fill::kNothing;
    if (received < 1) return Fill::kClosed;
    reader.freshBytes = static_cast<std::size_t>(received);
    reader.end += reader.freshBytes;
    return Fill::kBytes;
}

} // namespace rtsptap
