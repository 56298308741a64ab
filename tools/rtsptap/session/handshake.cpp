#include "session/handshake.h"

#include "base/secrets.h"
#include "base/text.h"
#include "session/description.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace tool {
namespace {

constexpr int32_t kClockOfLatency = 90000; // units per second that the library counts in, whatever the stream's are

// Relative addresses are the tails of absolute ones, on either side.
bool IsTail(const std::string &whole, const std::string &tail) {
    if (tail.empty() || tail.size() > whole.size()) return false;
    if (whole.compare(whole.size() - tail.size(), tail.size(), tail) != 0) return false;
    return tail.size() == whole.size() || tail[0] == '/' || whole[whole.size() - tail.size() - 1] == '/';
}

// Where streams begin, by number: by the addresses of the reply, or by their order where no address is one of ours.
std::map<int32_t, uint32_t> FirstTimestamps(const Reply &reply, const Session &session,
                                            const std::vector<Stream> &streams) {
    const std::vector<RtpInfo> entries = RtpInfosOf(reply);
    std::map<int32_t, uint32_t> byAddress;
    std::map<int32_t, uint32_t> byOrder;
    std::size_t received = 0;
    for (const Stream &stream : streams) {
        if (!stream.isReadable) continue;
        const std::string control = session.Attribute(stream.number, "control");
        for (const RtpInfo &entry : entries)
            if (entry.timestamp && (IsTail(entry.url, control) || IsTail(control, entry.url)))
                byAddress[stream.number] = *entry.timestamp;
        if (received < entries.size() && entries[received].timestamp)
            byOrder[stream.number] = *entries[received].timestamp;
        ++received;
    }
    return byAddress.empty() && received == entries.size() ? byOrder : byAddress;
}

} // namespace

RTSPTapTransport Handshake::InLibrary(Transport transport) {
    switch (transport) {
    case Transport::kUdp:
        return RTSPTAP_TRANSPORT_UDP;
    case Transport::kTcp:
        return RTSPTAP_TRANSPORT_TCP;
    case Transport::kMulticast:
        return RTSPTAP_TRANSPORT_MULTICAST;
    default:
        return RTSPTAP_TRANSPORT_AUTOMATIC;
    }
}

Outcome Handshake::Run(OpenedSession &opened) {
    const Outcome outcome = Talk();
    if (opened_.session != nullptr) opened_.session->SetWaiter({});
    if (!outcome.IsOk()) {
        sessions_.DropEarly();
        opened_.session.reset();
    }
    opened = std::move(opened_);
    return stop_.IsOk() ? outcome : stop_;
}

bool Handshake::Wait() {
    constexpr auto kTick = std::chrono::milliseconds(100);
    const Clock::time_point now = Clock::now();
    const Clock::duration left = server_.connectTimeout - (now - stepBegin_);
    if (const int signal = sessions_.Signal(); signal != 0)
        stop_ = OutcomeOfSignal(signal);
    else if (left < Clock::duration(0))
        stop_ = OutcomeOfTimeout(step_, server_.connectTimeout);
    if (!stop_.IsOk()) return false;
    sessions_.Wait(std::chrono::ceil<std::chrono::milliseconds>(std::min<Clock::duration>(left, kTick)));
    if (now - lastTick_ < kTick) return true;
    lastTick_ = now;
    tick_();
    return true;
}

// Runs a step, unless there is no point in it any more, and notes how long it took.
template <typename Call> Outcome Handshake::Step(const std::string &phase, Call call) {
    if (const int signal = sessions_.Signal(); signal != 0 && stop_.IsOk()) stop_ = OutcomeOfSignal(signal);
    if (!stop_.IsOk()) return stop_;
    const Clock::time_point begin = stepBegin_ = Clock::now();
    step_ = phase == "connect" ? phase + ": " + HostAndPort(url_) : phase;
    Outcome outcome = call();
    if (!stop_.IsOk()) return stop_;
    if (outcome.IsOk())
        opened_.phases.push_back(
            {phase, std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin)});
    return outcome;
}

template <typename Exchange> Outcome Handshake::Request(const std::string &phase, Exchange exchange) {
    return Step(phase, [this, &phase, &exchange] { return Judge(phase, exchange(*opened_.session)); });
}

Outcome Handshake::Judge(const std::string &phase, const Answer &answer) {
    if (const std::string software = HeaderOf(answer.reply, "Server"); !software.empty())
        opened_.facts.software = Presentable(software);
    const std::string authentication = opened_.session->Authentication();
    if (answer.reply.status != 0) opened_.facts.authentication = authentication.empty() ? "none" : authentication;
    Outcome outcome = OutcomeOfRequest(phase, answer.result, answer.reply);
    opened_.tolerated = opened_.session->Tolerated();
    opened_.refusal = outcome.IsOk() ? 0 : answer.reply.status;
    location_ = HeaderOf(answer.reply, "Location");
    if (outcome.code != ExitCode::kAuthentication) return outcome;
    outcome.text += ": " + Complaint(answer.result, authentication);
    if (!IsOwnHost() && !server_.credentials.user.empty()) outcome.text += "; those given are for another host";
    return outcome;
}

