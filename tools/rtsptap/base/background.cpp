#include "base/background.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace tool {
namespace {

// Never destroyed: threads outlast main.
struct Running {
    std::mutex lock; // guards count
    std::condition_variable changed;
    int count = 0;
};

Running &AllRunning() {
    static auto *const running = new Running;
    return *running;
}

void CountRunning(int change) {
    Running &running = AllRunning();
    const std::lock_guard guard(running.lock);
    running.count += change;
    running.changed.notify_all();
}

} // namespace

void RunInBackground(std::function<void()> work) {
    CountRunning(1);
    try {
        std::thread([work = std::move(work)]() mutable {
            work();
            work = nullptr; // what it owns ends before it counts as ended
            CountRunning(-1);
        }).detach();
    } catch (...) {
        CountRunning(-1);
        throw;
    }
}

bool WaitForBackground(std::chrono::milliseconds limit) {
    Running &running = AllRunning();
    std::unique_lock guard(running.lock);
    return running.changed.wait_for(guard, limit, [&running] { return running.count == 0; });
}

void EndProcess(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    if (!WaitForBackground(std::chrono::milliseconds(0))) _exit(status);
    std::exit(status);
}

} // namespace tool
