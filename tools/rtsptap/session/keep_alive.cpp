#include "session/keep_alive.h"

#include "base/background.h"
#include "base/console.h"

namespace tool {
namespace {

// What else goes wrong with it need not harm the media, which are watched by themselves.
bool EndsSession(const Outcome &outcome, int status) {
    return outcome.code == ExitCode::kUnreachable || status == kSessionNotFound;
}

} // namespace

Outcome KeepAlive::Look(Clock::time_point now) {
    const std::lock_guard guard(exchange_->lock);
    if (!exchange_->trouble.IsOk() || exchange_->running || now - last_ < interval_) return exchange_->trouble;
    last_ = now;
    exchange_->running = true;
    Send();
    return {};
}

// A refusal leaves it running for ever: nothing more is sent.
void KeepAlive::Send() const {
    RunInBackground([session = session_, exchange = exchange_] {
        const Answer answer = session->KeepAlive();
        const Outcome outcome = OutcomeOfRequest("keep-alive", answer.result, answer.reply);
        const bool ends = EndsSession(outcome, answer.reply.status);
        if (!outcome.IsOk() && !ends) PrintNotice(outcome.text + ": no more keep-alives are sent");
        const std::lock_guard guard(exchange->lock);
        exchange->running = !outcome.IsOk();
        if (ends) exchange->trouble = outcome;
    });
}

} // namespace tool
