#include "base/interruption.h"

#include "base/clock.h"

#include <csignal>
#include <unistd.h>

namespace tool {
namespace {

constexpr int kEndOfWatch = SIGUSR1;
constexpr auto kOneIntent =
    std::chrono::milliseconds(100); // programs in between send a signal on twice; nobody presses keys so fast

// Under nohup a lost terminal ends nothing.
bool IsIgnored(int signal) {
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t WatchedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, kEndOfWatch}) sigaddset(&set, signal);
    if (!IsIgnored(SIGHUP)) sigaddset(&set, SIGHUP);
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

int Interruption::WaitFor(std::chrono::milliseconds duration) {
    std::unique_lock guard(lock_);
    arrived_.wait_for(guard, duration, [this] { return signal_ != 0; });
    return signal_;
}

void Interruption::WatchSignals() {
    const sigset_t set = WatchedSignals();
    Clock::time_point first;
    for (;;) {
        int signal = 0;
        if (sigwait(&set, &signal) != 0) continue;
        if (signal == kEndOfWatch) return;
        const auto now = Clock::now();
        const std::lock_guard guard(lock_);
        if (signal_ != 0 && (now - first < kOneIntent || signal == SIGHUP)) continue; // shells send it on, too
        if (signal_ != 0) _exit(128 + signal);
        first = now;
        signal_ = signal;
        arrived_.notify_all();
    }
}

} // namespace tool
