#include "rtp/interleaved/splitter.h"

#include "platform/text.h"
#include "platform/wire.h"
#include "rtp/interleaved/connection.h"

#include <algorithm>

namespace rtsptap {
namespace {

// An interleaved frame (RFC 2326, 10.12), between replies:
//
//     0        1         2          3
//     | '$'    | channel | body length, big-endian | body ...
constexpr std::string_view kReplyStart = "RTSP";
constexpr std::string_view kReplyVersion = "RTSP/1.0 ";

// ---- where a reply ends ----

// The value of the first header line of that name; a null view when there is none.
std::string_view HeaderValue(std::string_view head, std::string_view wanted) {
    std::string_view line;
    while (NextLine(head, line)) {
        std::string_view name;
        if (Until(line, ':', name) && EqualIgnoringCase(name, wanted)) return line;
    }
    return {};
}

// The Content-Length of the header lines, 0 when there is none.
std::size_t BodyLength(std::string_view head) {
    return static_cast<std::size_t>(std::max(LeadingNumber(HeaderValue(head, "Content-Length")), 0));
}

} // namespace

// Lines end as the parser ends them, at any run of CR and LF: one with two LFs, or with two CRs and no LF, holds a
// blank line.
std::size_t HeadLength(std::string_view text) {
    constexpr std::string_view kLineEnds = "\r\n";
    std::size_t at = text.find_first_of(kLineEnds, text.find_first_not_of(kLineEnds));
    while (at != text.npos) {
        const std::size_t behind = std::min(text.find_first_not_of(kLineEnds, at), text.size());
        const std::string_view run = text.substr(at, behind - at);
        const char mark = Contains(run, "\n") ? '\n' : '\r';
        const std::size_t second = run.find(mark, run.find(mark) + 1);
        if (second != run.npos && (mark == '\n' || behind < text.size())) return at + second + 1;
        at = text.find_first_of(kLineEnds, behind);
    }
    return text.npos;
}

namespace {

// Where a reply's parts end: npos while that is unknown.
struct ReplyParts {
    std::size_t head = std::string_view::npos; // behind the blank line
    std::size_t body = std::string_view::npos; // behind what Content-Length announces
};

ReplyParts MeasureReply(std::string_view text) {
    const std::size_t head = HeadLength(text);
    if (head == text.npos) return {};
    return {head, head + BodyLength(text.substr(0, head))};
}

// A '$' begins a frame where a line or a body could begin or has ended, and before a channel number that is no
// text. A body that is whole may have lines that begin with one.
bool FrameBegins(std::string_view text, const ReplyParts &parts, std::size_t dollar) {
    constexpr std::string_view kText = "\t\r\n";
    const bool inWholeBody = parts.body <= text.size() && dollar > parts.head && dollar < parts.body;
    const char before = dollar > 0 ? text[dollar - 1] : '\n';
    const bool beginsLine = (before == '\r' || before == '\n') && !inWholeBody;
    const char channel = dollar + 1 < text.size() ? text[dollar + 1] : '$';
    const bool beforeChannel = static_cast<unsigned char>(channel) < ' ' && !Contains(kText, {&channel, 1});
    return beginsLine || beforeChannel || dollar == parts.head || dollar == parts.body;
}

// One receive is one message: what follows a complete reply is part of it, up to the first frame.
std::size_t LengthBeforeFrame(std::string_view text) {
    const ReplyParts parts = MeasureReply(text);
    for (std::size_t at = text.find('$'); at != text.npos; at = text.find('$', at + 1))
        if (FrameBegins(text, parts, at)) return at;
    return parts.body <= text.size() ? text.size() : text.npos;
}

// How much of the text is the reply; npos while more may come.
std::size_t ReplyLength(std::string_view text, ReplyEnd rule) {
    if (rule == ReplyEnd::kFirstFrame) return LengthBeforeFrame(text);
    const std::size_t dollar = text.find('$');
    if (dollar != text.npos) return dollar;
    return MeasureReply(text).body <= text.size() ? text.size() : text.npos;
}

// ---- where a reply ends that is as long as it says ----

// Where another message begins, or a frame, or where one may be about to.
bool BeginsMessage(std::string_view text) {
    constexpr std::string_view kReplyProtocol = "RTSP/";
    const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
    return text.starts_with('$') || text.starts_with(kReplyProtocol) || kReplyProtocol.starts_with(text) ||
           Contains(line, " RTSP/1.");
}

std::size_t SkipLineEnds(std::string_view text, std::size_t at) {
    return std::min(text.find_first_not_of("\r\n", at), text.size());
}

// `length` is npos while more is to come.
struct FramedEnd {
    std::size_t length = std::string_view::npos;
    bool lengthIsWrong = false;
};

// Line ends behind the body go with it: between messages they mean nothing.
FramedEnd FindFramedEnd(const UnsplitBytes &bytes, std::string_view text) {
    const ReplyParts parts = MeasureReply(text);
    if (parts.body > text.size()) { // also where that is unknown
        if (!bytes.replyIsFinal && text.size() < kFramedReplyBytes) return {};
        return {std::min(LengthBeforeFrame(text), text.size()), parts.head != text.npos};
    }
    const FramedEnd asAnnounced{SkipLineEnds(text, parts.body)};
    if (!bytes.anyBodyLength) return asAnnounced;
    const std::string_view head = text.substr(0, parts.head);
    const bool hasNoLength = HeaderValue(head, "Content-Length").data() == nullptr &&
                             HeaderValue(head, "Content-Type").data() != nullptr;
    if (hasNoLength && bytes.rule == ReplyEnd::kFirstFrame) // among frames that are expected none is waited for
        return {bytes.replyIsFinal ? LengthBeforeFrame(text) : text.npos, true};
    if (BeginsMessage(text.substr(asAnnounced.length))) return asAnnounced;
    return {LengthBeforeFrame(text), true};
}

// ---- bytes out of step ----

// Where `mark` stands first behind the front of `text`, or where it may be about to: its beginning ends the text.
// npos when neither is before `limit`.
std::size_t FindBehindFront(std::string_view text, std::string_view mark, std::size_t limit) {
    text = text.substr(0, limit + mark.size() - 1); // the search is repeated every few bytes
    std::size_t at = text.find(mark, 1);
    if (at == text.npos) at = std::max<std::size_t>(1, text.size() - std::min(text.size(), mark.size() - 1));
    while (at < text.size() && !mark.starts_with(text.substr(at, mark.size()))) ++at;
    return at < std::min(limit, text.size()) ? at : text.npos;
}

enum class Search { kNone, kFound, kMoreNeeded };
struct ReplySearch {
    Search result = Search::kNone;
    std::size_t at = 0;
};

// A reply that somebody waits for is found wherever it begins among bytes out of step. A full ring, whose frames
// are not consumed, would cost three of four otherwise, and with them PAUSE and TEARDOWN.
ReplySearch SearchReply(std::string_view text, std::string_view mark, std::size_t limit, bool final) {
    const std::size_t at = FindBehindFront(text, mark, limit);
    if (at == text.npos) return {};
    if (text.size() - at >= mark.size()) return {Search::kFound, at};
    return {final ? Search::kNone : Search::kMoreNeeded, at};
}

// How much to drop of a header that leads nowhere: the bytes behind it are looked at four by four until a header
// lines up again, or one by one where an awaited reply begins.
std::size_t DropLength(const UnsplitBytes &bytes) {
    if (!bytes.awaitsReply) return kFrameHeaderBytes;
    const ReplySearch reply = SearchReply(bytes.text, kReplyStart, kFrameHeaderBytes, true);
    return reply.result == Search::kFound ? reply.at : kFrameHeaderBytes;
}

// ---- units ----

// Where a reply is all that is awaited, any text is taken for it, but not the body of a frame that was dropped.
bool ReplyStandsNext(const UnsplitBytes &bytes) {
    if (bytes.rule == ReplyEnd::kFirstFrame && !bytes.outOfStep)
        return !bytes.text.empty() && !bytes.text.starts_with('$');
    return bytes.text.starts_with(kReplyStart);
}

// Text that was there before the request, up to the first frame.
Unit StaleText(const UnsplitBytes &bytes) {
    const std::string_view text = bytes.text.substr(0, bytes.staleBytes);
    return {.kind = Unit::Kind::kStaleText, .length = std::min(LengthBeforeFrame(text), text.size())};
}

Unit NextReply(const UnsplitBytes &bytes) {
    const std::size_t most = bytes.isFramed ? kFramedReplyBytes : kReplyBytes;
    const std::string_view text = bytes.text.substr(0, most);
    const FramedEnd end =
        bytes.isFramed ? FindFramedEnd(bytes, text) : FramedEnd{ReplyLength(text, bytes.rule), false};
    if (end.length == text.npos && text.size() < most && !bytes.replyIsFinal) return {.replyBegun = true};
    Unit unit{.kind = Unit::Kind::kReply, .length = std::min(end.length, text.size())};
    unit.fillsBuffer = unit.length == most;
    unit.lengthIsWrong = end.lengthIsWrong;
    return unit;
}

Unit NextFrame(const UnsplitBytes &bytes) {
    const auto *const header = reinterpret_cast<const uint8_t *>(bytes.text.data());
    if (bytes.awaitsReply &&
        SearchReply(bytes.text, kReplyStart, kFrameHeaderBytes, bytes.isFinal).result == Search::kMoreNeeded)
        return {};
    if (header[0] != '$') return {.kind = Unit::Kind::kJunk, .length = DropLength(bytes)};
    Unit unit{.kind = Unit::Kind::kFrame, .channel = header[1], .bodyLength = wire::U16(header + 2)};
    unit.length = kFrameHeaderBytes + unit.bodyLength;
    return unit;
}

} // namespace

Unit NextUnit(const UnsplitBytes &bytes) {
    if (ReplyStandsNext(bytes)) return bytes.staleBytes > 0 ? StaleText(bytes) : NextReply(bytes);
    return bytes.text.size() < kFrameHeaderBytes ? Unit{} : NextFrame(bytes);
}

ReplyFate JudgeReply(std::string_view text, uint32_t lateFrom, uint32_t cSeq) {
    std::string_view head = text.substr(0, HeadLength(text));
    const auto number = static_cast<uint32_t>(std::max(LeadingNumber(HeaderValue(head, "CSeq")), 0));
    std::string_view line;
    std::string_view version;
    NextLine(head, line);
    Until(line, ' ', version);
    const int32_t status = LeadingNumber(line);
    if (status >= 100 && status < 200) return ReplyFate::kIsProvisional;
    return number > 0 && number >= lateFrom && number < cSeq ? ReplyFate::kIsLate : ReplyFate::kAnswers;
}

// Out of step the header may be bytes of a body: an awaited reply within the frame it announces is no part of it.
FrameFate LookIntoFrame(const UnsplitBytes &bytes, const Unit &frame, bool hasPlace) {
    if (!hasPlace) return {FrameFate::Kind::kLeadsNowhere, DropLength(bytes)};
    if (bytes.awaitsReply && bytes.outOfStep) {
        const ReplySearch reply = SearchReply(bytes.text, kReplyVersion, frame.length, bytes.isFinal);
        if (reply.result == Search::kMoreNeeded) return {FrameFate::Kind::kPartial, frame.length};
        if (reply.result == Search::kFound) return {FrameFate::Kind::kHidesReply, reply.at};
    }
    const bool isWhole = bytes.text.size() >= frame.length;
    return {isWhole ? FrameFate::Kind::kWhole : FrameFate::Kind::kPartial, frame.length};
}

} // namespace rtsptap
