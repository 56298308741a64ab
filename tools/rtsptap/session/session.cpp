#include "session/session.h"

#include "base/codecs.h"
#include "base/secrets.h"
#include "base/text.h"
#include "session/library_output.h"
#ifdef RTSPTAP_WITH_TLS
#include "rtsptap_tls.h"
#endif
#ifdef RTSPTAP_WITH_SRTP
#include "rtsptap_srtp.h"
#endif

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace tool {
namespace {

constexpr int32_t kVideoBufferBytes = 4 << 20;
constexpr int32_t kAudioBufferBytes = 1 << 20;
constexpr uint32_t kLargestDatagramBytes = 33000; // without RTSP; with it, the library's own
constexpr std::size_t kUsualAttributeBytes = 512;
constexpr std::size_t kTextBytes = 64; // of an address, the name of a challenge

// Header lists are the library's; a fresh one for each request, since SETUP takes entries out.
class HeaderList {
public:
    HeaderList() = default;
    ~HeaderList() { RTSPDestroyHeaderList(handle_); }
    HeaderList(const HeaderList &) = delete;
    HeaderList &operator=(const HeaderList &) = delete;

    // As custom headers: the name may be any, and the value is its giver's affair.
    int32_t Add(const Header &header) {
        return RTSPAddHeaderToList(handle_, header.name.c_str(), header.value.c_str(), 1);
    }
    int32_t AddAll(const std::vector<Header> &headers) {
        for (const Header &header : headers)
            if (const int32_t result = Add(header); result != RTSP_SUCCESS) return result;
        return RTSP_SUCCESS;
    }
    intptr_t Handle() const { return handle_; }

private:
    const intptr_t handle_ = RTSPCreateHeaderList();
};

// Those that a user may add headers to.
struct Method {
    RTSPMethod number;
    const char *name;
};

constexpr Method kMethods[] = {{RTSP_OPTIONS, "OPTIONS"},
                               {RTSP_DESCRIBE, "DESCRIBE"},
                               {RTSP_SETUP, "SETUP"},
                               {RTSP_PLAY, "PLAY"},
                               {RTSP_TEARDOWN, "TEARDOWN"}};

// What the library refuses to send with TEARDOWN. With other methods its refusal comes before any harm is done;
// here it would leave the session in the server.
constexpr const char *kNotWithTeardown[] = {
    "Blocksize",         "Cache-Control", "Conference", "Content-Encoding", "Content-Language", "Expires",
    "If-Modified-Since", "Range",         "Scale",      "Transport"};

bool IsToken(const std::string &name) {
    return !name.empty() && name.find_first_of(" \t\"(),/;<=>?@[]{}\\") == name.npos;
}

bool IsPrintable(const std::string &text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char letter) { return letter < ' ' || letter == 127; });
}

bool WasSent(int32_t result) {
    constexpr int32_t kBefore[] = {RTSP_INVALID_HEADER_LIST, RTSP_INVALID_STATE, RTSP_INVALID_ARGUMENT,
                                   RTSP_NOT_CONNECTED,       RTSP_SOCKET_FAILED, RTSP_NO_MEMORY,
                                   RTSP_REQUEST_NOT_BUILT,   RTSP_SEND_FAILED,   RTSPTAP_NO_PROTECTION,
                                   RTSPTAP_BAD_KEYS,         RTSPTAP_INTERRUPTED};
    return std::find(std::begin(kBefore), std::end(kBefore), result) == std::end(kBefore);
}

// Packets with others are refused by the library, unless a rule has them (RFC 3551, 6).
bool IsAcceptedPayloadType(intptr_t client, int32_t type) {
    constexpr int32_t kUnusualPayloadType = 207;
    const Codec *const codec = CodecOfPayloadType(type);
    const bool isOfTheBase = codec != nullptr && codec->type <= RTP_CODEC_MPA;
    int32_t isAny = 0;
    RTSPTapGetRule(client, kUnusualPayloadType, &isAny);
    return isAny == 1 || isOfTheBase || (type >= 96 && type <= 127);
}

// Empty when nothing speaks against it.
std::string WhyUnreadable(intptr_t client, const RTSPTapStreamDescription &description, bool isForServer) {
    if (description.sameControlAs > 0)
        return "it is stream " + std::to_string(description.sameControlAs) + " once more";
    if (isForServer) return "it goes to the server";
    if (IsAcceptedPayloadType(client, description.payloadType)) return "";
    return "packets of payload type " + std::to_string(description.payloadType) + " cannot be received";
}

} // namespace

