#include "rtsp/message/response.h"

#include "dialect/dialect.h"
#include "platform/printers.h"
#include "platform/text.h"
#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/splitter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace rtsptap {

char *GetResponseHeader(ResponseMsg *responseMsg, const char *headerName) {
    const CallTrace trace(__func__);
    if (responseMsg != nullptr && headerName != nullptr)
        for (uint32_t i = 0; i < responseMsg->headerCount; ++i)
            if (EqualIgnoringCase(responseMsg->headers[i].headerName, headerName))
                return responseMsg->headers[i].headerValue;
    return trace.Fail(static_cast<char *>(nullptr), "\tEXIT : %s :Null Pointer Assignment\n");
}

void freeResponseMsg(ResponseMsg *responseMsg) {
    if (responseMsg == nullptr) return;
    for (RTSPHeaderStruct &slot : responseMsg->headers) ReleaseHeaderSlot(slot);
    std::free(responseMsg->version);
    delete responseMsg;
}

void ResponseMsgDeleter::operator()(ResponseMsg *responseMsg) const {
    std::free(std::exchange(responseMsg->reasonPhrase, nullptr));
    freeResponseMsg(responseMsg);
}

namespace {

constexpr std::size_t kLongestVersion = 8;

// One reply in reading.
struct Reading {
    const CallTrace &trace;
    const Dialect &dialect;
    const char *bodyStart; // behind the blank line: rules are about the lines before
    ResponseMsg &response;
};

bool Permits(const Reading &reading, std::string_view line, Rule rule) {
    return line.data() < reading.bodyStart && reading.dialect.Permits(rule);
}

// "200" and nothing behind it, which ends the line.
bool IsStatusCode(std::string_view text) {
    return text.size() == 3 && std::all_of(text.begin(), text.end(), IsDigit);
}

bool IsZero(std::string_view code) {
    return !code.empty() && std::all_of(code.begin(), code.end(), [](char c) { return c == '0'; });
}

// RTSP/1.0 200 OK
// version, space, status code, space, reason phrase: all three are required, the version is not compared.
bool ParseStatusLine(const Reading &reading, std::string_view line) {
    const auto &[trace, dialect, bodyStart, response] = reading;
    std::string_view version;
    if (!Until(line, ' ', version))
        return trace.Fail(false, "\tEXIT : %s : RTSP version not found in response buffer\n");
    if (version.size() > kLongestVersion)
        return trace.Fail(false, "\tEXIT : %s : Invalid RTSP version found in response buffer\n");
    if (!version.starts_with("RTSP") && EqualIgnoringCase(version.substr(0, 4), "RTSP"))
        (void)Permits(reading, version, Rule::kProtocolInAnyCase);
    response.version = DuplicateText(version).release();
    if (response.version == nullptr)
        return trace.Fail(false, "\tEXIT : %s :Memory Allocation Failed for RTSP version string\n");

    response.statusCode = LeadingNumber(line);
    std::string_view statusCode;
    if (!Until(line, ' ', statusCode)) {
        const bool isCode = IsStatusCode(line) || (IsZero(line) && dialect.IsOn(Rule::kStatusZero));
        if (!isCode || !Permits(reading, line, Rule::kNoReasonPhrase))
            return trace.Fail(false, "\tEXIT : %s : RTSP Status not found in response buffer\n");
        statusCode = std::exchange(line, {});
    }
    if (response.statusCode == 0 && IsZero(statusCode) && Permits(reading, statusCode, Rule::kStatusZero))
        response.statusCode = 200;
    const bool isOtherSuccess = response.statusCode > 200 && response.statusCode < 300;
    if (isOtherSuccess && Permits(reading, statusCode, Rule::kOtherSuccess)) response.statusCode = 200;
    if (response.statusCode == 0)
        return trace.Fail(false, "EXIT : %s :Problem in converting Ascii to Integer value \n");
    response.reasonPhrase = DuplicateText(line).release();
    if (response.reasonPhrase == nullptr)
        return trace.Fail(false, "\tEXIT : %s :Memory Allocation Failed for reason string\n");
    return true;
}

enum class HeaderLine { kTaken, kRefused, kNoMemory };

bool ContinuesHeader(const Reading &reading, std::string_view line) {
    return (line.front() == ' ' || line.front() == '\t') && reading.response.headerCount > 0 &&
           Permits(reading, line, Rule::kFoldedLine);
}

// The last header's value goes on with one blank, and the line's text.
HeaderLine ContinueHeader(const Reading &reading, std::string_view line) {
    char *&value = reading.response.headers[reading.response.headerCount - 1].headerValue;
    const std::string_view begun = value;
    const std::string_view more = WithoutBlanks(line);
    const std::size_t blank = begun.empty() || more.empty() ? 0 : 1;
    HeapText whole(static_cast<char *>(std::malloc(begun.size() + blank + more.size() + 1)));
    if (!whole)
        return reading.trace.Fail(HeaderLine::kNoMemory,
                                  "\tEXIT : %s :Memory Allocation Failed for header's value buffer \n");
    char *end = std::copy(begun.begin(), begun.end(), whole.get());
    if (blank != 0) *end++ = ' ';
    *std::copy(more.begin(), more.end(), end) = '\0';
    std::free(std::exchange(value, whole.release()));
    return HeaderLine::kTaken;
}

// Kept: the name is everything before the first colon, untrimmed, and the character after the colon is skipped
// whatever it is.
HeaderLine ParseHeaderLine(const Reading &reading, std::string_view line) {
    const auto &[trace, dialect, bodyStart, response] = reading;
    if (ContinuesHeader(reading, line)) return ContinueHeader(reading, line);
    std::string_view name;
    if (!Until(line, ':', name)) return HeaderLine::kTaken; // no header, nothing to store
    const std::string_view trimmed = name.substr(0, name.find_last_not_of(" \t") + 1);
    if (trimmed != name && Permits(reading, line, Rule::kBlankBeforeColon)) name = trimmed;
    const bool beginsWithBlank = line.starts_with(' ') || line.starts_with('\t');
    if (!line.empty() && (beginsWithBlank || !Permits(reading, line, Rule::kNoBlankAfterColon)))
        line.remove_prefix(1);

    HeapText nameCopy = DuplicateText(name);
    if (!nameCopy)
        return trace.Fail(HeaderLine::kNoMemory,
                          "\tEXIT : %s :Memory Allocation Failed for header's name buffer \n");
    HeapText valueCopy = DuplicateText(line);
    if (!valueCopy)
        return trace.Fail(HeaderLine::kNoMemory,
                          "\tEXIT : %s :Memory Allocation Failed for header's value buffer \n");
    RTSPHeaderStruct &slot = response.headers[response.headerCount++];
    slot.headerName = nameCopy.release();
    slot.headerValue = valueCopy.release();

    if (name != "CSeq") return HeaderLine::kTaken;
    response.cSeq = static_cast<uint32_t>(LeadingNumber(line));
    if (response.cSeq == 0 && !Permits(reading, line, Rule::kNoSequenceNumber))
        return trace.Fail(HeaderLine::kRefused, "EXIT : %s :Problem in converting Ascii to Integer value \n");
    return HeaderLine::kTaken;
}

bool HasRoom(const Reading &reading, std::string_view rest) {
    const std::size_t count = reading.response.headerCount;
    if (count < kHeaderSlots) return true;
    std::string_view next;
    return count < reading.response.headers.size() && NextLine(rest, next) &&
           Permits(reading, next, Rule::kManyHeaders);
}

std::string_view TextBeforeNul(const RecvBuffer &recvBuffer) {
    return {recvBuffer.data, strnlen(recvBuffer.data, static_cast<std::size_t>(recvBuffer.length))};
}

} // namespace

