#include "sdp/sdp_parser.h"

#include "platform/text.h"
#include "rtp/media_session.h"
#include "sdp/control_url.h"
#include "sdp/reading.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <span>
#include <utility>

namespace rtsptap {
namespace {

// ---- readers of lines ----

struct LineReader {
    char letter; // type of the lines it reads
    int32_t (*read)(SdpReading &reading, std::string_view value);
};

// Lines of other types are kept in the list and not read.
int32_t ReadWith(std::span<const LineReader> readers, SdpReading &reading, char letter, std::string_view value) {
    for (const LineReader &reader : readers)
        if (reader.letter == letter) return ReadForgiving(reading, reader.read, value);
    return RTSP_SUCCESS;
}

// ---- session level ----

// o=<user> <id> <version> IN IP4 <address>, c=IN IP4 <address>
int32_t ReadNetwork(SdpReading &reading, std::string_view value) {
    const bool isUsual = Contains(value, "IP4") || (reading.to.isOpened && Contains(value, "IP6"));
    if (!isUsual && !reading.dialect.Permits(Rule::kAnyNetwork))
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Network Type not supported\n");
    return RTSP_SUCCESS;
}

// t=<start> <stop>
int32_t ReadSessionTime(SdpReading &reading, std::string_view value) {
    if (LeadingNumber(After(value, " ")) < 0 && !reading.dialect.Permits(Rule::kAnySessionTime))
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid Session Time found in SDP\n");
    return RTSP_SUCCESS;
}

constexpr LineReader kSessionLines[] = {
    {'o', ReadNetwork}, {'c', ReadNetwork}, {'t', ReadSessionTime}, {'a', ReadSessionAttribute}};

int32_t ReadSessionLine(SdpReading &reading, char letter, std::string_view value) {
    return ReadWith(kSessionLines, reading, letter, value);
}

// ---- media level ----

// Packets of other types than these and the usual ones are refused.
void AcceptFormats(const SdpReading &reading) {
    PayloadTypeSet &accepted = reading.stream->payloadTypes;
    for (const uint8_t type : reading.formats.Types())
        if (!accepted.Has(type) && reading.dialect.Permits(Rule::kPayloadTypeOfMedia)) accepted.Add(type);
}

int32_t MediaOf(std::string_view value) {
    constexpr std::pair<std::string_view, RTSPTapMedia> kMedia[] = {{"video", RTSPTAP_MEDIA_VIDEO},
                                                                    {"audio", RTSPTAP_MEDIA_AUDIO},
                                                                    {"application", RTSPTAP_MEDIA_APPLICATION},
                                                                    {"text", RTSPTAP_MEDIA_TEXT}};
    const std::string_view word = value.substr(0, value.find_first_of(" /"));
    for (const auto &[name, media] : kMedia)
        if (EqualIgnoringCase(word, name)) return media;
    return RTSPTAP_MEDIA_OTHER;
}

// m=<media> <port> <profile> <payload numbers>
int32_t ReadMedia(SdpReading &reading, std::string_view value) {
    const uint8_t isVideo = Contains(value, "audio") ? 0 : 1;
    reading.stream->description.isVideo = isVideo;
    reading.stream->isVideo.store(isVideo, std::memory_order_relaxed);
    reading.formats = MediaFormats(value);
    AcceptFormats(reading);
    const std::span<const uint8_t> types = reading.formats.Types();
    reading.stream->further.media = MediaOf(value);
    reading.stream->further.firstPayloadType = types.empty() ? -1 : int32_t{types.front()};
    return RTSP_SUCCESS;
}

// Of other modifiers than AS only TIAS is a stream's bandwidth, in bit/s (RFC 3890); an AS goes before it.
void TakeOtherBandwidth(RTSPStreamDescription &description, std::string_view value) {
    constexpr double kBitsPerKilobit = 1000;
    constexpr double kMost = std::numeric_limits<int32_t>::max();
    if (value.starts_with("TIAS:") && description.bandwidth == 0)
        description.bandwidth =
            static_cast<int32_t>(std::clamp(LeadingFraction(After(value, ":")) / kBitsPerKilobit, 0.0, kMost));
}

// b=<modifier>:<kilobits per second>
int32_t ReadBandwidth(SdpReading &reading, std::string_view value) {
    // Kept: the number is read behind a modifier of two letters ("AS:"), so "TIAS:64000" is refused.
    constexpr std::size_t kModifierLength = 3;
    const int32_t bandwidth = LeadingNumber(value.substr(std::min(kModifierLength, value.size())));
    const bool isNumber = LeadingNumber(After(value, ":")) > 0;
    const bool isReadable = isNumber && bandwidth != 0;
    const Dialect &dialect = reading.dialect;
    if (!(isNumber && value.starts_with("AS:")) &&
        (isReadable ? dialect.IsOn(Rule::kAnyBandwidth) : dialect.Permits(Rule::kAnyBandwidth))) {
        TakeOtherBandwidth(reading.stream->description, value);
        return RTSP_SUCCESS;
    }
    if (!isNumber) return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid bandwidth value in SDP\n");
    reading.stream->description.bandwidth = bandwidth;
    return bandwidth == 0 ? reading.trace.Fail(RTSP_BAD_NUMBER, kNotANumber) : RTSP_SUCCESS;
}

constexpr LineReader kMediaLines[] = {{'m', ReadMedia}, {'b', ReadBandwidth}, {'a', ReadAttribute}};

int32_t ReadMediaLine(SdpReading &reading, char letter, std::string_view value) {
    return ReadWith(kMediaLines, reading, letter, value);
}

// ---- the description ----

// A description is lines of a type letter, "=" and a value (RFC 4566, 5). Session lines come first; each
// "m" line opens a media section, which lasts until the next one.

SDPField **EndOfList(SDPField *&head) {
    SDPField **end = &head;
    while (*end != nullptr) end = &(*end)->next;
    return end;
}

// From here on the lines belong to a new stream. A stream stays linked and counted whatever its section
// brings: the application may have been given its number.
int32_t StartStream(SdpReading &reading) {
    if (const int32_t result = FinishSection(reading); result != RTSP_SUCCESS) return result;
    RTSPStreamInfo *const stream = AppendStream(reading.to.session, reading.stream);
    if (stream == nullptr) return reading.trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");
    reading.stream = stream;
    ++reading.sections;
    reading.sectionIsOpen = true;
    reading.hasControl = reading.configIsRead = false;
    reading.listEnd = &stream->sdpFieldList;

    switch (CreateStreamLocks(*stream)) {
    case StreamLock::kPacketList:
        return reading.trace.Fail(RTSP_MUTEX_FAILED, "EXIT : %s: Can not create mutex to lock RTP Data List.\n");
    case StreamLock::kSignal:
        return reading.trace.Fail(RTSP_MUTEX_FAILED,
                                  "EXIT : %s: Can not create mutex to lock condition variable.\n");
    case StreamLock::kCondition:
        return reading.trace.Fail(RTSP_FAILURE, "EXIT : %s: Can not create mutex to lock condition variable.\n");
    case StreamLock::kNone:
        break;
    }
    return RTSP_SUCCESS;
}

int32_t KeepLine(SdpReading &reading, char letter, std::string_view value) {
    std::unique_ptr<SDPField> field(new (std::nothrow) SDPField{});
    if (!field)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed for SDPField Structure\n");
    field->name[0] = letter;
    field->value = DuplicateText(value).release();
    if (field->value == nullptr)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed for SDPField's Value\n");
    *reading.listEnd = field.release();
    reading.listEnd = &(*reading.listEnd)->next;
    return RTSP_SUCCESS;
}

constexpr std::string_view kBlanks = " \t";

std::string_view WithoutBlanksAround(std::string_view line) {
    const std::size_t start = std::min(line.find_first_not_of(kBlanks), line.size());
    return line.substr(start, line.find_last_not_of(kBlanks) + 1 - start);
}

// Words with one blank between them, and none behind the first colon. Returns the new size.
std::size_t JoinWords(std::span<char> line) {
    std::size_t size = 0;
    bool colonSeen = false;
    bool dropsBlanks = false;
    for (const char character : line) {
        const bool isBlank = Contains(kBlanks, {&character, 1});
        if (isBlank && dropsBlanks) continue;
        line[size++] = isBlank ? ' ' : character;
        const bool isFirstColon = character == ':' && !std::exchange(colonSeen, colonSeen || character == ':');
        dropsBlanks = isBlank || isFirstColon;
    }
    return size;
}

// What is left of a line with NUL bytes: none at its end, blanks within; `storage` keeps it.
std::string_view WithoutNuls(std::string_view line, HeapText &storage) {
    constexpr std::string_view kNul{"\0", 1};
    const std::string_view text = line.substr(0, line.find_last_not_of(kNul) + 1);
    if (!Contains(text, kNul)) return text;
    storage = DuplicateText(text);
    if (!storage) return text.substr(0, text.find('\0'));
    std::replace(storage.get(), storage.get() + text.size(), '\0', ' ');
    return {storage.get(), text.size()};
}

// The line without blanks where none belong; `storage` keeps it where it is another one. Texts of people's keep
// those between their words.
std::string_view TidyLine(const Dialect &dialect, std::string_view line, HeapText &storage) {
    if (!dialect.IsOn(Rule::kBlanks)) return line;
    std::string_view tidy = WithoutBlanksAround(line);
    if (tidy.starts_with("a=") || tidy.starts_with("m=")) {
        HeapText copy = DuplicateText(tidy);
        if (copy) tidy = {copy.get(), JoinWords({copy.get(), tidy.size()})};
        if (copy) storage = std::move(copy);
    }
    if (tidy.size() != line.size()) (void)dialect.Permits(Rule::kBlanks);
    return tidy;
}

int32_t ReadLine(SdpReading &reading, std::string_view received) {
    HeapText whole;
    HeapText tidy;
    const std::string_view line = TidyLine(reading.dialect, WithoutNuls(received, whole), tidy);
    const bool isNone = line.size() < 2 || line[1] != '=';
    if (line.empty() || (isNone && reading.dialect.Permits(Rule::kMalformedLine))) return RTSP_SUCCESS;
    const char letter = line.front();
    const std::string_view value = line.substr(std::min<std::size_t>(2, line.size()));

    if (letter == 'm')
        if (const int32_t result = StartStream(reading); result != RTSP_SUCCESS) return result;
    if (const int32_t result = KeepLine(reading, letter, value); result != RTSP_SUCCESS) return result;
    return reading.stream == nullptr ? ReadSessionLine(reading, letter, value)
                                     : ReadMediaLine(reading, letter, value);
}

// What a line of keys says of them (RFC 4566, 5.12; RFC 4567, 4568), with stars in its place.
void HideKeys(std::span<char> text) {
    std::string_view rest(text.data(), text.size());
    std::string_view line;
    while (NextLine(rest, line)) {
        for (const std::string_view begin : {"k=", "a=key-mgmt:", "a=crypto:"}) {
            const std::string_view tidy = WithoutBlanksAround(line);
            if (!tidy.starts_with(begin)) continue;
            const std::string_view keys = After(tidy, begin);
            std::fill_n(text.data() + (keys.data() - text.data()), keys.size(), '*');
        }
    }
}

// Of a client that asks for more than the base interface no key is printed.
void PrintDescription(std::string_view text, const DescribedSession &to) {
    if (!to.isOpened && to.session.protection == nullptr) {
        RtpRtspErrorPrint("\t\nENTIRE SDP : %s \n\n", text.data());
        return;
    }
    const HeapText shown = DuplicateText(text);
    if (!shown) return;
    HideKeys({shown.get(), text.size()});
    RtpRtspErrorPrint("\t\nENTIRE SDP : %s \n\n", shown.get());
}

// Of the reply, before a line tells otherwise.
void FindBase(SdpReading &reading) {
    const DescribedSession &to = reading.to;
    if (!to.isOpened && !reading.dialect.IsOn(Rule::kControlBase)) return;
    reading.base = BaseUrl(to);
    const HeapText request = RequestUrl(to);
    if (!request || !reading.base || std::string_view(request.get()) == reading.base.get()) return;
    (void)reading.dialect.Permits(Rule::kControlBase);
    reading.aggregate = DuplicateText(reading.base.get());
}

} // namespace

// A reader that fails so leaves what the description owns alone.
int32_t ReadForgiving(SdpReading &reading, int32_t (*read)(SdpReading &reading, std::string_view value),
                      std::string_view value) {
    RTSPStreamDescription before = {};
    if (reading.stream != nullptr) before = reading.stream->description;
    const int32_t result = read(reading, value);
    const bool isUnreadable = result == kEndEarly || result == RTSP_FAILURE || result == RTSP_BAD_NUMBER;
    if (!isUnreadable || !reading.dialect.Permits(Rule::kMalformedLine)) return result;
    if (reading.stream != nullptr) reading.stream->description = before;
    return RTSP_SUCCESS;
}

int32_t ParseReceivedSDP(std::string_view text, const DescribedSession &to) {
    const CallTrace trace(__func__);
    PrintDescription(text, to);

    const Dialect &dialect = to.session.dialect;
    const std::size_t nul = text.find('\0');
    std::string_view rest = nul == text.npos || dialect.Permits(Rule::kNulByte) ? text : text.substr(0, nul);
    std::string_view line;
    if (!NextLine(rest, line) || line.front() != 'v')
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid SDP received\n");

    SdpReading reading{.to = to, .dialect = dialect, .trace = trace, .listEnd = EndOfList(to.lines)};
    FindBase(reading);
    int32_t result = RTSP_SUCCESS;
    do result = ReadLine(reading, line);
    while (result == RTSP_SUCCESS && NextLine(rest, line));
    const int32_t finished = FinishSection(reading);
    if (result == RTSP_SUCCESS) result = finished;
    FinishControlUrls(reading);
    free(to.aggregateUrl);
    to.aggregateUrl = reading.aggregate.release();
    return result == kEndEarly ? RTSP_SUCCESS : result;
}

} // namespace rtsptap