Outcome AddHeaderOption(const std::string &text, MethodHeaders &headers) {
    const std::size_t colon = text.find(':');
    const std::size_t second = colon == text.npos ? colon : text.find(':', colon + 1);
    if (second == text.npos || !IsPrintable(text)) return {ExitCode::kUsage, "-H is written 'METHOD: Name: value'"};
    const std::string name = Trimmed(text.substr(0, colon));
    const auto *const known = std::find_if(std::begin(kMethods), std::end(kMethods),
                                           [&name](const Method &row) { return row.name == name; });
    if (known == std::end(kMethods))
        return {ExitCode::kUsage, "-H: the method is one of OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN"};
    const Header header{Trimmed(text.substr(colon + 1, second - colon - 1)), Trimmed(text.substr(second + 1))};
    if (!IsToken(header.name)) return {ExitCode::kUsage, "-H: the name of the header is none"};
    const auto *const refused = std::find(std::begin(kNotWithTeardown), std::end(kNotWithTeardown), header.name);
    if (known->number == RTSP_TEARDOWN && refused != std::end(kNotWithTeardown))
        return {ExitCode::kUsage, "-H: TEARDOWN does not take a header " + header.name};
    headers[known->number].push_back(header);
    return {};
}

std::string NameOf(const Stream &stream) {
    const std::string codec = stream.codec.empty() ? "unknown" : Presentable(stream.codec);
    return "stream " + std::to_string(stream.number) + " (" + codec + ")";
}

bool MayBeSilent(const Stream &stream) { return stream.media == "application" || stream.media == "text"; }

namespace {

int32_t UseTls(intptr_t client, const Target &target) {
#ifdef RTSPTAP_WITH_TLS
    const auto fileOf = [](const std::string &name) { return name.empty() ? nullptr : name.c_str(); };
    RTSPTapTlsOptions options = {};
    options.recordSize = sizeof options;
    options.isUnverified = target.tls.insecure ? 1 : 0;
    options.rootFile = fileOf(target.tls.roots);
    options.certificateFile = fileOf(target.tls.certificate);
    const int32_t result = target.url.starts_with("rtsps") ? RTSPTapUseTls(client, &options) : RTSP_SUCCESS;
    return result == RTSPTAP_TOO_LATE ? RTSP_SUCCESS : result; // connecting again: it is set
#else
    (void)client, (void)target;
    return RTSP_SUCCESS;
#endif
}

void UseSrtp(intptr_t client) {
#ifdef RTSPTAP_WITH_SRTP
    RTSPTapUseSrtp(client);
#else
    (void)client;
#endif
}

void UseUdp(intptr_t client, const UdpSettings &udp) {
    RTSPTapSetOption(client, RTSPTAP_OPTION_SOURCE_FILTER, udp.onlyServer ? 1 : 0);
    if (udp.firstPort == 0) return;
    RTSPTapSetOption(client, RTSPTAP_OPTION_FIRST_PORT, udp.firstPort);
    RTSPTapSetOption(client, RTSPTAP_OPTION_LAST_PORT, udp.lastPort);
}

} // namespace

Session::Session() : client_(RTSPClientCreate()) {
    if (client_ <= 0) throw std::bad_alloc();
    UseSrtp(client_);
    RTPClientSetAudioVideoBufferSize(client_, kVideoBufferBytes, kAudioBufferBytes);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_THREADS, 0);
    RTSPTapSetRtcpCallback(client_, TakeControl, this);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_STATISTICS, 1);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_PACKET_TIMES, 1);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_RECEIVE_BUFFER, kReceiveBufferBytes);
}

Session::~Session() { RTSPClientDestroy(client_); }

int32_t Session::Connect(const Target &target, std::string &address) {
    const bool isFirst = !std::exchange(connected_, true);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_KEEP_ALIVE, target.keepalive ? -1 : 0);
    exact_ = target.exact;
    if (exact_) RTSPTapSetOption(client_, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_EXACT);
    headers_ = target.headers;
    RTSPTapSetOption(client_, RTSPTAP_OPTION_TRANSPORT, target.transport);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_BASIC_ALLOWED, 1);
    UseUdp(client_, target.udp);
    if (const Credentials &given = target.credentials; isFirst && !given.user.empty())
        RTSPTapSetCredentials(client_, given.user.c_str(), given.password.c_str());
    char text[kTextBytes] = {};
    if (const int32_t result = UseTls(client_, target); result != RTSP_SUCCESS) return result;
    const int32_t result = AwaitEnd(RTSPTapBeginConnect(client_, target.url.c_str(), text));
    if (result == RTSP_SUCCESS) address = text;
    const bool isTcp = result == RTSP_SUCCESS && target.transport == RTSPTAP_TRANSPORT_TCP;
    return isTcp ? RTSPTapSetDataProto(client_, DATA_PROTO_TCP) : result;
}

