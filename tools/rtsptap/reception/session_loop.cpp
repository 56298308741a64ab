#include "reception/session_loop.h"

#include "base/console.h"
#include "base/text.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <utility>

namespace tool {
namespace {

using std::chrono::milliseconds;

constexpr auto kLook = milliseconds(100);
constexpr auto kPatienceWithUdp = std::chrono::seconds(3); // then another transport is tried
constexpr auto kPatienceWithTeardown = std::chrono::seconds(1);
constexpr auto kStall =
    std::chrono::seconds(1);                 // between two looks: this process was stopped, or its machine slept
constexpr auto kCatchUp = milliseconds(500); // what came meanwhile is taken in this time
constexpr Clock::duration kSilence = milliseconds(300); // over UDP, of a server that has closed its connection
constexpr Clock::duration kPatienceBehindGoodbye = std::chrono::seconds(2); // its sender may begin anew

uint64_t PacketsOf(const std::vector<StreamObservation> &streams) {
    uint64_t packets = 0;
    for (const StreamObservation &stream : streams) packets += stream.statistics.Packets();
    return packets;
}

std::string ReasonOf(int32_t end) {
    if (end == RTSPTAP_CONNECTION_CLOSED) return "the server closed the connection";
    if (end == RTSPTAP_SESSION_TIMED_OUT) return "the server let the session time out";
    return end == RTSPTAP_SENDER_LEFT ? "its sender said goodbye" : RTSPTapResultText(end);
}

// Why no stream of the session brings more, a result code; 0: one may.
int32_t EndOf(const std::vector<StreamObservation> &streams) {
    int32_t end = 0;
    for (const StreamObservation &stream : streams) {
        if (stream.end == 0) return 0;
        end = std::min(end, stream.end);
    }
    return end;
}

} // namespace

SessionLoop::SessionLoop(const Audience &audience, milliseconds duration, milliseconds idleTimeout,
                         Interruption &interruption)
    : audience_(audience), duration_(duration), idleTimeout_(idleTimeout), sessions_(interruption),
      intake_(ObserversOf(audience)) {}

std::vector<PacketObserver> SessionLoop::ObserversOf(const Audience &audience) {
    std::vector<PacketObserver> observers = audience.observers;
    observers.push_back([this](const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
        if (sink_ != nullptr) sink_->Take(stream, packet, arrival);
    });
    return observers;
}

Outcome SessionLoop::Begin(const OpenedSession &opened) {
    const bool isFirst = firstBegin_ == Clock::time_point{};
    session_ = opened.session;
    sessionBegin_ = Clock::now();
    hasServer_ = opened.facts.port != 0;
    transport_ = opened.transport;
    packetsBefore_ = PacketsOf(intake_.Streams());
    if (!hasServer_) sessions_.Add(*session_);
    if (packetsBefore_ > 0) ++reconnects_;
    if (isFirst) firstBegin_ = sessionBegin_;
    if (isFirst) DrawLines({});
    if (isFirst && audience_.makeSink)
        if (Outcome failed = audience_.makeSink(opened, sink_); !failed.IsOk()) return failed;
    if (audience_.opened) audience_.opened(opened);
    if (sink_ != nullptr) {
        sink_->BeginSession(opened);
        session_->ShowControl([this](int32_t number, bool isSent, std::span<const uint8_t> packet) {
            sink_->TakeControl(number, isSent, packet);
        });
    }
    intake_.Begin(session_, opened.streams);
    return {};
}

void SessionLoop::NoteRefusal(const OpenedSession &opened) const {
    if (audience_.refused) audience_.refused(opened);
}

SessionLoop::End SessionLoop::Run(bool fallsBack, Outcome &outcome) {
    Clock::time_point looked = Clock::now();
    for (;;) {
        const int signal = TakeFor(kLook);
        Observation now = Observe();
        if (now.now - std::exchange(looked, now.now) > kStall) resumed_ = now.now;
        const bool hasMedia = PacketsOf(now.streams) > packetsBefore_;
        now.state = state_ = hasMedia ? kPlaying : kWaitingForMedia;
        if (signal != 0 || IsOver(now)) return End::kOver;
        const bool udpIsDead = fallsBack && !hasMedia && now.now - sessionBegin_ >= kPatienceWithUdp;
        if (udpIsDead) return End::kNoMediaOverUdp;
        outcome = MediaTrouble(now);
        if (!outcome.IsOk()) return End::kMediaEnded;
        PassLines();
        if (now.now - resumed_ < kCatchUp) continue;
        for (Watcher *watcher : audience_.watchers) watcher->Show(now);
    }
}

int SessionLoop::TakeFor(milliseconds duration) {
    return sessions_.TakeFor(duration,
                             [this](std::span<const RTSPTapGroupPacket> records) { intake_.Take(records); });
}

Clock::duration SessionLoop::Delivered() const {
    Clock::time_point last = sessionBegin_;
    for (const StreamObservation &stream : intake_.Streams())
        last = std::max(last, stream.statistics.LastArrival());
    return last - sessionBegin_;
}

bool SessionLoop::IsOver(const Observation &now) const {
    const bool failed = std::any_of(audience_.watchers.begin(), audience_.watchers.end(),
                                    [](const Watcher *watcher) { return watcher->HasFailed(); });
    if (failed || (sink_ != nullptr && sink_->IsDone())) return true;
    return duration_.count() > 0 && now.now - Beginning(now) >= duration_;
}

// Why no more packets are to be expected; Ok while they are.
Outcome SessionLoop::MediaTrouble(const Observation &now) const {
    Clock::time_point last = std::max(sessionBegin_, resumed_);
    for (const StreamObservation &stream : now.streams) last = std::max(last, stream.statistics.LastArrival());
    const Clock::duration silence = now.now - last;
    const bool anything = PacketsOf(now.streams) > 0;
    const ExitCode code = anything ? ExitCode::kEndedEarly : ExitCode::kNoMedia;
    const int32_t end = EndOf(now.streams);
    const bool mayGoOn = end == RTSPTAP_SENDER_LEFT || transport_ != Transport::kTcp;
    const Clock::duration patience = end == RTSPTAP_SENDER_LEFT ? kPatienceBehindGoodbye : kSilence;
    if (end != 0 && (!mayGoOn || silence >= patience))
        return {code, (anything ? "the media ended: " : "no packet arrived: ") + ReasonOf(end)};
    if (idleTimeout_.count() == 0 || silence < idleTimeout_) return {};
    return {code, (anything ? "the media ended: nothing arrived for " : "no packet arrived within ") +
                      TimeText(idleTimeout_)};
}

// Where silence ends a reception, waiting for the first packet takes nothing away from the duration.
Clock::time_point SessionLoop::Beginning(const Observation &now) const {
    if (idleTimeout_.count() == 0) return firstBegin_;
    Clock::time_point first = now.now;
    for (const StreamObservation &stream : now.streams)
        if (stream.statistics.Packets() > 0) first = std::min(first, stream.statistics.FirstArrival());
    return first;
}

Observation SessionLoop::ObserveAt(Clock::time_point now) const {
    const bool begun = firstBegin_ != Clock::time_point{};
    const Clock::duration elapsed = begun ? now - firstBegin_ : Clock::duration{};
    const int64_t buffer = session_ != nullptr ? session_->ReceiveBufferBytes() : 0;
    return {now, elapsed, state_, intake_.Streams(), hasServer_, transport_, buffer, reconnects_};
}

Observation SessionLoop::Observe() {
    looked_ = Clock::now();
    return ObserveAt(looked_);
}

void SessionLoop::Show() {
    if (firstBegin_ == Clock::time_point{}) return;
    const Observation now = Observe();
    for (Watcher *watcher : audience_.watchers) watcher->Show(now);
}

void SessionLoop::EndSession() {
    if (session_ == nullptr) return;
    if (session_->ReleaseHeldBack()) TakeFor(kLook);
    intake_.End();
    session_->ShowControl({}); // the session may outlive this
    teardownBegin_ = Clock::now();
    sessions_.TakeLeaveOf(std::move(session_));
}

void SessionLoop::WaitForTeardown() {
    const Clock::time_point end = teardownBegin_ + kPatienceWithTeardown;
    for (bool isTime = true; isTime && sessions_.AreLeaving();) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        sessions_.Wait(left); // a reply that is there is read in any case
        isTime = left.count() > 0;
    }
}

