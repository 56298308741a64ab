// SIGINT, SIGTERM and SIGHUP. The first one asks the command to finish; the second one ends the program at once.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace tool {

class Interruption {
public:
    Interruption(); // before any other thread is started: they inherit the blocked signals
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    int WaitFor(std::chrono::milliseconds duration); // the signal as soon as there was one, else 0

private:
    void WatchSignals();

    std::mutex lock_; // guards signal_
    int signal_ = 0;
    std::condition_variable arrived_;
    std::thread watcher_;
};

} // namespace tool