RTSPTapTransport Session::TransportUsed() const {
    int64_t used = RTSPTAP_TRANSPORT_DEFAULT;
    RTSPTapGetOption(client_, RTSPTAP_OPTION_TRANSPORT_USED, &used);
    return static_cast<RTSPTapTransport>(used);
}

std::string Session::Told(int32_t option) const {
    char text[256] = {}; // the longest is told whole
    uint32_t size = sizeof text;
    RTSPTapGetOptionText(client_, option, text, &size);
    return Presentable(text);
}

std::string Session::Authentication() const { return Told(RTSPTAP_OPTION_CHALLENGE); }

std::string Session::StreamFailure() const { return Told(RTSPTAP_OPTION_STREAM_FAILURE); }

Answer Session::Options() {
    constexpr int64_t kPatienceMs = 5000;
    int64_t usual = 0;
    RTSPTapGetOption(client_, RTSPTAP_OPTION_REPLY_LIMIT, &usual);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_REPLY_LIMIT, exact_ ? usual : kPatienceMs);
    Answer answer = Send(RTSP_OPTIONS);
    RTSPTapSetOption(client_, RTSPTAP_OPTION_REPLY_LIMIT, usual);
    return answer;
}

void Session::Join(RTSPTapGroup *group) const { RTSPTapGroupAdd(group, client_, nullptr); }

// Until it is over, or nobody waits any more: then it is called off.
int32_t Session::AwaitEnd(int32_t begun) const {
    if (begun != RTSP_SUCCESS) return begun;
    int32_t result = RTSPTapProgress(client_);
    for (; result == RTSPTAP_PENDING; result = RTSPTapProgress(client_))
        if (!wait_()) RTSPTapInterrupt(client_);
    return result;
}

void Session::BeginToLeave() {
    const auto list = std::make_shared<HeaderList>();
    if (list->AddAll(headers_[RTSP_TEARDOWN]) != RTSP_SUCCESS) return;
    farewell_ = list;
    RTSPTapBeginMethod(client_, RTSP_TEARDOWN, 0, list->Handle());
}

bool Session::HasLeft() {
    const int32_t result = RTSPTapProgress(client_);
    if (result != RTSPTAP_PENDING) AnswerOf(result);
    return result != RTSPTAP_PENDING;
}

// Which transport it is to be is the library's choice, unless the user has headers for it.
Answer Session::SetUp(int32_t number) {
    if (!headers_[RTSP_SETUP].empty()) return Send(RTSP_SETUP, number);
    return AnswerOf(AwaitEnd(RTSPTapBeginSetup(client_, number)));
}

Answer Session::Send(RTSPMethod method, int32_t stream) {
    std::vector<Header> &own = headers_[method];
    HeaderList list;
    if (const int32_t result = list.AddAll(own); result != RTSP_SUCCESS) return {result, {}};
    const Answer answer = AnswerOf(AwaitEnd(RTSPTapBeginMethod(client_, method, stream, list.Handle())));
    // A transport of the user's names ports or channels, which are good for one stream.
    if (method == RTSP_SETUP) std::erase_if(own, [](const Header &header) { return header.name == "Transport"; });
    return answer;
}

Answer Session::AnswerOf(int32_t result) const {
    const std::string text = WasSent(result) ? LastReply() : ""; // else it is the one before
    ShowReply(text);
    Answer answer{result, ParseReply(text)};
    if (!exact_ && answer.reply.status / 100 == 2) answer.reply.status = kOk; // so the library has it
    return answer;
}

std::string Session::LastReply() const {
    int32_t size = 0;
    if (RTSPClientGetLastReply(client_, nullptr, &size) != RTSP_SUCCESS) return {};
    std::string text(static_cast<std::size_t>(size), '\0');
    return RTSPClientGetLastReply(client_, text.data(), &size) == RTSP_SUCCESS ? text : "";
}