bool SessionLoop::Pause(milliseconds pause, const std::string &state) {
    state_ = state;
    const Clock::time_point end = Clock::now() + pause;
    while (Clock::now() < end) {
        if (TakeFor(std::min<milliseconds>(kLook, pause)) != 0 || IsOver(Observe())) return false;
        Show();
    }
    return true;
}

Outcome SessionLoop::Conclude(const Outcome &own) {
    const int signal = sessions_.Signal();
    if (firstBegin_ == Clock::time_point{}) DrawLines({});
    EndSession();
    Outcome outcome = Finish(signal, own);
    WaitForTeardown();
    return outcome;
}

// What could not be written goes before everything else, then the signal, then why the reception ended.
Outcome SessionLoop::Finish(int signal, const Outcome &own) {
    std::vector<Outcome> outcomes = {signal != 0 ? OutcomeOfSignal(signal) : own};
    if (sink_ != nullptr) outcomes.push_back(sink_->Finish());
    state_ = "ended";
    FlushLines();
    Observation last = ObserveAt(std::max(looked_, firstBegin_)); // what taking leave needs is no silence
    for (StreamObservation &stream : last.streams) stream.statistics.EndAt(last.now);
    for (Watcher *watcher : audience_.watchers) outcomes.push_back(watcher->Finish(last));
    for (const Outcome &outcome : outcomes)
        if (outcome.code == ExitCode::kOutputFailed) return outcome;
    for (const Outcome &outcome : outcomes)
        if (!outcome.IsOk()) return outcome;
    return {};
}

} // namespace tool
