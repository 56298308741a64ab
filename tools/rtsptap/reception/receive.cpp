#include "reception/receive.h"

#include "base/console.h"
#include "base/text.h"
#include "reception/session_loop.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <random>

namespace tool {
namespace {

constexpr auto kBeforeFallingBack = std::chrono::milliseconds(700); // servers take a session down slowly

constexpr double kFirstPauseMs = 1000;
constexpr double kLongestPauseMs = 30000;
constexpr int kMostDoublings = 5;
constexpr double kJitter = 0.2; // so that many clients do not come back at once

constexpr ExitCode kPassing[] = {ExitCode::kNameNotResolved, ExitCode::kUnreachable, ExitCode::kTimeout,
                                 ExitCode::kServerError,     ExitCode::kNoMedia,     ExitCode::kEndedEarly};

// After a session was taken down a moment ago.
bool IsPassing(ExitCode code) {
    return code == ExitCode::kUnreachable || code == ExitCode::kServerError || code == ExitCode::kTimeout;
}

// How often, and after which pauses, a server is tried again.
class Reconnection {
public:
    // Attempts in a row; 0: without end; none: not at all.
    explicit Reconnection(std::optional<int> limit) : limit_(limit) {}

    bool IsWorthwhile(const Outcome &failure) const; // it may pass, and attempts are left

    std::chrono::milliseconds NextPause(); // counts the attempt
    int Attempt() const { return attempt_; }
    // Counts anew after a session that delivered for longer than the pause before it: a server that breaks off at
    // once, again and again, is one that fails.
    void NoteSession(std::chrono::nanoseconds delivered) {
        if (delivered > pause_) attempt_ = 0;
    }

private:
    const std::optional<int> limit_;
    int attempt_ = 0;
    std::chrono::milliseconds pause_{0}; // before the current session
    std::minstd_rand random_{std::random_device{}()};
};

bool Reconnection::IsWorthwhile(const Outcome &failure) const {
    const bool passes = std::find(std::begin(kPassing), std::end(kPassing), failure.code) != std::end(kPassing);
    return passes && limit_ && (*limit_ == 0 || attempt_ < *limit_);
}

std::chrono::milliseconds Reconnection::NextPause() {
    const double pause = std::min(kFirstPauseMs * (1 << std::min(attempt_, kMostDoublings)), kLongestPauseMs);
    ++attempt_;
    std::uniform_real_distribution<double> jitter(1 - kJitter, 1 + kJitter);
    pause_ = std::chrono::milliseconds(static_cast<int64_t>(pause * jitter(random_)) / 100 * 100); // as it is shown
    return pause_;
}

// A server, tried over one transport after the other and again after pauses.
class ServerReception {
public:
    ServerReception(const ServerSettings &settings, const Server &server, SessionLoop &loop)
        : server_(server), mayFallBack_(settings.transport == Transport::kAuto), transport_(settings.transport),
          loop_(loop), reconnection_(settings.reconnect) {}

    Outcome Run();

private:
    enum class Next { kEnd, kTryAgain, kMayReconnect };

    Next ReceiveOnce(Outcome &outcome);
    Next FallBack(const std::string &why);
    Next TryAgainOverTcp();
    void SayWhatHappened(const OpenedSession &opened);
    Next AfterRefusal(const OpenedSession &opened, Outcome &outcome);
    void SayWhatIsLeftOut(const OpenedSession &opened);

