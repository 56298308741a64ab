// Frames and replies out of the bytes that were read ahead, and their hand-over. Whoever has the connection's turn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap {

struct InterleavedReader;
struct RTSPClient;

// Where a reply ends that stands at the front of `text`.
enum class ReplyEnd {
    kFirstDollar, // at the first '$', or with what has been received
    kFirstFrame   // where a frame begins, or, once its blank line and body are there, with what has been received
};

enum class ReplyStatus { kTaken, kIncomplete, kNoMemory };

// Hands the reply at the front of the reader over in the client's recvData. An incomplete one is left where
// it is until its rest has come, or until kReplyGraceMs later, or when `final` says that nothing more comes. What
// was received before the exchange began is dropped instead.
ReplyStatus TakeReply(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final);

// How long the rest of a reply may take that came in pieces, in ms: longer than a lost segment needs to be
// sent again, which on Linux is 200 ms at the least.
inline constexpr int kReplyGraceMs = 1000;

// The time in ms until an incomplete reply is handed over as it is; -1 when none waits.
int ReplyGraceLeft(const InterleavedReader &reader);

enum class Unit { kHandled, kIncomplete, kNoMemory };

// Handles what lies complete in the reader, up to a first failure of memory, which it tells. Readers are signalled
// once for all of it. With `final` nothing more comes.
Unit TakeBufferedUnits(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final);

} // namespace rtsptap
