// Raw received bytes and their count: one reply as it came, from the socket or handed over by the thread
// that serves an interleaved connection.
#pragma once

#include <cstdint>
#include <memory>

namespace rtsptap {

inline constexpr uint32_t kReplyBytes = 33792; // the most that one reply may hold
inline constexpr int kReplyTimeoutMs = 25000;  // how long a reply is waited for

struct RecvBuffer {
    int32_t length = 0;   // bytes received
    char *data = nullptr; // owned, free(): zeroed beyond length, at least one byte more
};

// A buffer with room for `capacity` bytes and a terminator, zeroed; null when memory is short.
RecvBuffer *CreateRecvBuffer(uint32_t capacity);
// Gives back the room behind what was received.
void ShrinkRecvBuffer(RecvBuffer &recvBuffer);

void ReleaseRecvBuffer(RecvBuffer *recvBuffer);

struct RecvBufferDeleter {
    void operator()(RecvBuffer *recvBuffer) const { ReleaseRecvBuffer(recvBuffer); }
};
using RecvBufferPtr = std::unique_ptr<RecvBuffer, RecvBufferDeleter>;

} // namespace rtsptap