ResponseMsg *ClientParseMessage(const RecvBuffer *recvBuffer, const Dialect &dialect) {
    constexpr ResponseMsg *kNone = nullptr;
    const CallTrace trace(__func__);
    if (recvBuffer == nullptr || recvBuffer->data == nullptr || recvBuffer->length < 0)
        return trace.Fail(kNone, "\tEXIT : %s :Invalid input argument\n");
    ResponseMsgPtr response(new (std::nothrow) ResponseMsg{});
    if (!response) return trace.Fail(kNone, "\tEXIT : %s :Memory Allocation Failed for RTSP response message\n");

    std::string_view text = TextBeforeNul(*recvBuffer);
    const char *const bodyStart = text.data() + std::min(HeadLength(text), text.size());
    const Reading reading{trace, dialect, bodyStart, *response};
    std::string_view line; // stays empty, and without a version, when there is no line
    NextLine(text, line);
    if (!ParseStatusLine(reading, line)) return nullptr;

    // Kept: lines of a body that came with the headers are read like headers; there is no blank line to see.
    while (HasRoom(reading, text) && NextLine(text, line)) {
        const HeaderLine result = ParseHeaderLine(reading, line);
        if (result == HeaderLine::kRefused) return nullptr;
        if (result == HeaderLine::kNoMemory) break; // the headers read so far are good enough to go on with
    }
    return response.release();
}

} // namespace rtsptap
