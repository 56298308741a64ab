#include "rtsp/client/options.h"

#include "dialect/dialect.h"
#include "platform/printers.h"
#include "platform/text.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <cstring>

namespace rtsptap {
namespace {

int64_t GetTransportUsed(const RTSPClient &client) {
    const RTSPStreamInfo *stream = client.media.streamList;
    while (stream != nullptr && !stream->isSetUp) stream = stream->next;
    if (stream == nullptr) return RTSPTAP_TRANSPORT_DEFAULT;
    if (client.media.dataProto == DATA_PROTO_TCP) return RTSPTAP_TRANSPORT_TCP;
    return stream->isMulticast ? RTSPTAP_TRANSPORT_MULTICAST : RTSPTAP_TRANSPORT_UDP;
}

template <auto field> int64_t GetOfGroups(const RTSPClient &client) { return client.media.multicast.*field; }
template <auto field> void SetOfGroups(RTSPClient &client, int64_t value) { client.media.multicast.*field = value; }
template <auto field> std::span<char> TextOfGroups(RTSPClient &client) { return client.media.multicast.*field; }

std::span<char> ListenAddress(RTSPClient &client) { return client.media.listenAddress; }
int64_t GetBasicAllowed(const RTSPClient &client) { return client.credentials.allowsBasic ? 1 : 0; }
void SetBasicAllowed(RTSPClient &client, int64_t value) { client.credentials.allowsBasic = value == 1; }
std::span<char> StreamFailure(RTSPClient &client) { return client.streams.failure; }
int64_t GetHttpTunnel(const RTSPClient &client) { return client.streams.throughHttp ? 1 : 0; }
void SetHttpTunnel(RTSPClient &client, int64_t value) { client.streams.throughHttp = value == 1; }
std::span<char> ChallengeText(RTSPClient &client) { return client.credentials.asked; }

int64_t GetDialect(const RTSPClient &client) { return client.media.dialect.Chosen(); }
void SetDialect(RTSPClient &client, int64_t value) { client.media.dialect.Choose(static_cast<int32_t>(value)); }

int64_t GetKeepAlive(const RTSPClient &client) { return client.media.connection.tending.keepAlive; }
void SetKeepAlive(RTSPClient &client, int64_t value) { client.media.connection.tending.keepAlive = value; }

template <auto field> int64_t Get(const RTSPClient &client) { return client.*field; }
template <auto field> void Set(RTSPClient &client, int64_t value) { client.*field = value; }
template <auto field> int64_t GetOfMedia(const RTSPClient &client) { return client.media.*field; }
template <auto field> void SetOfMedia(RTSPClient &client, int64_t value) { client.media.*field = value; }
template <auto field> std::span<char> Text(RTSPClient &client) { return client.*field; }

template <void (*set)(MediaSession &, int64_t)> void ThroughMedia(RTSPClient &client, int64_t value) {
    set(client.media, value);
}

constexpr int64_t kLongestReorderWaitMs = 10000;
constexpr int64_t kLongestLimitMs = 3600000;
constexpr int64_t kLargestBuffer = 1 << 30;

constexpr Option kOptions[] = {
    {RTSPTAP_OPTION_DIALECT, "dialect", "", RTSPTAP_DIALECT_EXACT, RTSPTAP_DIALECT_TOLERANT, RTSPTAP_DIALECT_EXACT,
     Settable::kUntilConnected, GetDialect, SetDialect},
    {RTSPTAP_OPTION_USER_AGENT, "User-Agent of requests", "bytes", 1, sizeof RTSPClient::userAgent - 1, 0,
     Settable::kAlways, nullptr, nullptr, Text<&RTSPClient::userAgent>, "Rtp Rtsp Client"},
    {RTSPTAP_OPTION_CONNECT_LIMIT, "limit of connecting", "ms", 0, kLongestLimitMs, 0, Settable::kAlways,
     Get<&RTSPClient::connectLimitMs>, Set<&RTSPClient::connectLimitMs>},
    {RTSPTAP_OPTION_REPLY_LIMIT, "limit of a reply", "ms", 1, kLongestLimitMs, kReplyTimeoutMs, Settable::kAlways,
     Get<&RTSPClient::replyLimitMs>, Set<&RTSPClient::replyLimitMs>},
    {RTSPTAP_OPTION_TEARDOWN_LIMIT, "limit of the reply to TEARDOWN", "ms", 0, kLongestLimitMs, 0,
     Settable::kAlways, Get<&RTSPClient::teardownLimitMs>, Set<&RTSPClient::teardownLimitMs>},
    {RTSPTAP_OPTION_PACKET_LIMIT, "limit of the wait for a packet", "ms", 1, kLongestLimitMs, 5000,
     Settable::kAlways, GetOfMedia<&MediaSession::packetLimitMs>, SetOfMedia<&MediaSession::packetLimitMs>},
    {RTSPTAP_OPTION_RECEIVE_BUFFER, "socket receive buffer", "bytes", 0, kLargestBuffer, 0, Settable::kAlways,
     GetOfMedia<&MediaSession::receiveBuffer>, SetOfMedia<&MediaSession::receiveBuffer>},
    {RTSPTAP_OPTION_RECEIVE_BUFFER_GRANTED, "socket receive buffer granted", "bytes", 0, kLargestBuffer, 0,
     Settable::kNever, GetOfMedia<&MediaSession::receiveBufferGranted>, nullptr},
    {RTSPTAP_OPTION_FIRST_PORT, "first local UDP port", "", 1024, 65534, kFirstCommonPort, Settable::kAlways,
     Get<&RTSPClient::firstPort>, Set<&RTSPClient::firstPort>},
    {RTSPTAP_OPTION_LAST_PORT, "last local UDP port", "", 1025, 65535, kLastCommonPort, Settable::kAlways,
     Get<&RTSPClient::lastPort>, Set<&RTSPClient::lastPort>},
    {RTSPTAP_OPTION_RECEIVE_NAP, "nap of a reader", "us", -1, kLongestNapUs, -1, Settable::kAlways,
     GetOfMedia<&MediaSession::receiveNapUs>, SetOfMedia<&MediaSession::receiveNapUs>},
    {RTSPTAP_OPTION_KEEP_ALIVE, "time between keep-alive requests", "ms", -1, kLongestLimitMs, 0,
     Settable::kUntilConnected, GetKeepAlive, SetKeepAlive},
    {RTSPTAP_OPTION_TRANSPORT, "transport", "", RTSPTAP_TRANSPORT_DEFAULT, RTSPTAP_TRANSPORT_AUTOMATIC,
     RTSPTAP_TRANSPORT_DEFAULT, Settable::kAlways, Get<&RTSPClient::transport>, Set<&RTSPClient::transport>},
    {RTSPTAP_OPTION_SILENCE_LIMIT, "limit of silence after PLAY", "ms", 0, kLongestLimitMs, 3000, Settable::kAlways,
     Get<&RTSPClient::silenceLimitMs>, Set<&RTSPClient::silenceLimitMs>},
    {RTSPTAP_OPTION_MULTICAST_INTERFACE, "interface of multicast", "bytes", 0, sizeof MulticastWays::interface - 1,
     0, Settable::kAlways, nullptr, nullptr, TextOfGroups<&MulticastWays::interface>, ""},
    {RTSPTAP_OPTION_MULTICAST_TTL, "TTL of multicast", "", 0, 255, 0, Settable::kAlways,
     GetOfGroups<&MulticastWays::hops>, SetOfGroups<&MulticastWays::hops>},
    {RTSPTAP_OPTION_MULTICAST_SOURCE, "source of multicast", "bytes", 0, sizeof MulticastWays::source - 1, 0,
     Settable::kAlways, nullptr, nullptr, TextOfGroups<&MulticastWays::source>, ""},
    {RTSPTAP_OPTION_BASIC_ALLOWED, "Basic authentication allowed", "", 0, 1, 0, Settable::kAlways, GetBasicAllowed,
     SetBasicAllowed},
    {RTSPTAP_OPTION_REORDER_WAIT, "wait for a missing packet", "ms", 0, kLongestReorderWaitMs, 0, Settable::kAlways,
     GetOfMedia<&MediaSession::reorderWaitMs>, ThroughMedia<SetReorderWait>},
    {RTSPTAP_OPTION_DROP_DUPLICATES, "duplicates are dropped", "", 0, 1, 0, Settable::kAlways,
     GetOfMedia<&MediaSession::dropsDuplicates>, ThroughMedia<SetDropsDuplicates>},
    {RTSPTAP_OPTION_TRANSPORT_USED, "transport used", "", RTSPTAP_TRANSPORT_DEFAULT, RTSPTAP_TRANSPORT_TCP,
     RTSPTAP_TRANSPORT_DEFAULT, Settable::kNever, GetTransportUsed, nullptr},
    {RTSPTAP_OPTION_LISTEN_ADDRESS, "address to listen to without RTSP", "bytes", 0,
     sizeof MediaSession::listenAddress - 1, 0, Settable::kAlways, nullptr, nullptr, ListenAddress, ""},
    {RTSPTAP_OPTION_DUPLICATES_DROPPED, "duplicates dropped", "packets", 0, INT64_MAX, 0, Settable::kNever,
     GetOfMedia<&MediaSession::duplicatesDropped>, nullptr},
    {RTSPTAP_OPTION_LATE_DROPPED, "late packets dropped", "packets", 0, INT64_MAX, 0, Settable::kNever,
     GetOfMedia<&MediaSession::lateDropped>, nullptr},
    {RTSPTAP_OPTION_STATISTICS, "packets are counted", "", 0, 1, 0, Settable::kUntilConnected,
     GetOfMedia<&MediaSession::keepsStatistics>, SetOfMedia<&MediaSession::keepsStatistics>},
    {RTSPTAP_OPTION_THREADS, "threads of the library's", "", 0, 1, 1, Settable::kUntilServed,
     GetOfMedia<&MediaSession::threads>, ThroughMedia<SetThreads>},
    {RTSPTAP_OPTION_PACKET_TIMES, "times of packets are kept", "", 0, 1, 0, Settable::kUntilConnected,
     GetOfMedia<&MediaSession::keepsTimes>, SetOfMedia<&MediaSession::keepsTimes>},
    {RTSPTAP_OPTION_TRUE_REPORTS, "receiver reports by the clock", "", 0, 1, 0, Settable::kUntilConnected,
     GetOfMedia<&MediaSession::trueReports>, SetOfMedia<&MediaSession::trueReports>},
    {RTSPTAP_OPTION_NACK, "missing packets are asked for", "", 0, 1, 0, Settable::kUntilConnected,
     GetOfMedia<&MediaSession::asksAgain>, SetOfMedia<&MediaSession::asksAgain>},
    {RTSPTAP_OPTION_SOURCE_FILTER, "only the server is received from", "", 0, 1, 0, Settable::kAlways,
     GetOfMedia<&MediaSession::filtersSources>, SetOfMedia<&MediaSession::filtersSources>},
    {RTSPTAP_OPTION_CHALLENGE, "what a 401 asked for", "bytes", 0, sizeof Credentials::asked - 1, 0,
     Settable::kNever, nullptr, nullptr, ChallengeText, ""},
    {RTSPTAP_OPTION_HTTP_TUNNEL, "tunnel through HTTP", "", 0, 1, 0, Settable::kUntilConnected, GetHttpTunnel,
     SetHttpTunnel},
    {RTSPTAP_OPTION_STREAM_FAILURE, "why the byte stream failed", "bytes", 0, sizeof StreamWays::failure - 1, 0,
     Settable::kNever, nullptr, nullptr, StreamFailure, ""},
};

} // namespace

std::span<const Option> Options() { return kOptions; }

namespace {

enum class Kind { kNumber, kText };

// The client and the option of a call; both there when `result` is 0.
struct Call {
    int32_t result = RTSP_SUCCESS;
    RTSPClient *client = nullptr;
    const Option *option = nullptr;
};

Call FindOption(const CallTrace &trace, intptr_t clientHandle, int32_t number, Kind kind, bool hasArgument) {
    Call call{.client = LiveClient(clientHandle)};
    if (call.client == nullptr || !hasArgument) {
        call.result = trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle or pointer\n");
        return call;
    }
    call.option = std::ranges::find(kOptions, number, &Option::number);
    const bool isKnown =
        call.option != std::end(kOptions) && (call.option->text != nullptr) == (kind == Kind::kText);
    if (!isKnown) call.result = trace.Fail(RTSPTAP_UNKNOWN_OPTION, "EXIT : %s :No such option\n");
    return call;
}

bool IsTooLate(const RTSPClient &client, Settable until) {
    return until == Settable::kUntilConnected && client.connected == 1;
}

int32_t FailTooLate(const CallTrace &trace) {
    return trace.Fail(RTSPTAP_TOO_LATE, "EXIT : %s :The client is connected\n");
}

int32_t CheckChange(const CallTrace &trace, const Call &call, int64_t value) {
    if (call.option->until == Settable::kNever)
        return trace.Fail(RTSPTAP_READ_ONLY, "EXIT : %s :The option is only told\n");
    if (value < call.option->lowest || value > call.option->highest)
        return trace.Fail(RTSPTAP_OUT_OF_RANGE, "EXIT : %s :The value is out of the option's range\n");
    if (call.option->until == Settable::kUntilServed && IsServed(call.client->media))
        return trace.Fail(RTSPTAP_TOO_LATE, "EXIT : %s :The client receives\n");
    return IsTooLate(*call.client, call.option->until) ? FailTooLate(trace) : RTSP_SUCCESS;
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapSetOption(intptr_t clientHandle, int32_t option, int64_t value) {
    const ClientTrace trace(__func__, clientHandle);
    const Call call = FindOption(trace, clientHandle, option, Kind::kNumber, true);
    if (call.result != RTSP_SUCCESS) return call.result;
    if (const int32_t result = CheckChange(trace, call, value); result != RTSP_SUCCESS) return result;
    call.option->set(*call.client, value);
    return RTSP_SUCCESS;
}

int32_t RTSPTapGetOption(intptr_t clientHandle, int32_t option, int64_t *value) {
    const ClientTrace trace(__func__, clientHandle);
    const Call call = FindOption(trace, clientHandle, option, Kind::kNumber, value != nullptr);
    if (call.result == RTSP_SUCCESS) *value = call.option->get(*call.client);
    return call.result;
}

int32_t RTSPTapSetOptionText(intptr_t clientHandle, int32_t option, const char *text) {
    const ClientTrace trace(__func__, clientHandle);
    const Call call = FindOption(trace, clientHandle, option, Kind::kText, text != nullptr);
    if (call.result != RTSP_SUCCESS) return call.result;
    const std::string_view value = text;
    const auto length = static_cast<int64_t>(value.size());
    if (const int32_t result = CheckChange(trace, call, length); result != RTSP_SUCCESS) return result;
    if (HasControlCharacter(value)) // it must stay on its line
        return trace.Fail(RTSPTAP_OUT_OF_RANGE, "EXIT : %s :The text has a control character\n");
    const std::span<char> place = call.option->text(*call.client);
    CopyText(place.data(), place.size(), value);
    return RTSP_SUCCESS;
}

int32_t RTSPTapGetOptionText(intptr_t clientHandle, int32_t option, char *text, uint32_t *size) {
    const ClientTrace trace(__func__, clientHandle);
    const Call call = FindOption(trace, clientHandle, option, Kind::kText, size != nullptr);
    if (call.result != RTSP_SUCCESS) return call.result;
    const char *const value = call.option->text(*call.client).data();
    const std::size_t needed = strlen(value) + 1; // a text's field is far shorter than 4 GiB
    const bool fits = text == nullptr || *size >= needed;
    *size = static_cast<uint32_t>(needed);
    if (!fits) return trace.Fail(RTSP_SMALL_BUFFER, "EXIT : %s :Small Buffer received from Application for text\n");
    if (text != nullptr) memcpy(text, value, needed);
    return RTSP_SUCCESS;
}

// ---- rules ----

namespace {

// The client of a call about a rule; null with the call's result in `result`.
RTSPClient *FindRuleCall(const CallTrace &trace, intptr_t clientHandle, int32_t rule, bool hasArgument,
                         int32_t &result) {
    RTSPClient *const client = LiveClient(clientHandle);
    result = RTSP_SUCCESS;
    if (client == nullptr || !hasArgument)
        result = trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle or pointer\n");
    else if (FindRule(rule) == kNoRule)
        result = trace.Fail(RTSPTAP_UNKNOWN_RULE, "EXIT : %s :No such rule\n");
    return result == RTSP_SUCCESS ? client : nullptr;
}

} // namespace

int32_t RTSPTapShowRule(int32_t index, RTSPTapRule *rule) {
    const CallTrace trace(__func__);
    if (index < 0 || rule == nullptr || rule->recordSize < sizeof rule->recordSize)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    if (static_cast<std::size_t>(index) >= kRuleCount) return RTSP_FAILURE;
    const RuleRow &row = kRules[index];
    const auto isOnIn = [&row](int32_t dialect) { return static_cast<int32_t>(row.dialects >> dialect & 1U); };
    const RTSPTapRule full = {rule->recordSize,
                              row.number,
                              row.name,
                              row.permits,
                              row.senders,
                              row.section,
                              isOnIn(RTSPTAP_DIALECT_EXACT),
                              isOnIn(RTSPTAP_DIALECT_TOLERANT)};
    memcpy(rule, &full, std::min<std::size_t>(rule->recordSize, sizeof full));
    return RTSP_SUCCESS;
}

int32_t RTSPTapSetRule(intptr_t clientHandle, int32_t rule, int32_t isOn) {
    const ClientTrace trace(__func__, clientHandle);
    int32_t result = RTSP_SUCCESS;
    RTSPClient *const client = FindRuleCall(trace, clientHandle, rule, true, result);
    if (client == nullptr) return result;
    if (isOn != 0 && isOn != 1) return trace.Fail(RTSPTAP_OUT_OF_RANGE, "EXIT : %s :A rule is on (1) or off (0)\n");
    if (IsTooLate(*client, Settable::kUntilConnected)) return FailTooLate(trace);
    client->media.dialect.Set(FindRule(rule), isOn == 1);
    return RTSP_SUCCESS;
}

int32_t RTSPTapGetRule(intptr_t clientHandle, int32_t rule, int32_t *isOn) {
    const ClientTrace trace(__func__, clientHandle);
    int32_t result = RTSP_SUCCESS;
    const RTSPClient *const client = FindRuleCall(trace, clientHandle, rule, isOn != nullptr, result);
    if (client != nullptr) *isOn = client->media.dialect.IsOn(FindRule(rule)) ? 1 : 0;
    return result;
}

int32_t RTSPTapGetRuleUse(intptr_t clientHandle, int32_t rule, uint64_t *count) {
    const ClientTrace trace(__func__, clientHandle);
    int32_t result = RTSP_SUCCESS;
    const RTSPClient *const client = FindRuleCall(trace, clientHandle, rule, count != nullptr, result);
    if (client != nullptr) *count = client->media.dialect.Uses(FindRule(rule));
    return result;
}