// What is wrong when a server still says 401.
std::string Handshake::Complaint(int32_t result, const std::string &scheme) const {
    const bool isKnown = IsOwnHost() && !server_.credentials.user.empty();
    if (result == RTSPTAP_UNKNOWN_CHALLENGE) return "the server asks for " + scheme + ", which is not supported";
    if (!isKnown) return "a user name and a password are needed (-u, RTSPTAP_PASSWORD)";
    if (server_.credentials.password.empty()) return "a password is needed (RTSPTAP_PASSWORD, --password-file)";
    return "user name or password are wrong";
}

Outcome Handshake::Talk() {
    for (int followed = 0;; ++followed) {
        Outcome outcome = Resolve();
        if (outcome.IsOk()) outcome = Ask();
        if (outcome.code != ExitCode::kRedirected) return outcome;
        if (followed == server_.follow && followed > 0)
            outcome.text += ", after " + std::to_string(followed) + " other redirections";
        if (followed == server_.follow || !Redirect()) return outcome;
    }
}

// What is known of the server that sends us on is of no more use.
bool Handshake::Redirect() {
    Url next = url_;
    const std::string note = "the server sends us to " + Presentable(location_);
    if (location_.starts_with('/'))
        next.path = location_.substr(1);
    else if (!ParseUrl(location_, next).IsOk())
        return false;
    url_ = next;
    OpenedSession fresh;
    fresh.transport = opened_.transport;
    fresh.fellBack = opened_.fellBack;
    fresh.notes = opened_.notes;
    fresh.notes.push_back(note);
    opened_ = std::move(fresh);
    return true;
}

Outcome Handshake::Resolve() {
    return Step("resolve", [this] {
        opened_.facts.port = url_.port;
        Outcome outcome = FindAddress();
        if (ownAddress_.empty()) ownAddress_ = opened_.facts.address;
        return outcome;
    });
}

// A name server may take its time.
Outcome Handshake::FindAddress() {
    if (IsAddress(url_.host)) return ResolveHost(url_.host, opened_.facts.address);
    struct Found {
        std::string address;
        Outcome outcome;
    };
    const auto found = std::make_shared<Found>();
    const auto look = [found, host = url_.host] { found->outcome = ResolveHost(host, found->address); };
    if (!sessions_.RunBeside(look, [this] { return Wait(); })) return stop_;
    opened_.facts.address = found->address;
    return found->outcome;
}

Outcome Handshake::Ask() {
    if (Outcome failed = Connect(); !failed.IsOk()) return failed;
    if (Outcome failed = AskOptions(); !failed.IsOk()) return failed;
    Outcome described = Describe();
    if (described.code == ExitCode::kUnreachable && !server_.exact) { // one that hangs up when it refuses
        described = Connect();
        if (described.IsOk()) described = Describe();
    }
    if (!described.IsOk()) return described;
    if (Outcome failed = SetUpStreams(); !failed.IsOk()) return failed;
    return Request("PLAY", [this](Session &session) {
        Answer answer = session.Play();
        opened_.firstTimestamps = FirstTimestamps(answer.reply, session, opened_.streams);
        return answer;
    });
}

// A server that refuses it, hangs up or stays silent may describe all the same.
Outcome Handshake::AskOptions() {
    constexpr ExitCode kRefused[] = {ExitCode::kNotFound, ExitCode::kClientError, ExitCode::kServerError};
    Outcome outcome = Options();
    if (server_.exact) return outcome;
    if (outcome.code == ExitCode::kUnreachable || outcome.code == ExitCode::kTimeout) return Connect();
    const bool isRefused = std::find(std::begin(kRefused), std::end(kRefused), outcome.code) != std::end(kRefused);
    return isRefused ? Outcome{} : outcome;
}

Outcome Handshake::Options() {
    return Request("OPTIONS", [this](Session &session) {
        Answer answer = session.Options();
        opened_.facts.methods = Presentable(HeaderOf(answer.reply, "Public"));
        return answer;
    });
}

Outcome Handshake::Describe() {
    return Step("DESCRIBE", [this] {
        const Answer answer = opened_.session->Describe();
        Outcome outcome = Judge("DESCRIBE", answer);
        if (outcome.code == ExitCode::kNotUnderstood && answer.reply.body.find("v=0") == std::string::npos)
            outcome.text = "DESCRIBE: the reply has no session description";
        return outcome;
    });
}

// What was meant for TLS goes nowhere in the clear.
bool Handshake::IsOwnHost() const {
    if (IsSecure(server_.url) && !IsSecure(url_)) return false;
    return opened_.facts.address == ownAddress_ || SameText(url_.host, server_.url.host);
}

