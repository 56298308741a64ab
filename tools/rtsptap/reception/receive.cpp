#include "reception/receive.h"

#include "base/console.h"
#include "base/text.h"
#include "reception/receiver.h"
#include "session/keep_alive.h"
#include "session/reconnection.h"

namespace tool {
namespace {

constexpr auto kUsualSessionTimeout = std::chrono::seconds(60);
constexpr auto kBeforeFallingBack = std::chrono::milliseconds(700); // servers take a session down slowly

// After a session was taken down a moment ago.
bool IsPassing(ExitCode code) {
    return code == ExitCode::kUnreachable || code == ExitCode::kServerError || code == ExitCode::kTimeout;
}

// A server, tried over one transport after the other and again after pauses.
class ServerReception {
public:
    ServerReception(const ServerSettings &settings, const Server &server, Receiver &receiver,
                    Interruption &interruption)
        : server_(server), keepsAlive_(settings.keepalive), mayFallBack_(settings.transport == Transport::kAuto),
          transport_(settings.transport), receiver_(receiver), interruption_(interruption),
          reconnection_(settings.reconnect) {}

    Outcome Run();

private:
    enum class Next { kEnd, kTryAgain, kMayReconnect };

    Next ReceiveOnce(Outcome &outcome);
    Next FallBack(const std::string &why);
    Next TryAgainOverTcp();
    void SayWhatHappened(const OpenedSession &opened);
    Next AfterRefusal(const OpenedSession &opened, Outcome &outcome);
    Outcome Receive(const OpenedSession &opened, Receiver::End &end);
    void SayWhatIsLeftOut(const OpenedSession &opened);

    const Server &server_;
    const std::optional<bool> keepsAlive_;
    bool mayFallBack_;
    bool mayTryAgain_ = false; // over TCP, what failed there at once
    Transport transport_;
    Receiver &receiver_;
    Interruption &interruption_;
    Reconnection reconnection_;
    bool udpWasSilent_ = false;
    bool saidWhatIsLeftOut_ = false;
};

Outcome ServerReception::Run() {
    for (;;) {
        Outcome outcome;
        const Next next = ReceiveOnce(outcome);
        if (next == Next::kTryAgain) continue;
        receiver_.EndSession();
        if (next == Next::kEnd || !reconnection_.IsWorthwhile(outcome)) return outcome;
        const std::chrono::milliseconds pause = reconnection_.NextPause();
        const std::string attempt = std::to_string(reconnection_.Attempt());
        const std::string plan = "reconnecting in " + TimeText(pause) + " (attempt " + attempt + ")";
        PrintNotice(outcome.text + "; " + plan);
        if (!receiver_.Pause(pause, plan)) return outcome;
        receiver_.SetState("reconnecting, attempt " + attempt);
    }
}

ServerReception::Next ServerReception::ReceiveOnce(Outcome &outcome) {
    OpenedSession opened;
    outcome = OpenSession(server_, transport_, interruption_, opened, [this] { receiver_.Show(); });
    SayWhatHappened(opened);
    if (!outcome.IsOk()) return AfterRefusal(opened, outcome);
    mayTryAgain_ = false;
    SayWhatIsLeftOut(opened);
    outcome = receiver_.Begin(opened);
    if (!outcome.IsOk()) return Next::kEnd;
    Receiver::End end = Receiver::End::kOver;
    outcome = Receive(opened, end);
    reconnection_.NoteSession(receiver_.Delivered());
    if (end == Receiver::End::kNoMediaOverUdp) {
        udpWasSilent_ = true;
        return FallBack("no packet arrived over UDP");
    }
    return end == Receiver::End::kOver ? Next::kEnd : Next::kMayReconnect;
}

void ServerReception::SayWhatHappened(const OpenedSession &opened) {
    for (const std::string &note : opened.notes) PrintNotice(note);
    if (!opened.fellBack || !mayFallBack_) return;
    mayFallBack_ = false;
    mayTryAgain_ = true;
    transport_ = Transport::kTcp;
}

ServerReception::Next ServerReception::AfterRefusal(const OpenedSession &opened, Outcome &outcome) {
    receiver_.NoteRefusal(opened);
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
    receiver_.EndSession();
    receiver_.WaitForTeardown(); // some servers serve one at a time
    return TryAgainOverTcp();
}

ServerReception::Next ServerReception::TryAgainOverTcp() {
    return receiver_.Pause(kBeforeFallingBack, "falling back to TCP") ? Next::kTryAgain : Next::kEnd;
}

Outcome ServerReception::Receive(const OpenedSession &opened, Receiver::End &end) {
    Outcome outcome;
    std::optional<KeepAlive> keepAlive;
    const std::optional<std::chrono::seconds> timeout = opened.facts.sessionTimeout;
    if (keepsAlive_.value_or(timeout.has_value()))
        keepAlive.emplace(opened.session, timeout.value_or(kUsualSessionTimeout) / 2.0);
    end = receiver_.Run(mayFallBack_, keepAlive ? &*keepAlive : nullptr, outcome);
    return outcome;
}

void ServerReception::SayWhatIsLeftOut(const OpenedSession &opened) {
    if (std::exchange(saidWhatIsLeftOut_, true)) return;
    for (const std::string &line : DescribeOmissions(opened)) PrintNotice(line);
}

} // namespace

Outcome ReceiveFromServer(const ServerSettings &settings, std::chrono::milliseconds duration,
                          const Audience &audience, Interruption &interruption) {
    Server server;
    Receiver receiver(audience, duration, settings.idleTimeout, interruption);
    Outcome outcome = ReadServer(settings, interruption, server);
    if (outcome.IsOk()) {
        DrawLines({"connecting to " + server.url.host + ":" + std::to_string(server.url.port)});
        outcome = ServerReception(settings, server, receiver, interruption).Run();
    }
    return receiver.Conclude(outcome);
}

Outcome ReceiveOpened(const OpenedSession &opened, std::chrono::milliseconds duration, const Audience &audience,
                      Interruption &interruption) {
    Receiver receiver(audience, duration, std::chrono::milliseconds(0), interruption);
    Outcome outcome = receiver.Begin(opened);
    if (outcome.IsOk()) receiver.Run(false, nullptr, outcome);
    return receiver.Conclude(outcome);
}

} // namespace tool
