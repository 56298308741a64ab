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
constexpr std::size_t kLongestSkip = 1 << 20; // a body that claims to be longer is not believed

// ---- where a reply ends ----

// The value of the first header line of that name; a null view when there is none.
// `isTrimmed`: blanks before the colon are none of it.
std::string_view HeaderValue(std::string_view head, std::string_view wanted, bool isTrimmed = true) {
    std::string_view line;
    while (NextLine(head, line)) {
        std::string_view name;
        if (!Until(line, ':', name)) continue;
        if (isTrimmed) name = name.substr(0, name.find_last_not_of(" \t") + 1);
        if (EqualIgnoringCase(name, wanted)) return line;
    }
    return {};
}

// The Content-Length of the header lines, 0 when there is none.
std::size_t BodyLength(std::string_view head, bool isTrimmed) {
    const std::string_view value = HeaderValue(head, "Content-Length", isTrimmed);
    return static_cast<std::size_t>(std::max(LeadingNumber(value), 0));
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

ReplyParts MeasureReply(std::string_view text, bool isTrimmed = false) {
    const std::size_t head = HeadLength(text);
    if (head == text.npos) return {};
    return {head, head + BodyLength(text.substr(0, head), isTrimmed)};
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

// ---- where a reply begins ----

// As far as there is text.
bool MayBeginReply(const UnsplitBytes &bytes, std::string_view text) {
    const std::string_view start = text.substr(0, kReplyStart.size());
    const std::string_view is = kReplyStart.substr(0, start.size());
    return bytes.hasAnyCase ? EqualIgnoringCase(start, is) : start == is;
}

bool BeginsReply(const UnsplitBytes &bytes, std::string_view text) {
    return text.size() >= kReplyStart.size() && MayBeginReply(bytes, text);
}

// ---- where a reply ends that is as long as it says ----

// Where another message begins, or a frame, or where one may be about to.
bool BeginsMessage(const UnsplitBytes &bytes, std::string_view text) {
    const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
    const bool isReply =
        MayBeginReply(bytes, text) && (text.size() <= kReplyStart.size() || text[kReplyStart.size()] == '/');
    return text.starts_with('$') || isReply || Contains(line, " RTSP/1.");
}

std::size_t SkipLineEnds(std::string_view text, std::size_t at) {
    return std::min(text.find_first_not_of("\r\n", at), text.size());
}

// `length` is npos while more is to come.
struct FramedEnd {
    std::size_t length = std::string_view::npos;
    bool lengthIsWrong = false;
    std::size_t skipped = 0; // of a body that is too long to be kept
};

// Line ends behind the body go with it: between messages they mean nothing.
FramedEnd FindFramedEnd(const UnsplitBytes &bytes, std::string_view text) {
    const ReplyParts parts = MeasureReply(text, true);
    if (parts.body > text.size()) { // also where that is unknown
        if (!bytes.replyIsFinal && text.size() < kFramedReplyBytes) return {};
        const std::size_t rest = parts.body - text.size();
        if (!bytes.replyIsFinal && parts.head != text.npos && rest <= kLongestSkip)
            return {text.size(), false, rest};
        return {std::min(LengthBeforeFrame(text), text.size()), parts.head != text.npos};
    }
    const FramedEnd asAnnounced{SkipLineEnds(text, parts.body)};
    if (!bytes.anyBodyLength) return asAnnounced;
    const std::string_view head = text.substr(0, parts.head);
    const bool hasNoLength = HeaderValue(head, "Content-Length").data() == nullptr &&
                             HeaderValue(head, "Content-Type").data() != nullptr;
    if (hasNoLength && bytes.rule == ReplyEnd::kFirstFrame) // among frames that are expected none is waited for
        return {bytes.replyIsFinal ? LengthBeforeFrame(text) : text.npos, true};
    if (BeginsMessage(bytes, text.substr(asAnnounced.length))) return asAnnounced;
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

// ---- requests of the server ----

enum class Begins { kNo, kMaybe, kYes };

// OPTIONS rtsp://camera/live RTSP/1.0
// Upper case, which no junk keeps up for long. kMaybe: as far as it came.
Begins BeginsRequest(std::string_view text) {
    constexpr std::string_view kMethodLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_";
    constexpr std::size_t kShortestMethod = 3;
    constexpr std::size_t kLongestMethod = 24;
    constexpr std::size_t kLongestUri = 4200;
    constexpr std::string_view kVersion = " RTSP/1.";
    const auto cut = [](std::size_t most, std::size_t size) { return size < most ? Begins::kMaybe : Begins::kNo; };
    const std::size_t method = text.substr(0, kLongestMethod + 1).find_first_not_of(kMethodLetters);
    if (method == text.npos) return cut(kLongestMethod, text.size());
    if (method < kShortestMethod || text[method] != ' ') return Begins::kNo;
    text.remove_prefix(method + 1);
    const auto isOfUri = [](char c) { return c > ' ' && c < 0x7F; };
    const auto uri = static_cast<std::size_t>(std::ranges::find_if_not(text, isOfUri) - text.begin());
    if (uri == text.size()) return cut(kLongestUri, uri);
    const std::string_view version = text.substr(uri, kVersion.size());
    if (uri == 0 || uri > kLongestUri || !kVersion.starts_with(version)) return Begins::kNo;
    return version == kVersion ? Begins::kYes : Begins::kMaybe;
}

// The body is skipped as it comes.
Unit NextRequest(const UnsplitBytes &bytes) {
    constexpr std::size_t kLongestHead = 16384;
    const std::string_view text = bytes.text.substr(0, kLongestHead);
    const std::size_t head = HeadLength(text);
    if (head == text.npos) {
        const bool isHopeless = bytes.isFinal || text.size() == kLongestHead;
        return isHopeless ? Unit{.kind = Unit::Kind::kJunk, .length = 1} : Unit{};
    }
    Unit unit{.kind = Unit::Kind::kRequest, .length = head};
    unit.bodyLength = BodyLength(text.substr(0, head), true);
    if (unit.bodyLength > kLongestSkip) unit.bodyLength = 0;
    return unit;
}

// ---- in step again behind junk ----

// Whether a unit stands at the front, as far as it came.
Begins BeginsUnit(const UnsplitBytes &bytes, std::string_view text) {
    if (text.empty()) return Begins::kMaybe;
    if (text.front() == '$') {
        if (text.size() == 1) return Begins::kMaybe;
        return bytes.confirmedChannels->test(static_cast<uint8_t>(text[1])) ? Begins::kYes : Begins::kNo;
    }
    if (MayBeginReply(bytes, text)) return BeginsReply(bytes, text) ? Begins::kYes : Begins::kMaybe;
    return bytes.hasRequests ? BeginsRequest(text) : Begins::kNo;
}

// Up to where the next unit may begin.
Unit JunkUpToUnit(const UnsplitBytes &bytes) {
    const std::size_t blanks = std::min(bytes.text.find_first_not_of(" \t\r\n"), bytes.text.size());
    if (blanks > 0 && !bytes.outOfStep) return {.kind = Unit::Kind::kBlanks, .length = blanks};
    std::size_t at = 1;
    while (at < bytes.text.size() && BeginsUnit(bytes, bytes.text.substr(at)) == Begins::kNo) ++at;
    return {.kind = Unit::Kind::kJunk, .length = at};
}

inline Unit FrameAt(std::string_view text) {
    const auto *const header = reinterpret_cast<const uint8_t *>(text.data());
    Unit unit{.kind = Unit::Kind::kFrame, .channel = header[1], .bodyLength = wire::U16(header + 2)};
    unit.length = kFrameHeaderBytes + unit.bodyLength;
    return unit;
}

// Whether a whole frame lies further on, and the header of another one behind it: then the one at the front, which
// is longer than what has come, is none. It would be waited for in vain.
bool HidesFrame(const UnsplitBytes &bytes) {
    const std::string_view text = bytes.text;
    const auto isHeader = [&](std::size_t at) {
        return at + kFrameHeaderBytes <= text.size() && text[at] == '$' &&
               bytes.confirmedChannels->test(static_cast<uint8_t>(text[at + 1]));
    };
    for (std::size_t at = text.find('$', 1); at != text.npos; at = text.find('$', at + 1))
        if (isHeader(at) && isHeader(at + FrameAt(text.substr(at)).length)) return true;
    return false;
}

// Behind junk a header counts when its channel is known, and another unit begins behind the frame; not when it
// would hide a reply that is awaited.
Begins ConfirmFrame(const UnsplitBytes &bytes, const Unit &frame) {
    if (!bytes.confirmedChannels->test(frame.channel) || frame.bodyLength > bytes.longestBody) return Begins::kNo;
    if (bytes.awaitsReply && SearchReply(bytes.text, kReplyVersion, frame.length, true).result == Search::kFound)
        return Begins::kNo;
    if (bytes.text.size() <= frame.length) {
        const bool isLast = bytes.isFinal && bytes.text.size() == frame.length;
        if (bytes.isFinal || HidesFrame(bytes)) return isLast ? Begins::kYes : Begins::kNo;
        return Begins::kMaybe;
    }
    return BeginsUnit(bytes, bytes.text.substr(frame.length));
}

// ---- units ----

// Where a reply is all that is awaited, any text is taken for it, but not the body of a frame that was dropped.
bool ReplyStandsNext(const UnsplitBytes &bytes) {
    if (bytes.rule == ReplyEnd::kFirstFrame && !bytes.outOfStep)
        return !bytes.text.empty() && !bytes.text.starts_with('$');
    return BeginsReply(bytes, bytes.text);
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
    unit.bodyLength = end.skipped;
    return unit;
}

Unit NextFrame(const UnsplitBytes &bytes) {
    if (bytes.awaitsReply &&
        SearchReply(bytes.text, kReplyStart, kFrameHeaderBytes, bytes.isFinal).result == Search::kMoreNeeded)
        return {};
    if (bytes.text.front() != '$') return {.kind = Unit::Kind::kJunk, .length = DropLength(bytes)};
    return FrameAt(bytes.text);
}

// What does not begin as a unit does, or stands behind junk.
Unit NextConfirmed(const UnsplitBytes &bytes) {
    const bool isFrame = bytes.text.starts_with('$');
    if (isFrame && bytes.text.size() < kFrameHeaderBytes && !bytes.isFinal) return {};
    Begins begins = Begins::kNo;
    if (!isFrame)
        begins = bytes.replyIsFinal ? Begins::kNo : BeginsUnit(bytes, bytes.text);
    else if (bytes.text.size() >= kFrameHeaderBytes)
        begins = ConfirmFrame(bytes, FrameAt(bytes.text));
    if (begins == Begins::kNo) return JunkUpToUnit(bytes);
    return isFrame && begins == Begins::kYes ? FrameAt(bytes.text) : Unit{};
}

Unit NextText(const UnsplitBytes &bytes) {
    if (bytes.hasRequests && !bytes.text.starts_with('$')) {
        const Begins begins = BeginsRequest(bytes.text);
        if (begins == Begins::kYes) return NextRequest(bytes);
        if (begins == Begins::kMaybe && !bytes.replyIsFinal && !MayBeginReply(bytes, bytes.text))
            return {.replyBegun = true};
    }
    if (ReplyStandsNext(bytes)) return bytes.staleBytes > 0 ? StaleText(bytes) : NextReply(bytes);
    if (bytes.confirmedChannels != nullptr) return NextConfirmed(bytes);
    return bytes.text.size() < kFrameHeaderBytes ? Unit{} : NextFrame(bytes);
}

} // namespace

// A frame in step is told by its first byte; two dollars are junk, for nobody has so many channels.
Unit NextUnit(const UnsplitBytes &bytes) {
    if (bytes.text.empty()) return {};
    const bool isDoubled = bytes.text.starts_with("$$");
    const bool isInStep = bytes.confirmedChannels == nullptr ||
                          (!bytes.outOfStep && (!isDoubled || bytes.confirmedChannels->test('$')));
    if (!bytes.text.starts_with('$') || !isInStep) return NextText(bytes);
    if (bytes.text.size() < kFrameHeaderBytes) return {};
    return bytes.awaitsReply ? NextFrame(bytes) : FrameAt(bytes.text);
}

ReplyHead ReadReplyHead(std::string_view text) {
    const std::string_view head = text.substr(0, HeadLength(text));
    const auto number = static_cast<uint32_t>(std::max(LeadingNumber(HeaderValue(head, "CSeq")), 0));
    std::string_view rest = head;
    std::string_view line;
    std::string_view version;
    NextLine(rest, line);
    Until(line, ' ', version);
    return {LeadingNumber(line), number};
}

ServerRequest ReadRequest(std::string_view text) {
    const std::string_view head = text.substr(0, HeadLength(text));
    return {.method = head.substr(0, head.find(' ')),
            .cSeq = WithoutBlanks(HeaderValue(head, "CSeq")),
            .session = WithoutBlanks(HeaderValue(head, "Session"))};
}

std::size_t MessageLength(std::string_view text) {
    const ReplyParts parts = MeasureReply(text);
    return parts.body <= text.size() ? SkipLineEnds(text, parts.body) : text.size();
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