Target Handshake::TargetOf() const {
    Target target{RequestUrl(url_),
                  server_.credentials,
                  opened_.transport == Transport::kTcp ? RTSPTAP_TRANSPORT_TCP : transport_,
                  server_.headers,
                  server_.exact,
                  server_.keepalive,
                  server_.tls,
                  server_.udp};
    if (IsOwnHost()) return target;
    target.credentials = {};
    target.headers = {}; // they were meant for the first host, and may hold anything
    return target;
}

Outcome Handshake::Connect() {
    return Step("connect", [this] {
        if (opened_.session == nullptr) {
            opened_.session = std::make_shared<Session>();
            opened_.session->SetWaiter([this] { return Wait(); });
            sessions_.Add(*opened_.session);
        }
        const int32_t result = opened_.session->Connect(TargetOf(), opened_.facts.address);
        const int error = errno;
        if (result != RTSP_CONNECT_FAILED) {
            Outcome outcome = OutcomeOfCall("connect", result);
            const std::string why = opened_.session->StreamFailure();
            if (!outcome.IsOk() && !why.empty()) outcome.text += ": " + why;
            return outcome;
        }
        return Outcome{ExitCode::kUnreachable,
                       "connect: " + HostAndPort(url_) + ": " +
                           (error == ECONNREFUSED ? "connection refused: nothing listens there"
                                                  : std::string("it cannot be reached: ") + std::strerror(error))};
    });
}

Outcome Handshake::SetUpStreams() {
    opened_.streams = opened_.session->Streams();
    opened_.formats = FormatsOfSession(*opened_.session, opened_.streams);
    if (opened_.formats.empty())
        return {ExitCode::kNoSupportedStream, opened_.streams.empty()
                                                  ? "DESCRIBE: the description has no stream"
                                                  : "DESCRIBE: no stream has a codec that can be received"};
    SetUpLatency();
    Outcome refusal;
    bool isFirst = true;
    for (Stream &stream : opened_.streams) {
        if (!stream.isReadable) continue;
        Outcome outcome = std::exchange(isFirst, false) ? SetUpFirst(stream.number) : SetUpStream(stream.number);
        if (outcome.IsOk()) continue;
        if (outcome.code != ExitCode::kNotFound || server_.exact) return outcome;
        if (refusal.IsOk()) refusal = outcome;
        LeaveOut(stream, outcome.text);
    }
    return opened_.formats.empty() ? refusal : Outcome();
}

// What the server describes and does not have.
void Handshake::LeaveOut(Stream &stream, const std::string &why) {
    stream.isReadable = false;
    stream.omission = why;
    std::erase_if(opened_.formats,
                  [&stream](const StreamFormat &format) { return format.stream.number == stream.number; });
}

Outcome Handshake::SetUpFirst(int32_t number) {
    Outcome outcome = SetUpStream(number);
    // The library names a session with every stream but number 1, also where there is none yet. Most servers
    // ignore the empty name; others have a stream 1 that nobody reads set up for them.
    if (opened_.refusal != kSessionNotFound || number == 1) return outcome;
    outcome = SetUpStream(1);
    return outcome.IsOk() ? SetUpStream(number) : outcome;
}

Outcome Handshake::SetUpStream(int32_t number) {
    const std::string phase = "SETUP " + std::to_string(number);
    return Step(phase, [this, number, &phase] {
        const Answer answer = opened_.session->SetUp(number);
        if (const auto timeout = SessionTimeoutOf(answer.reply)) opened_.facts.sessionTimeout = timeout;
        Outcome outcome = Judge(phase, answer);
        opened_.udpIsUnusable = outcome.code == ExitCode::kNotUnderstood && opened_.transport == Transport::kUdp;
        if (outcome.IsOk()) NoteTransport();
        return outcome;
    });
}

// The library goes over to TCP where the server refuses UDP, or says nothing about it that can be used.
void Handshake::NoteTransport() {
    const bool isTcp = opened_.session->TransportUsed() == RTSPTAP_TRANSPORT_TCP;
    if (!isTcp || opened_.transport == Transport::kTcp) return;
    opened_.transport = Transport::kTcp;
    opened_.fellBack = true;
    opened_.notes.push_back("the server refuses UDP: falling back to TCP");
}

// One setting counts for all streams, in units of 90 kHz: the fastest clock is the one that gets what was asked
// for.
void Handshake::SetUpLatency() {
    if (server_.latency.count() == 0) return;
    int32_t fastest = 0;
    for (const StreamFormat &format : opened_.formats) fastest = std::max(fastest, format.clockRate);
    if (fastest == 0) fastest = kClockOfLatency;
    const int64_t milliseconds = server_.latency.count() * fastest / kClockOfLatency;
    opened_.session->SetLatency(static_cast<int32_t>(std::clamp<int64_t>(milliseconds, 1, 600000)));
}

} // namespace tool
