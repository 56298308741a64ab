#include "base/background.h"

#include "base/console.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace tool {
namespace {

std::atomic<int> gblRunning{0};

} // namespace

void RunInBackground(std::function<void()> work) {
    ++gblRunning;
    try {
        std::thread([work = std::move(work)]() mutable {
            work();
            work = nullptr; // what it owns ends before it counts as ended
            --gblRunning;
        }).detach();
    } catch (...) {
        --gblRunning;
        throw;
    }
}

void EndProcess(int status) {
    FlushLines();
    std::fflush(stdout);
    std::fflush(stderr);
    if (gblRunning > 0) _exit(status);
    std::exit(status);
}

} // namespace tool
