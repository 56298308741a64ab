#include "platform/system.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

// That receiving is repeated after interruptions: tests/torture.
TEST(Socket, OnlyADatagramLongerThanTheBufferIsAnnounced) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    char buffer[10];
    CapturedStdout captured;
    for (const int size : {10, 11}) {
        ASSERT_EQ(send(ends[1], "0123456789ABCDEF", static_cast<size_t>(size), 0), size);
        EXPECT_EQ(UDPSockRecv(ends[0], buffer, 10, nullptr, nullptr), size);
    }
    for (const int end : ends) CloseSock(end);
    EXPECT_EQ(captured.Text(), "!!!INFO!!! : Received data packet is greater than MTU size so changing MTU size; "
                               "retValue:11, dataSize:10\n");
}

TEST(Socket, AStreamThatGivesNothingIsAnnounced) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    char buffer[10];
    CapturedStdout captured;
    EXPECT_EQ(TCPSockRecv(ends[0], buffer, 10), -1);
    EXPECT_EQ(errno, EAGAIN);
    CloseSock(ends[1]);
    EXPECT_EQ(TCPSockRecv(ends[0], buffer, 10), 0);
    CloseSock(ends[0]);
    EXPECT_EQ(captured.Text(), "!!!INFO!!! : Connection error -1\n!!!INFO!!! : Connection was closed by server\n");
}

TEST(Printers, PrefixTheMessageAndCutItAt1023Characters) {
    const std::string longText(5000, 'x');
    CapturedStdout captured;
    RtpRtspDebugPrint(100, "ENTER : %s\n", "Name"); // prints nothing at any level
    EXPECT_EQ(RtpRtspErrorPrint("EXIT : %s :%d\n", "Name", -99), 14 + 17);
    EXPECT_EQ(RtpRtspInfoPrint("%s\n", longText.c_str()), 13 + 1023);
    EXPECT_EQ(RtpRtspErrorPrint(nullptr), 0);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : EXIT : Name :-99\n!!!INFO!!! : " + longText.substr(0, 1023));
}
