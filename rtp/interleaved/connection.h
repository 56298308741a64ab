// An interleaved connection (RFC 2326, 10.12): the bytes read ahead on their way from the socket to frames and
// replies, and a reply as it came. Whoever has the connection's turn enters it, alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

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

struct RTSPClient;
struct RTSPStreamInfo;

inline constexpr std::size_t kFrameHeaderBytes = 4;   // "$", channel, length (RFC 2326, 10.12)
inline constexpr std::size_t kReadAheadBytes = 65536; // asked of the socket at once
inline constexpr std::size_t kReaderBytes = kReadAheadBytes + kFrameHeaderBytes + 65535; // and the longest frame

// Whose frames a channel carries.
struct Route {
    RTSPStreamInfo *stream = nullptr; // null: nobody's
    bool isRtcp = false;
};

struct InterleavedReader {
    int32_t socket = -1;        // the connection that the bytes came from
    std::size_t begin = 0;      // first byte not yet consumed
    std::size_t end = 0;        // behind the last byte received
    std::size_t replyTail = 0;  // bytes from `begin` on that came in the same read as a reply before them
    std::size_t freshBytes = 0; // the last of them, by the read that has not been looked at yet
    std::size_t staleBytes = 0; // from `begin` on, received before the exchange under way began
    uint64_t replySinceMs = 0;  // since when an incomplete reply waits for its rest; 0: none does
    bool outOfStep = false;     // bytes were dropped, and no reply has been found behind them: a header may be none
    uint32_t exchange = 0;      // the client's exchangeCount as it was last seen
    uint32_t routesMade = 0;    // the client's channelChanges that `routes` was made after
    std::array<Route, 256> routes = {};  // by channel
    RTSPStreamInfo *signalDue = nullptr; // streams with data that no reader has been told of, by nextSignalDue
    uint8_t bytes[kReaderBytes] = {};    // touched at once, so that a long session takes no more than a short one
};

// The client's reader, made at first use; null when memory is short. Starts afresh on another connection.
InterleavedReader *OpenReader(RTSPClient &client);
// The connection is closed and no thread serves it: the next one may get the same descriptor.
void ForgetConnection(RTSPClient &client);
void ReleaseReader(InterleavedReader *reader);

std::size_t Buffered(const InterleavedReader &reader);
std::string_view BufferedText(const InterleavedReader &reader);
void Consume(InterleavedReader &reader, std::size_t count);

enum class Fill { kBytes, kNothing, kClosed };

// Waits up to `timeoutMs` (0: not at all) for the socket, then reads once.
Fill FillReader(InterleavedReader &reader, int timeoutMs);

} // namespace rtsptap
