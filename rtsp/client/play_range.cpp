// PLAY from a place on, at a scale and a speed (RFC 2326, 10.5, 12.29, 12.33 to 12.35), and what the reply says of
// them. Application thread.
#include "platform/text.h"
#include "rtp/media_session.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/message/request.h"
#include "rtsp/message/response.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace rtsptap {

// What the steps of one such PLAY share.
struct PlayParts {
    RTSPTapPlayRequest request = {};
    RTSPTapPlayReply *reply = nullptr; // may be null
};

namespace {

constexpr double kLongestPlayTime = 1e9; // seconds

bool IsWithin(double value, double limit) { return std::fabs(value) <= limit; } // and no NaN

bool IsPlayable(const RTSPTapPlayRequest &request) {
    constexpr double kFastest = 1000;
    const bool isTimeGood = IsWithin(request.start, kLongestPlayTime) && request.start >= 0 &&
                            IsWithin(request.end, kLongestPlayTime) && request.end >= 0;
    const bool isRangeGood = request.range == nullptr || !HasControlCharacter(request.range);
    return isTimeGood && isRangeGood && IsWithin(request.scale, kFastest) && IsWithin(request.speed, kFastest) &&
           request.speed >= 0;
}

// Fills the record that the caller's size stands for; members behind it are zero.
template <typename Record> bool ReadRecord(const Record *from, Record &to) {
    if (from == nullptr) return true;
    if (from->recordSize < sizeof from->recordSize) return false;
    std::memcpy(&to, from, std::min<std::size_t>(from->recordSize, sizeof to));
    return true;
}

int32_t CheckRequest(Exchange &exchange) {
    if (IsPlayable(exchange.play->request)) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSPTAP_OUT_OF_RANGE, "EXIT : %s :A value of the request is out of its range\n");
}

// A number with three places behind the point, whatever the locale.
struct Decimal {
    char text[32] = {};

    explicit Decimal(double value) {
        const auto thousandths = static_cast<long long>(std::llround(std::fabs(value) * 1000));
        std::snprintf(text, sizeof text, "%s%lld.%03lld", value < 0 ? "-" : "", thousandths / 1000,
                      thousandths % 1000);
    }
};

// Without a range in the request the header list's counts, or none: the server goes on where it paused.
bool PutRange(RequestMsg &message, const RTSPTapPlayRequest &request, intptr_t headerList) {
    if (request.range != nullptr) return PutRequestHeader(message, "Range", request.range) == RTSP_SUCCESS;
    if (request.seeks == 0) {
        if (headerList == 0 || GetUserAddedHeaderValue(headerList, "Range") == nullptr)
            RemoveRequestHeader(message, "Range");
        return true;
    }
    char range[80];
    const bool hasEnd = request.end > request.start;
    std::snprintf(range, sizeof range, "npt=%s-%s", Decimal(request.start).text,
                  hasEnd ? Decimal(request.end).text : "");
    return PutRequestHeader(message, "Range", range) == RTSP_SUCCESS;
}

bool PutFactor(RequestMsg &message, const char *name, double value) {
    return value == 0 || PutRequestHeader(message, name, Decimal(value).text) == RTSP_SUCCESS;
}

int32_t AddPlayHeaders(Exchange &exchange) {
    const RTSPTapPlayRequest &request = exchange.play->request;
    RequestMsg &message = *exchange.client->requestMsg;
    if (PutRange(message, request, exchange.arguments.headerList) && PutFactor(message, "Scale", request.scale) &&
        PutFactor(message, "Speed", request.speed))
        return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_REQUEST_NOT_BUILT, "EXIT : %s :A header of PLAY could not be added\n");
}

// ---- the reply ----

constexpr double kUnsaid = -1;

// "12.5" or "1:02:03.25"; a word, or nothing, is no time.
double PlayTime(std::string_view text) {
    text = WithoutBlanks(text);
    if (text.empty() || !IsDigit(text.front())) return kUnsaid;
    double seconds = 0;
    std::string_view part;
    while (Until(text, ':', part)) seconds = (seconds + LeadingFraction(part)) * 60;
    return seconds + LeadingFraction(text);
}

// npt=10.5-20;time=19970123T143720Z
void ReadRange(std::string_view value, RTSPTapPlayReply &reply) {
    if (value.size() < sizeof reply.range) CopyText(reply.range, value);
    std::string_view times = value.substr(0, value.find(';'));
    if (!times.starts_with("npt=")) return;
    times.remove_prefix(4);
    std::string_view start;
    if (!Until(times, '-', start)) return;
    reply.start = PlayTime(start);
    reply.end = PlayTime(times);
}

// One stream of RTP-Info: "url=rtsp://foo/audio;seq=45102;rtptime=12345678".
bool IsUrlOf(const RTSPStreamInfo &stream, std::string_view url) {
    const std::string_view control = stream.controlUrl != nullptr ? stream.controlUrl.get() : "";
    if (url.empty() || control.empty()) return false;
    const std::string_view shorter = std::min(url, control, [](auto a, auto b) { return a.size() < b.size(); });
    const std::string_view longer = shorter.data() == url.data() ? control : url;
    return longer.ends_with(shorter) &&
           (longer.size() == shorter.size() || longer[longer.size() - shorter.size() - 1] == '/');
}

int32_t StreamOf(const Exchange &exchange, std::string_view url) {
    const MediaSession &media = exchange.client->media;
    int32_t number = 1;
    for (const RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next, ++number)
        if (IsUrlOf(*stream, url)) return number;
    return media.streamCount == 1 ? 1 : exchange.arguments.streamNumber;
}

