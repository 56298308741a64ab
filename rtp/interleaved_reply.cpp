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

// The length of the complete reply at the front of `text`, or npos while its head or body is unfinished.
std::size_t CompleteLength(std::string_view text) {
    constexpr std::string_view kBlankLine = "\r\n\r\n";
    const std::size_t blank = text.find(kBlankLine);
    if (blank == text.npos) return text.npos;
    const std::size_t head = blank + kBlankLine.size();
    const std::size_t body = BodyLength(text.substr(0, blank));
    return body <= text.size() - head ? head + body : text.npos;
}

// How much of the text is the reply; npos while more may come.
std::size_t ReplyLength(std::string_view text, ReplyEnd rule) {
    const std::size_t complete = CompleteLength(text);
    if (rule == ReplyEnd::kFirstDollar) {
        const std::size_t dollar = text.find('$');
        if (dollar != text.npos) return dollar;
        return complete == text.npos ? text.npos : text.size();
    }
    if (complete == text.npos) return text.npos;
    const std::string_view behind = text.substr(complete);
    return behind.starts_with('$') || behind.starts_with("RTSP") ? complete : text.size();
}

bool GraceIsOver(InterleavedReader &reader) {
    if (reader.replySinceMs == 0) reader.replySinceMs = MonotonicMs();
    return ReplyGraceLeft(reader) == 0;
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
