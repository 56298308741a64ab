#include "platform/scope.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

#include <atomic>
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

// One byte received by a thread of its own, so that it can be interrupted meanwhile.
struct Reader {
    int fd;
    bool datagram;
    int result = 0;
};

void *ReadOne(void *argument) {
    auto *reader = static_cast<Reader *>(argument);
    char byte = 0;
    reader->result =
        reader->datagram ? UDPSockRecv(reader->fd, &byte, 1, nullptr, nullptr) : TCPSockRecv(reader->fd, &byte, 1);
    return nullptr;
}

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

TEST(Socket, AnInterruptedReceiveIsRetriedWithALine) {
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &interrupt, nullptr), 0);
    for (const bool datagram : {true, false}) {
        const SocketPair pair(datagram ? SOCK_DGRAM : SOCK_STREAM);
        Reader reader{pair.fds[0], datagram};
        CapturedStdout captured;
        pthread_t thread{};
        ASSERT_EQ(ThreadCreate(&thread, ReadOne, &reader), 0);
        const std::string line = std::string("!!!INFO!!! : ") + (datagram ? "UDP" : "TCP") +
                                 " recv function error in linux: Err :4 Retval: -1 \n";
        while (captured.Text().find(line) == std::string::npos) {
            pthread_kill(thread, SIGUSR1);
            MSecDelay(2);
        }
        ASSERT_EQ(send(pair.fds[1], "x", 1, 0), 1);
        WaitForThreadCompletion(thread);
        EXPECT_EQ(reader.result, 1);
    }
}

TEST(SocketDeathTest, Error29IsRetriedLikeAnInterruption) {
    const auto receiveForEver = [](auto receive) {
        if (freopen("/dev/null", "w", stdout) == nullptr) std::abort(); // thousands of lines
        FailReceivesWith(ESPIPE);
        ualarm(50000, 0);
        receive();
    };
    EXPECT_EXIT(receiveForEver([] { UDPSockRecv(0, nullptr, 0, nullptr, nullptr); }),
                testing::KilledBySignal(SIGALRM), "Illegal seek\nIllegal seek\n");
    EXPECT_EXIT(receiveForEver([] { TCPSockRecv(0, nullptr, 0); }), testing::KilledBySignal(SIGALRM),
                "Illegal seek\nIllegal seek\n");
}

TEST(Socket, AnEndedStreamAndAFailedReceiveAreToldAndKeepTheirError) {
    const SocketPair pair(SOCK_STREAM);
    char buffer[4];
    shutdown(pair.fds[1], SHUT_WR);
    CapturedStdout captured;
    EXPECT_EQ(TCPSockRecv(pair.fds[0], buffer, 4), 0);
    EXPECT_EQ(TCPSockRecv(-1, buffer, 4), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(TCPSockRecv(pair.fds[0], buffer, -4), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(UDPSockRecv(pair.fds[0], buffer, -4, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(captured.Text(), "!!!INFO!!! : Connection was closed by server\n"
                               "!!!INFO!!! : Connection error -1\n!!!INFO!!! : Connection error -1\n");
}

TEST(Socket, ClosingReachesThePeerAndIgnoresNoSocket) {
    SocketPair pair(SOCK_STREAM);
    char byte;
    CloseSock(-1);
    EXPECT_EQ(CloseServerSock(-1), 0);
    CloseSock(std::exchange(pair.fds[0], -1));
    EXPECT_EQ(recv(pair.fds[1], &byte, 1, 0), 0);
}
