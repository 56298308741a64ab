#include "base/interruption.h"

#include "base/clock.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace tool {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int64_t kOneIntentNs =
    100000000; // programs in between send a signal on twice; nobody presses keys so fast

// What the handler needs, which may run on any thread.
std::atomic<int> gblSignal{0};
std::atomic<int64_t> gblFirstNs{0}; // when it came; 0: none did
std::atomic<int> gblArrived{-1};    // readable from then on
std::atomic<RTSPTapGroup *> gblGroup{nullptr};

void OnSignal(int signal) {
    const int before = errno;
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t nowNs = int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
    int64_t firstNs = 0;
    if (gblFirstNs.compare_exchange_strong(firstNs, nowNs)) {
        gblSignal = signal;
        eventfd_write(gblArrived, 1);
        RTSPTapGroupInterrupt(gblGroup);
    } else if (nowNs - firstNs >= kOneIntentNs && signal != SIGHUP) { // shells send that on, too
        _exit(128 + signal);
    }
    errno = before;
}

// Under nohup a lost terminal ends nothing.
bool IsLeftAlone(int signal) {
    struct sigaction action = {};
    return signal == SIGHUP && sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void Handle(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int signal : kSignals) sigaddset(&action.sa_mask, signal);
    for (const int signal : kSignals)
        if (!IsLeftAlone(signal)) sigaction(signal, &action, nullptr);
}

} // namespace

Interruption::Interruption() {
    if (gblArrived < 0) gblArrived = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (gblGroup == nullptr) gblGroup = RTSPTapGroupCreate();
    if (gblArrived < 0 || gblGroup == nullptr)
        throw std::system_error(errno, std::generic_category(), "no descriptor is left");
    Handle(OnSignal);
}

Interruption::~Interruption() { Handle(SIG_DFL); }

int Interruption::Signal() const { return gblSignal; }

int Interruption::WaitFor(std::chrono::milliseconds duration) {
    const Clock::time_point end = Clock::now() + duration;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (Signal() != 0 || left.count() <= 0) return Signal();
        pollfd arrived = {gblArrived, POLLIN, 0};
        poll(&arrived, 1, static_cast<int>(left.count()));
    }
}

RTSPTapGroup *Interruption::Group() const { return gblGroup; }

} // namespace tool
