// What the end-to-end benchmarks share: a receiver and a sender in processes of their own, so that getrusage
// sees the receiver alone, and figures as ratios to a bare loop measured in the same run.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

struct Measurement {
    double microseconds = 0; // of processor time
    long packets = 0;
};

inline double ProcessorMicroseconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto micro = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return micro(usage.ru_utime) + micro(usage.ru_stime);
}

inline double PerPacket(const Measurement &measurement) {
    return measurement.microseconds / static_cast<double>(std::max(measurement.packets, 1L));
}

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A socket of that type on the loopback interface; port 0 asks for a free one and receives it.
inline int BoundSocket(int type, uint16_t &port) {
    const int fd = socket(AF_INET, type, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) std::exit(1);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    port = ntohs(address.sin_port);
    return fd;
}

inline void WriteOrExit(int fd, const void *bytes, std::size_t count) {
    if (write(fd, bytes, count) != static_cast<ssize_t>(count)) _exit(1);
}

// Wakes every `nanoseconds` after the time in `next`.
inline void SleepUntilNext(timespec &next, long nanoseconds) {
    next.tv_nsec += nanoseconds;
    next.tv_sec += next.tv_nsec / 1000000000L;
    next.tv_nsec %= 1000000000L;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
}

// Runs `receive`, which reports one byte on its descriptor once it is ready and returns its measurement, and
// `send` from then on.
template <typename Receive, typename Send> Measurement MeasureApart(Receive receive, Send send) {
    int pipeEnds[2] = {};
    std::fflush(stdout); // or the children print it again
    if (pipe(pipeEnds) != 0) std::exit(1);
    if (fork() == 0) {
        if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
        const Measurement result = receive(pipeEnds[1]);
        WriteOrExit(pipeEnds[1], &result, sizeof result);
        _exit(0);
    }
    char ready = 0;
    close(pipeEnds[1]);
    if (read(pipeEnds[0], &ready, 1) != 1) std::exit(1);
    if (fork() == 0) {
        send();
        _exit(0);
    }
    Measurement result;
    if (read(pipeEnds[0], &result, sizeof result) != sizeof result) std::exit(1);
    close(pipeEnds[0]);
    while (wait(nullptr) > 0) {
    }
    return result;
}

// Measures bare loop and library in turn and prints each round and the median of the ratios.
template <typename Bare, typename Library> void CompareInRounds(int rounds, Bare bare, Library library) {
    std::printf("%5s  %25s  %25s  %6s\n", "round", "bare loop, us/packet", "rtsptap, us/packet", "ratio");
    std::vector<double> ratios;
    for (int round = 1; round <= rounds; ++round) {
        const Measurement ours[] = {bare(), library()};
        ratios.push_back(PerPacket(ours[1]) / PerPacket(ours[0]));
        std::printf("%5d  %7.3f (%7ld packets)  %7.3f (%7ld packets)  %6.2f\n", round, PerPacket(ours[0]),
                    ours[0].packets, PerPacket(ours[1]), ours[1].packets, ratios.back());
        std::fflush(stdout);
    }
    std::printf("ratio, median: %.2f\n", Median(ratios));
}

} // namespace bench
