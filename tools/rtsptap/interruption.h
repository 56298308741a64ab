// SIGINT and SIGTERM. The first one asks the command to finish, or ends the program when there is nothing to finish
// yet; the second one ends it at once.
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

    void BeginGraceful();                            // from here on there is something to finish
    int WaitFor(std::chrono::milliseconds duration); // the signal as soon as there was one, else 0

private:
    void WatchSignals();

    std::mutex lock_; // guards the two below
    int signal_ = 0;
    bool graceful_ = false;
    std::condition_variable arrived_;
    std::thread watcher_;
};

} // namespace tool
