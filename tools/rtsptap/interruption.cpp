#include "interruption.h"

#include <csignal>
#include <unistd.h>

namespace tool {
namespace {

constexpr int kEndOfWatch = SIGUSR1;

sigset_t WatchedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, kEndOfWatch}) sigaddset(&set, signal);
    return set;
}

} // namespace

Interruption::Interruption() {
    const sigset_t set = WatchedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    watcher_ = std::thread([this] { WatchSignals(); });
}

Interruption::~Interruption() {
    pthread_kill(watcher_.native_handle(), kEndOfWatch);
    watcher_.join();
}

void Interruption::BeginGraceful() {
    const std::lock_guard guard(lock_);
    graceful_ = true;
}

int Interruption::WaitFor(std::chrono::milliseconds duration) {
    std::unique_lock guard(lock_);
    arrived_.wait_for(guard, duration, [this] { return signal_ != 0; });
    return signal_;
}

void Interruption::WatchSignals() {
    const sigset_t set = WatchedSignals();
    for (;;) {
        int signal = 0;
        if (sigwait(&set, &signal) != 0) continue;
        if (signal == kEndOfWatch) return;
        const std::lock_guard guard(lock_);
        if (!graceful_ || signal_ != 0) _exit(128 + signal);
        signal_ = signal;
        arrived_.notify_all();
    }
}

} // namespace tool
