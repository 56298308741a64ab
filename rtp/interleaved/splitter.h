// What stands next among the bytes of an interleaved connection: a frame, a reply, or what has to be dropped. Pure:
// the bytes and what is known about them go in, one unit comes out. Who reads the socket, whether a frame finds
// room and who gets a reply is the service's affair. Any thread.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap {

// Where a reply ends that stands at the front of the bytes.
enum class ReplyEnd {
    kFirstDollar, // at the first '$', or with what has been received
    kFirstFrame   // where a frame begins, or, once its blank line and body are there, with what has been received
};

using Channels = std::bitset<256>;

struct UnsplitBytes {
    std::string_view text;      // not yet consumed
    std::size_t staleBytes = 0; // the first of them, received before the exchange under way began
    ReplyEnd rule = ReplyEnd::kFirstDollar;
    bool awaitsReply = false;   // an exchange waits
    bool outOfStep = false;     // bytes were dropped before these: a header may be bytes of a body
    bool isFinal = false;       // the connection is closed: nothing more comes
    bool replyIsFinal = false;  // nothing more is waited for behind a reply that has begun
    bool isFramed = false;      // a reply ends where its blank line and its Content-Length say,
    bool anyBodyLength = false; // which may be missing or wrong
    bool hasRequests = false;   // the server may ask, too
    bool hasAnyCase = false;    // a reply may begin with rtsp
    // Those that frames are expected of, when a frame behind junk counts only if another unit begins behind it;
    // null: any header counts that has a place.
    const Channels *confirmedChannels = nullptr;
    std::size_t longestBody = 0; // of a frame that counts so
};

struct Unit {
    enum class Kind {
        kMoreNeeded, // nothing can be said before more bytes come
        kReply,      // `length` bytes of RTSP text
        kRequest,    // `length` bytes of a server's request, up to its body
        kStaleText,  // `length` bytes of text that answers no exchange under way
        kFrame,      // `length` bytes by its header; what stands there is told by LookIntoFrame
        kBlanks,     // `length` of them, and line ends, which are no reason to doubt what follows
        kJunk        // neither: `length` bytes to drop
    };
    Kind kind = Kind::kMoreNeeded;
    std::size_t length = 0;     // of the whole unit, a frame's header included
    bool replyBegun = false;    // kMoreNeeded: a reply stands at the front, its rest is to come
    bool fillsBuffer = false;   // kReply: cut where the longest reply ends
    bool lengthIsWrong = false; // kReply: its Content-Length is missing or wrong
    uint8_t channel = 0;        // kFrame
    std::size_t bodyLength = 0; // kFrame: as its header says; kReply, kRequest: behind it, what nobody takes
};

Unit NextUnit(const UnsplitBytes &bytes);

// What the first lines of a reply tell.
struct ReplyHead {
    int32_t status = 0;
    uint32_t cSeq = 0; // 0: none, or no number
};
ReplyHead ReadReplyHead(std::string_view text);

// What a server asks. Values as they stand, without the blanks around them; empty where there is none.
struct ServerRequest {
    std::string_view method;
    std::string_view cSeq;
    std::string_view session;
};
ServerRequest ReadRequest(std::string_view text);

// The length of the first whole message with its body, or of all when none is whole.
std::size_t MessageLength(std::string_view text);

// The length of a reply's status line and headers with the blank line behind them; npos while it may still come.
std::size_t HeadLength(std::string_view text);

struct FrameFate {
    enum class Kind {
        kWhole,
        kPartial,    // the rest is still to come
        kHidesReply, // out of step, and an awaited reply begins within: the header was none
        kLeadsNowhere
    };
    Kind kind = Kind::kWhole;
    std::size_t length = 0; // of the frame, or of what is to drop of it
};

// What becomes of a frame that `hasPlace`, or has none. One that has none is not looked into: a server may send a
// header that leads nowhere every four bytes. Of those only so much is dropped that a header may line up again
// behind it, or an awaited reply begin.
FrameFate LookIntoFrame(const UnsplitBytes &bytes, const Unit &frame, bool hasPlace);

} // namespace rtsptap
