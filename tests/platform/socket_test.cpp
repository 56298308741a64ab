#include "platform/scope.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

#include <csignal>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct SocketPair {
    explicit SocketPair(int type) {
        if (socketpair(AF_UNIX, type, 0, fds) != 0) std::abort();
    }
    ~SocketPair() {
        CloseSock(fds[0]);
        CloseServerSock(fds[1]);
    }
    int fds[2];
};

void FailReceivesWith(int error) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_recvfrom, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(program), program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        std::abort();
}

} // namespace

TEST(Socket, OnlyADatagramLongerThanTheBufferIsAnnounced) {
    const SocketPair pair(SOCK_DGRAM);
    char buffer[10];
    CapturedStdout captured;
    for (const int size : {10, 11}) {
        ASSERT_EQ(send(pair.fds[1], "0123456789ABCDEF", static_cast<size_t>(size), 0), size);
        EXPECT_EQ(UDPSockRecv(pair.fds[0], buffer, 10, nullptr, nullptr), size);
    }
    EXPECT_EQ(captured.Text(), "!!!INFO!!! : Received data packet is greater than MTU size so changing MTU size; "
                               "retValue:11, dataSize:10\n");
}

TEST(SocketDeathTest, AnInterruptionAndError29AreRetried) {
    const auto receiveForEver = [](int error, bool datagram) {
        if (freopen("/dev/null", "w", stdout) == nullptr) std::abort(); // thousands of lines
        FailReceivesWith(error);
        ualarm(200000, 0);
        datagram ? UDPSockRecv(0, nullptr, 0, nullptr, nullptr) : TCPSockRecv(0, nullptr, 0);
    };
    for (const auto &[error, lines] : {std::pair{ESPIPE, "Illegal seek\nIllegal seek\n"},
                                       {EINTR, "Interrupted system call\nInterrupted system call\n"}})
        for (const bool datagram : {true, false})
            EXPECT_EXIT(receiveForEver(error, datagram), testing::KilledBySignal(SIGALRM), lines);
}

TEST(Socket, AWriteToAClosedPeerReturnsAnErrorOnceTheSignalIsIgnored) {
    const SocketPair pair(SOCK_STREAM);
    HandleSignal();
    shutdown(pair.fds[1], SHUT_RD);
    EXPECT_EQ(write(pair.fds[0], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
}