    const Server &server_;
    bool mayFallBack_;
    bool mayTryAgain_ = false; // over TCP, what failed there at once
    Transport transport_;
    SessionLoop &loop_;
    Reconnection reconnection_;
    bool udpWasSilent_ = false;
    bool saidWhatIsLeftOut_ = false;
};

Outcome ServerReception::Run() {
    for (;;) {
        Outcome outcome;
        const Next next = ReceiveOnce(outcome);
        if (next == Next::kTryAgain) continue;
        loop_.EndSession();
        if (next == Next::kEnd || !reconnection_.IsWorthwhile(outcome)) return outcome;
        const std::chrono::milliseconds pause = reconnection_.NextPause();
        const std::string attempt = std::to_string(reconnection_.Attempt());
        const std::string plan = "reconnecting in " + TimeText(pause) + " (attempt " + attempt + ")";
        PrintNotice(outcome.text + "; " + plan);
        if (!loop_.Pause(pause, plan)) return outcome;
        loop_.SetState("reconnecting, attempt " + attempt);
    }
}

ServerReception::Next ServerReception::ReceiveOnce(Outcome &outcome) {
    OpenedSession opened;
    outcome = OpenSession(server_, transport_, loop_.AllSessions(), opened, [this] { loop_.Show(); });
    SayWhatHappened(opened);
    if (!outcome.IsOk()) return AfterRefusal(opened, outcome);
    mayTryAgain_ = false;
    SayWhatIsLeftOut(opened);
    outcome = loop_.Begin(opened);
    if (!outcome.IsOk()) return Next::kEnd;
    const SessionLoop::End end = loop_.Run(mayFallBack_, outcome);
    reconnection_.NoteSession(loop_.Delivered());
    if (end == SessionLoop::End::kNoMediaOverUdp) {
        udpWasSilent_ = true;
        return FallBack("no packet arrived over UDP");
    }
    return end == SessionLoop::End::kOver ? Next::kEnd : Next::kMayReconnect;
}

void ServerReception::SayWhatHappened(const OpenedSession &opened) {
    for (const std::string &note : opened.notes) PrintNotice(note);
    if (!opened.fellBack || !mayFallBack_) return;
    mayFallBack_ = false;
    mayTryAgain_ = true;
    transport_ = Transport::kTcp;
}

ServerReception::Next ServerReception::AfterRefusal(const OpenedSession &opened, Outcome &outcome) {
    loop_.NoteRefusal(opened);
    if (outcome.code > ExitCode::kSignal) return Next::kEnd;
    if (outcome.code == ExitCode::kNoSupportedStream) SayWhatIsLeftOut(opened);
    const bool isRefused = opened.refusal == kUnsupportedTransport || opened.udpIsUnusable;
    if (isRefused && mayFallBack_) return FallBack(outcome.text);
    if (mayTryAgain_ && (opened.fellBack || IsPassing(outcome.code))) {
        PrintNotice(outcome.text + ": trying once more");
        mayTryAgain_ = false;
        return TryAgainOverTcp();
    }
    if (opened.refusal == kUnsupportedTransport && udpWasSilent_)
        outcome = {ExitCode::kNoMedia, "no packet arrived over UDP, and over TCP: " + outcome.text};
    return Next::kMayReconnect;
}

ServerReception::Next ServerReception::FallBack(const std::string &why) {
    PrintNotice(why + ": falling back to TCP");
    mayFallBack_ = false;
    mayTryAgain_ = true;
    transport_ = Transport::kTcp;
    loop_.EndSession();
    loop_.WaitForTeardown(); // some servers serve one at a time
    return TryAgainOverTcp();
}

ServerReception::Next ServerReception::TryAgainOverTcp() {
    return loop_.Pause(kBeforeFallingBack, "falling back to TCP") ? Next::kTryAgain : Next::kEnd;
}

void ServerReception::SayWhatIsLeftOut(const OpenedSession &opened) {
    if (std::exchange(saidWhatIsLeftOut_, true)) return;
    for (const std::string &line : DescribeOmissions(opened)) PrintNotice(line);
}

} // namespace

Outcome ReceiveFromServer(const ServerSettings &settings, std::chrono::milliseconds duration,
                          const Audience &audience, Interruption &interruption) {
    Server server;
    SessionLoop loop(audience, duration, settings.idleTimeout, interruption);
    Outcome outcome = ReadServer(settings, interruption, server);
    if (outcome.IsOk()) {
        DrawLines({"connecting to " + HostAndPort(server.url)});
        outcome = ServerReception(settings, server, loop).Run();
    }
    return loop.Conclude(outcome);
}

Outcome ReceiveOpened(const OpenedSession &opened, std::chrono::milliseconds duration, const Audience &audience,
                      Interruption &interruption) {
    SessionLoop loop(audience, duration, std::chrono::milliseconds(0), interruption);
    Outcome outcome = loop.Begin(opened);
    if (outcome.IsOk()) loop.Run(false, outcome);
    return loop.Conclude(outcome);
}

} // namespace tool
