// The bytes of an interleaved connection on their way from the socket to frames and replies, read ahead in
// large pieces. One object of the client: whoever has the connection's turn enters it, alone, and the next one
// goes on in the middle of a frame if need be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap {

struct RTSPClient;

inline constexpr std::size_t kFrameHeaderBytes = 4;   // "$", channel, length (RFC 2326, 10.12)
inline constexpr std::size_t kReadAheadBytes = 65536; // asked of the socket at once
inline constexpr std::size_t kReaderBytes = kReadAheadBytes + kFrameHeaderBytes + 65535; // and the longest frame

struct InterleavedReader {
    int32_t socket = -1;       // the connection that the bytes came from
    std::size_t begin = 0;     // first byte not yet consumed
    std::size_t end = 0;       // behind the last byte received
    std::size_t replyTail = 0; // bytes from `begin` on that came in the same read as a reply before them
    uint64_t replySinceMs = 0; // since when an incomplete reply waits for its rest; 0: none does
    bool outOfStep = false;    // a frame's header was dropped, and no frame or reply has been found behind it
    uint8_t bytes[kReaderBytes] = {}; // touched at once, so that a long session takes no more than a short one
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
