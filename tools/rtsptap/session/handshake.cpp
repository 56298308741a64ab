#include "session/handshake.h"

#include "base/secrets.h"
#include "session/rtp_info.h"

#include <algorithm>
#include <cstdlib>

namespace tool {
namespace {

constexpr int32_t kClockOfLatency = 90000; // units per second that the library counts in, whatever the stream's are

std::string BasicValue(const Credentials &credentials) {
    const std::string text = credentials.user + ":" + credentials.password;
    char *encoded = nullptr;
    Base64Encode(reinterpret_cast<const uint8_t *>(text.data()), static_cast<int32_t>(text.size()), &encoded);
    const std::unique_ptr<char, void (*)(void *)> owner(encoded, std::free);
    return std::string("Basic ") + (encoded != nullptr ? encoded : "");
}

int CountMedia(const std::string &description) {
    int count = 0;
    for (std::size_t at = description.find("m="); at != description.npos; at = description.find("m=", at + 1))
        count += at == 0 || description[at - 1] == '\n' ? 1 : 0;
    return count;
}

} // namespace

Handshake::Progress Handshake::Look() const {
    const std::lock_guard guard(lock_);
    return progress_;
}

bool Handshake::Leave(OpenedSession &opened, Outcome &outcome) {
    const std::lock_guard guard(lock_);
    abandoned_ = !progress_.done;
    opened = abandoned_ ? soFar_ : std::move(opened_);
    if (!abandoned_) outcome = outcome_;
    return !abandoned_;
}

void Handshake::Run() {
    try {
        outcome_ = Resolve();
        if (outcome_.IsOk()) outcome_ = Talk();
    } catch (const std::exception &error) { // no memory
        outcome_ = {ExitCode::kUsage, error.what()};
    }
    if (!outcome_.IsOk()) opened_.session.reset();
    bool wanted = false;
    {
        const std::lock_guard guard(lock_);
        wanted = !abandoned_;
        progress_.done = wanted;
    }
    if (!wanted && outcome_.IsOk()) opened_.session->Teardown();
}

// Runs a step, unless nobody waits for it any more, and notes how long it took.
template <typename Call> Outcome Handshake::Step(const std::string &phase, Call call) {
    const Clock::time_point begin = Clock::now();
    {
        const std::lock_guard guard(lock_);
        if (abandoned_) return {ExitCode::kTimeout, ""};
        progress_ = {phase, begin, false};
        soFar_ = opened_;
        soFar_.session.reset();
    }
    Outcome outcome = call();
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
    Outcome outcome = OutcomeOfRequest(phase, answer.result, answer.reply);
    opened_.refusal = outcome.IsOk() ? 0 : answer.reply.status;
    if (outcome.code != ExitCode::kAuthentication) return outcome;
    NoteChallenge(answer.reply);
    if (server_.credentials.user.empty())
        outcome.text += ": a user name and a password are needed (-u, RTSPTAP_PASSWORD)";
    else if (server_.credentials.password.empty())
        outcome.text += ": a password is needed (RTSPTAP_PASSWORD, --password-file)";
    else
        outcome.text += ": user name or password are wrong";
    return outcome;
}

Outcome Handshake::Resolve() {
    return Step("resolve", [this] {
        opened_.facts.port = server_.url.port;
        opened_.facts.authentication = "none";
        return ResolveHost(server_.url.host, opened_.facts.address);
    });
}

// A server that offers nothing but Basic is begun anew: the client that has met the challenge would answer it.
Outcome Handshake::Talk() {
    Outcome outcome = Ask();
    basic_ = outcome.code == ExitCode::kAuthentication && basicOffered_ && !server_.credentials.user.empty();
    if (!basic_) return outcome;
    opened_.phases.resize(1); // the name stays resolved
    opened_.refusal = 0;
    return Ask();
}

Outcome Handshake::Ask() {
    // The library has kept a Digest challenge, and answers it now.
    const auto answering = [this](Answer (Session::*method)()) {
        return [this, method](Session &session) {
            Answer answer = (session.*method)();
            if (answer.result != RTSP_UNAUTHORIZED) return answer;
            NoteChallenge(answer.reply);
            return server_.credentials.user.empty() || basicOffered_ ? answer : (session.*method)();
        };
    };
    if (Outcome failed = Connect(); !failed.IsOk()) return failed;
    const auto options = [&](Session &session) {
        Answer answer = answering(&Session::Options)(session);
        opened_.facts.methods = Presentable(HeaderOf(answer.reply, "Public"));
        return answer;
    };
    const auto describe = [&](Session &session) {
        Answer answer = answering(&Session::Describe)(session);
        opened_.described = CountMedia(answer.reply.body);
        return answer;
    };
    if (Outcome failed = Request("OPTIONS", options); !failed.IsOk()) return failed;
    if (Outcome failed = Request("DESCRIBE", describe); !failed.IsOk()) return failed;
    if (Outcome failed = SetUpStreams(); !failed.IsOk()) return failed;
    return Request("PLAY", [this](Session &session) {
        Answer answer = session.Play();
        opened_.firstTimestamps = FirstTimestamps(answer.reply, session, opened_.streams);
        return answer;
    });
}

// The library takes the first challenge, and knows how to answer Digest.
void Handshake::NoteChallenge(const Reply &reply) {
    const std::vector<std::string> schemes = ChallengesOf(reply);
    if (schemes.empty()) return;
    basicOffered_ =
        schemes.front() != "Digest" && std::find(schemes.begin(), schemes.end(), "Basic") != schemes.end();
    opened_.facts.authentication = basicOffered_ ? "Basic" : schemes.front();
}

Outcome Handshake::Connect() {
    Target target{opened_.facts.address,
                  server_.url.port,
                  server_.url.path,
                  server_.credentials.user,
                  server_.credentials.password,
                  DATA_PROTO_UDP,
                  opened_.transport == Transport::kMulticast,
                  server_.headers};
    if (opened_.transport == Transport::kTcp) target.transport = DATA_PROTO_TCP;
    if (basic_) {
        target.user.clear();
        for (const RTSPMethod method : kSessionMethods)
            target.headers[method].push_back({"Authorization", BasicValue(server_.credentials)});
    }
    return Step("connect", [this, &target] {
        opened_.session = std::make_shared<Session>();
        return OutcomeOfCall("connect", opened_.session->Connect(target));
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
    bool isFirst = true;
    for (const Stream &stream : opened_.streams) {
        if (!stream.isReadable) continue;
        Outcome outcome = SetUpStream(stream.number);
        // The library names a session with every stream but number 1, also where there is none yet. Most servers
        // pass over the empty name; others have a stream 1 that nobody reads set up for them.
        if (opened_.refusal == kSessionNotFound && std::exchange(isFirst, false) && stream.number > 1) {
            outcome = SetUpStream(1);
            if (outcome.IsOk()) outcome = SetUpStream(stream.number);
        }
        if (!outcome.IsOk()) return outcome;
        isFirst = false;
    }
    return {};
}

Outcome Handshake::SetUpStream(int32_t number) {
    return Request("SETUP " + std::to_string(number), [this, number](Session &session) {
        Answer answer = session.SetUp(number);
        if (const auto timeout = SessionTimeoutOf(answer.reply)) opened_.facts.sessionTimeout = timeout;
        return answer;
    });
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
