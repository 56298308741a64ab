// Processes: a network of this one's own, its threads, and programs that it starts and ends by their ids.
#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace rtsptap::test {

// The loopback interface does not give back what is sent to groups of IPv6, but takes it.
inline void RouteGroupsOfIpv6(int loopback) {
    in6_rtmsg route = {};
    route.rtmsg_dst.s6_addr[0] = 0xFF;
    route.rtmsg_dst_len = 8;
    route.rtmsg_metric = 1;
    route.rtmsg_flags = RTF_UP;
    route.rtmsg_ifindex = loopback;
    const int any = socket(AF_INET6, SOCK_DGRAM, 0);
    ioctl(any, SIOCADDRT, &route);
    close(any);
}

// With loopback alone: nothing leaves the machine, ports are nobody else's and multicast groups can be joined.
// False without the right to it. Not for a process that has threads already.
inline bool EnterOwnNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_MULTICAST;
    const sockaddr_in groups = {AF_INET, 0, {htonl(0xE0000000)}, {}};
    const sockaddr_in mask = {AF_INET, 0, {htonl(0xF0000000)}, {}};
    rtentry route = {};
    std::memcpy(&route.rt_dst, &groups, sizeof groups);
    std::memcpy(&route.rt_genmask, &mask, sizeof mask);
    route.rt_flags = RTF_UP;
    route.rt_dev = loopback.ifr_name;
    const int any = socket(AF_INET, SOCK_DGRAM, 0);
    const bool isUp = ioctl(any, SIOCSIFFLAGS, &loopback) == 0 && ioctl(any, SIOCADDRT, &route) == 0;
    close(any);
    RouteGroupsOfIpv6(static_cast<int>(if_nametoindex(loopback.ifr_name)));
    return isUp;
}

// One that has been joined shows in /proc until the kernel has put it away, so a mere count of entries is now and
// then too high: those on their way out are not counted.
inline bool IsLeaving(const std::filesystem::path &task) {
    constexpr unsigned kExiting = 4; // PF_EXITING of the kernel
    std::string facts;
    if (!std::getline(std::ifstream(task / "stat"), facts)) return true;
    unsigned flags = 0; // proc(5): the seventh field behind the name in parentheses
    sscanf(facts.c_str() + facts.rfind(')'), ") %*c %*d %*d %*d %*d %*d %u", &flags);
    return (flags & kExiting) != 0;
}

inline std::size_t CountThreads() {
    static const bool begun =
        (std::thread([] {}).join(), true); // a sanitizer's own thread comes with the first one
    std::size_t count = begun ? 0 : 1;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task"))
        count += !IsLeaving(task.path());
    return count;
}

inline std::size_t CountDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

template <typename Action> double SecondsOf(const Action &action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string> &arguments); // [0] is the program, looked for in PATH
    ~ChildProcess();                        // SIGTERM, and SIGKILL where that does not help
    ChildProcess(ChildProcess &&) = delete; // nor copied

    std::string ReadLine(std::chrono::seconds limit); // of standard output; empty after the limit
    void Signal(int signal) const;
    int Wait(std::chrono::seconds limit); // exit status, 128 + n after signal n, -1 when it goes on

    std::string Output() const; // so far; standard output, ReadLine's lines taken out
    std::string Errors() const; // so far; standard error

private:
    pid_t pid_ = -1;
    int outputFile_; // in memory, like the next
    int errorFile_;
    std::size_t bytesRead_ = 0; // by ReadLine
};

} // namespace rtsptap::test