Outcome Session::Listen(int32_t number, const ListenPort &port) {
    listened_.push_back(number);
    RTSPTapSetOptionText(client_, RTSPTAP_OPTION_LISTEN_ADDRESS, port.group.c_str());
    RTSPClientSetMTUSize(client_, kLargestDatagramBytes);
    const uint8_t isVideo = CodecOf(port.codecType)->IsAudio() ? 0 : 1;
    const int32_t result = CreateRTPStream(client_, port.codecType, port.port, isVideo);
    const std::string name =
        (port.group.empty() ? "" : "group " + port.group + ", ") + "port " + std::to_string(port.port);
    if (result == RTSP_FAILURE)
        return {ExitCode::kUnreachable, name + ": taken by another program, or not allowed"};
    return OutcomeOfCall(name, result);
}

bool Session::Describe(int32_t number, RTSPTapStreamDescription &description) const {
    description.recordSize = sizeof description;
    return RTSPTapGetStreamDescription(client_, number, &description) == RTSP_SUCCESS;
}

std::vector<UsedRule> Session::Tolerated() const {
    std::vector<UsedRule> used;
    RTSPTapRule rule;
    rule.recordSize = sizeof rule;
    for (int32_t index = 0; RTSPTapShowRule(index, &rule) == RTSP_SUCCESS; ++index) {
        uint64_t count = 0;
        RTSPTapGetRuleUse(client_, rule.number, &count);
        if (count > 0) used.push_back({rule.number, rule.name, rule.section, count});
    }
    return used;
}

std::string Session::Line(int32_t number, const std::string &name) const {
    std::string value(kUsualAttributeBytes, '\0');
    auto size = static_cast<uint32_t>(value.size());
    int32_t result = RTSPClientGetSDPFieldInfo(client_, number, name.c_str(), value.data(), &size);
    value.resize(std::max(value.size(), std::size_t{size}));
    if (result == RTSP_SMALL_BUFFER)
        result = RTSPClientGetSDPFieldInfo(client_, number, name.c_str(), value.data(), &size);
    if (result != RTSP_SUCCESS) return "";
    value.resize(size - 1);
    return value;
}

std::string Session::Attribute(int32_t number, const std::string &name) const {
    const std::string value = Line(number, "a=" + name + ":");
    return value.rfind(name + ":", 0) == 0 ? value.substr(name.size() + 1) : "";
}

std::vector<Stream> Session::Streams() const {
    std::vector<Stream> streams;
    const int32_t count = RTSPClientGetNbStreams(client_);
    // Beside others such a stream goes to the server; where all are marked, the server speaks of what it sends.
    const auto isSendOnly = [this](int32_t number) { return !Line(number, "a=sendonly").empty(); };
    bool somethingComes = false;
    for (int32_t number = 1; number <= count; ++number) somethingComes |= !isSendOnly(number);
    for (int32_t number = 1; number <= count; ++number) {
        RTSPTapStreamDescription description;
        if (!Describe(number, description)) break;
        Stream stream{number, description.encodingName, description.codecType, false, description.clockRate};
        const std::string line = Line(number, "m");
        stream.media = line.substr(0, line.find(' '));
        stream.omission = WhyUnreadable(client_, description, somethingComes && isSendOnly(number));
        stream.isReadable = stream.omission.empty();
        streams.push_back(stream);
    }
    return streams;
}

// What exceeds the latency by so much has been waited for by nobody, and is dropped.
void Session::SetLatency(int32_t milliseconds) {
    constexpr int32_t kSlackMs = 10000;
    latency_ = milliseconds;
    RTPClientConfigLatency(client_, latency_, latency_, latency_ + kSlackMs);
}

bool Session::ReleaseHeldBack() {
    if (std::exchange(latency_, 0) == 0) return false;
    return RTPClientConfigLatency(client_, 0, 0, 0) == RTSP_SUCCESS;
}

void Session::TakeControl(void *session, int32_t number, int32_t isSent, const uint8_t *packet, uint32_t length) {
    constexpr std::size_t kMostUnseen = 64;
    Session &self = *static_cast<Session *>(session);
    if (self.controlObserver_)
        self.controlObserver_(number, isSent != 0, {packet, length});
    else if (self.unseenControl_.size() < kMostUnseen)
        self.unseenControl_.push_back({number, isSent != 0, {packet, packet + length}});
}

void Session::ShowControl(ControlObserver observer) {
    controlObserver_ = std::move(observer);
    if (!controlObserver_) return;
    for (const ControlPacket &packet : unseenControl_) controlObserver_(packet.number, packet.isSent, packet.bytes);
    unseenControl_.clear();
}

// A description may have streams that nobody listens to.
int32_t Session::InLibrary(int32_t number) const {
    const auto found = std::find(listened_.begin(), listened_.end(), number);
    return found == listened_.end() ? number : static_cast<int32_t>(found - listened_.begin()) + 1;
}

} // namespace tool
