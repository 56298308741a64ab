#include "rtp/interleaved_reply.h"

#include "platform/clock.h"
#include "platform/scope.h"
#include "platform/text.h"
#include "rtp/interleaved_reader.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/recv_buffer.h"

#include <algorithm>
#include <cstring>

namespace rtsptap {
namespace {

// The Content-Length of the header lines, 0 when there is none.
std::size_t BodyLength(std::string_view head) {
    std::string_view line;
    while (NextLine(head, line)) {
        std::string_view name;
        if (Until(line, ':', name) && EqualIgnoringCase(name, "Content-Length"))
            return static_cast<std::size_t>(std::max(LeadingNumber(line), 0));
    }
    return 0;
}

// The length of status line and headers with the blank line behind them; npos while it may still come. Lines end as
// the parser ends them, at any run of CR and LF: one with two LFs, or with two CRs and no LF, holds a blank line.
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

bool GraceIsOver(InterleavedReader &reader) {
    if (reader.replySinceMs == 0) reader.replySinceMs = MonotonicMs();
    return ReplyGraceLeft(reader) == 0;
}

// Text that was there before the request, up to the first frame.
void DropStaleText(InterleavedReader &reader) {
    const std::string_view text = BufferedText(reader).substr(0, reader.staleBytes);
    Consume(reader, std::min(LengthBeforeFrame(text), text.size()));
    reader.replySinceMs = 0;
    reader.outOfStep = true; // its rest may follow
}

bool HandOver(RTSPClient &client, std::string_view text) {
    RecvBufferPtr reply(CreateRecvBuffer(kReplyBytes));
    if (reply == nullptr) return false;
    memcpy(reply->data, text.data(), text.size());
    reply->length = static_cast<int32_t>(text.size());
    const RecvBufferPtr displaced(client.recvData.exchange(reply.release()));
    const ScopedLock lock(client.replyLock);
    SignalOnConditionVar(&client.replyCondition);
    return true;
}

} // namespace

int ReplyGraceLeft(const InterleavedReader &reader) {
    if (reader.replySinceMs == 0) return -1;
    const uint64_t waited = MonotonicMs() - reader.replySinceMs;
    return waited >= kReplyGraceMs ? 0 : kReplyGraceMs - static_cast<int>(waited);
}

ReplyStatus TakeReply(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final) {
    if (reader.staleBytes > 0) {
        DropStaleText(reader);
        return ReplyStatus::kTaken;
    }
    const std::string_view text = BufferedText(reader).substr(0, kReplyBytes);
    std::size_t length = ReplyLength(text, rule);
    if (length == text.npos) {
        if (text.size() < kReplyBytes && !final && !GraceIsOver(reader)) return ReplyStatus::kIncomplete;
        length = text.size();
    }
    reader.replySinceMs = 0;
    // Kept: text that fills the whole buffer without a '$' is handed over as an empty reply. Where no frames are
    // expected yet it is taken as far as it came, as by a direct read.
    const bool fillsBuffer = length == kReplyBytes && rule == ReplyEnd::kFirstDollar;
    if (!HandOver(client, text.substr(0, fillsBuffer ? 0 : length))) return ReplyStatus::kNoMemory;
    Consume(reader, length);
    reader.outOfStep = false;
    reader.replyTail = Buffered(reader);
    return ReplyStatus::kTaken;
}

} // namespace rtsptap