int64_t NumberOf(std::string_view entry, std::string_view name) {
    const std::string_view text = After(entry, name);
    uint32_t number = 0;
    if (text.data() == nullptr) return -1;
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc() ? number : -1;
}

void ReadStreamInfo(const Exchange &exchange, std::string_view entry, RTSPTapPlayReply &reply) {
    const std::size_t end = std::min(entry.find(';'), entry.size());
    const int32_t number = StreamOf(exchange, WithoutBlanks(entry.substr(0, end)));
    if (number < 1 || static_cast<uint32_t>(number) > reply.streamRoom) return;
    const std::string_view rest = entry.substr(end);
    if (reply.sequenceNumbers != nullptr) reply.sequenceNumbers[number - 1] = NumberOf(rest, "seq=");
    if (reply.rtpTimes != nullptr) reply.rtpTimes[number - 1] = NumberOf(rest, "rtptime=");
}

void ReadRtpInfo(const Exchange &exchange, std::string_view value, RTSPTapPlayReply &reply) {
    constexpr std::string_view kUrl = "url=";
    std::string_view rest = After(value, kUrl);
    while (rest.data() != nullptr) {
        ReadStreamInfo(exchange, rest.substr(0, rest.find(kUrl)), reply);
        rest = After(rest, kUrl);
    }
}

int64_t RtpTimeOf(const Exchange &exchange, std::string_view info, int32_t number) {
    constexpr std::string_view kUrl = "url=";
    for (std::string_view rest = After(info, kUrl); rest.data() != nullptr; rest = After(rest, kUrl)) {
        const std::string_view entry = rest.substr(0, rest.find(kUrl));
        const std::size_t end = std::min(entry.find(';'), entry.size());
        if (StreamOf(exchange, WithoutBlanks(entry.substr(0, end))) == number)
            return NumberOf(entry.substr(end), "rtptime=");
    }
    return -1;
}

void Forget(RTSPTapPlayReply &reply) {
    for (int64_t *const numbers : {reply.sequenceNumbers, reply.rtpTimes})
        if (numbers != nullptr) std::fill_n(numbers, reply.streamRoom, -1);
    reply.range[0] = '\0';
    reply.start = reply.end = kUnsaid;
    reply.scale = reply.speed = 0;
}

std::string_view HeaderOf(const Exchange &exchange, const char *name) {
    const char *const value = GetResponseHeader(exchange.client->responseMsg, name);
    return value != nullptr ? WithoutBlanks(value) : std::string_view();
}

int32_t TellReply(Exchange &exchange) {
    if (exchange.play->reply == nullptr) return RTSP_SUCCESS;
    RTSPTapPlayReply reply = {};
    ReadRecord(exchange.play->reply, reply);
    Forget(reply);
    ReadRange(HeaderOf(exchange, "Range"), reply);
    reply.scale = LeadingFraction(HeaderOf(exchange, "Scale"));
    reply.speed = LeadingFraction(HeaderOf(exchange, "Speed"));
    ReadRtpInfo(exchange, HeaderOf(exchange, "RTP-Info"), reply);
    std::memcpy(exchange.play->reply, &reply, std::min<std::size_t>(reply.recordSize, sizeof reply));
    return RTSP_SUCCESS;
}

} // namespace

// Also of a PLAY that the base interface sends. RTP-Info may leave streams out.
void NotePlayReply(const Exchange &exchange) {
    const MediaSession &media = exchange.client->media;
    if (!IsWatched(media)) return;
    RTSPTapPlayReply reply = {};
    Forget(reply);
    ReadRange(HeaderOf(exchange, "Range"), reply);
    const double scale = LeadingFraction(HeaderOf(exchange, "Scale"));
    const bool seeks =
        exchange.play != nullptr && (exchange.play->request.seeks != 0 || exchange.play->request.range != nullptr);
    const int64_t now = WallClockNs();
    const std::string_view info = HeaderOf(exchange, "RTP-Info");
    int32_t number = 1;
    for (RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next, ++number) {
        if (exchange.arguments.streamNumber != 0 && exchange.arguments.streamNumber != number) continue;
        const bool wasPaused = stream->streamState == kStreamPaused;
        NotePlay(*stream,
                 {.rtpTime = RtpTimeOf(exchange, info, number),
                  .wallNs = now,
                  .playTime = reply.start,
                  .scale = scale != 0 ? scale : 1},
                 seeks || wasPaused);
    }
}

namespace {

constexpr Step kChecks[] = {CheckHandleAndSession, CheckConnected, CheckStreamNumber, CheckState,
                            CheckRequest,          CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest, AddPlayHeaders, SendRequest,    ReceiveReply,       AnswerChallenge,
                           ParseReply,      CompareSession, ClassifyStatus, OnOk<StartPlaying>, OnOk<TellReply>};

constexpr MethodDescriptor kPlayRange{
    .functionName = "RTSPTapPlay",
    .method = RTSP_PLAY,
    .allowedStates = States({CLIENT_READY_STATE, CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}),
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending PLAY request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for PLAY Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Play method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for PLAY not generated \n",
};

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapPlay(intptr_t clientHandle, int32_t streamNumber, const RTSPTapPlayRequest *request,
                    RTSPTapPlayReply *reply) {
    PlayParts parts{.reply = reply};
    const bool areRecordsGood = ReadRecord(request, parts.request) &&
                                (reply == nullptr || reply->recordSize >= offsetof(RTSPTapPlayReply, range));
    Exchange exchange(
        kPlayRange,
        {.clientHandle = clientHandle, .streamNumber = streamNumber, .headerList = parts.request.headerList});
    exchange.play = &parts;
    if (!areRecordsGood) return exchange.trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    return RunExchange(exchange);
}
