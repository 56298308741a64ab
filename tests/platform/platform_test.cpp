// Threads, waits, sockets, printers and texts.
#include "platform/address.h"
#include "platform/system.h"
#include "platform/url.h"
#include "tests/support/texts.h"
#include "tests/torture/system_calls.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace rtsptap::test {
namespace {

double Microseconds() {
    uint32_t seconds = 0, microseconds = 0;
    GetPresentTimeInSec(&seconds, &microseconds);
    return seconds * 1e6 + microseconds;
}

void *ExitThread(void * /*argument*/) { ThreadExit(0); }

TEST(Thread, KeptTheExitValueIsAnAddressWhateverTheStatus) {
    pthread_t thread;
    ASSERT_EQ(ThreadCreate(&thread, ExitThread, nullptr), 0);
    void *value = nullptr;
    ASSERT_EQ(pthread_join(thread, &value), 0);
    EXPECT_NE(value, nullptr);
}

TEST(Lock, AWaitGivesUpAfterFiveSecondsButTakesAnErrorForAWakeUp) {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    ASSERT_EQ(MutexInit(&mutex), 0);
    ASSERT_EQ(InitConditionVar(&condition), 0);
    CapturedStdout captured;
    ASSERT_EQ(MutexLock(&mutex), 0);
    torture::Arm({"wait", EINVAL}, 0); // and from here on time hurries
    EXPECT_EQ(WaitForConditionVar(&condition, &mutex), 0);
    EXPECT_EQ(captured.Text(), "");

    const double before = Microseconds();
    EXPECT_EQ(WaitForConditionVar(&condition, &mutex), -1);
    EXPECT_GE(Microseconds() - before, 5e6);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : No data received in 5 sec ...\n");
    EXPECT_EQ(MutexUnlock(&mutex), 0);
    torture::Arm({"none", 0}, 0);
    EXPECT_EQ(DestroyConditionVar(&condition), 0);
    EXPECT_EQ(MutexDestroy(&mutex), 0);
}

TEST(Lock, AShortLockHasOneHolderAtATimeAlsoWhenThatOneSleeps) {
    ShortLock lock;
    int count = 0;
    const auto work = [&] {
        for (int i = 1; i <= 2000; ++i) {
            const ScopedShortLock held(lock);
            if (i % 500 == 0) MSecDelay(2);
            ++count;
        }
    };
    { const std::jthread threads[] = {std::jthread(work), std::jthread(work), std::jthread(work)}; }
    EXPECT_EQ(count, 3 * 2000);
}

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

TEST(Text, NumbersReadAsTheCLibraryReadsThem) {
    for (const char *text :
         {"", "-7", "+7", " \t\n\v\f\r42abc", "abc", "- 7", "+-7", "0x10", "2147483647", "2147483648",
          "-2147483649", "9223372036854775808", "-9223372036854775809", "99999999999999999999"})
        EXPECT_EQ(LeadingNumber(text), atoi(text)) << text;
    EXPECT_EQ(LeadingNumber(std::string_view("12345", 2)), 12) << "a view ends where it ends";
}

TEST(Text, FractionsReadAsTheCLibraryReadsPlainDecimals) {
    for (const char *text : {"", "0", "25", "29.97", " \t+29.97fps", "-1.5", ".5", "5.", ".", "abc", "- 1", "+-1",
                             "1e2", "1e", "1e-999", "0.0", "-0.25e1x"})
        EXPECT_EQ(LeadingFraction(text), atof(text)) << text;
    for (const char *text : {"inf", "nan", "-infinity", "1e999", "0x1p3"})
        EXPECT_EQ(LeadingFraction(text), 0.0) << text;
    EXPECT_EQ(LeadingFraction(std::string_view("29.97", 4)), 29.9);
}

TEST(Text, CopiesAreCutToTheirFieldAndLeaveNoOldTail) {
    char field[5] = {'o', 'l', 'd', '!', '!'};
    CopyText(field, "ab");
    EXPECT_EQ(std::string_view(field, sizeof field), std::string_view("ab\0\0\0", 5));
    CopyText(field, "abcdefgh");
    EXPECT_STREQ(field, "abcd");
}

TEST(Url, OfAServerIsReadAsTheRowsTell) {
    for (const auto &row : Rows("server_urls.txt")) {
        ServerUrl url;
        const UrlFault fault = ReadServerUrl(Literal(row[0]), "rtsp", 554, url);
        std::string told = fault == UrlFault::kOtherScheme ? "other scheme" : "unreadable";
        if (fault == UrlFault::kNone)
            told = url.request.get() + (" " + std::string(url.host)) + " " + std::to_string(url.port) +
                   (url.hasUser ? " " + std::string(url.user) + " " + url.password : "");
        EXPECT_EQ(told, Literal(row.at(1))) << row[0];
    }
}

TEST(Url, IsJoinedWithItsBaseAsTheRowsTell) {
    for (const auto &row : Rows("urls.txt")) {
        const std::size_t end = std::min(row[0].find(' '), row[0].size());
        const std::string reference = row[0].substr(std::min(end + 1, row[0].size()));
        EXPECT_STREQ(JoinUrl(row[0].substr(0, end), reference).get(), row.at(1).c_str()) << row[0];
    }
}

TEST(ReceiveOnlyFrom, ComparesEveryWordOfAnIpv6Address) {
    const std::pair<std::vector<const char *>, bool> rows[] = {
        {{"::1"}, true}, {{"fe80::1", "::1"}, true}, {{"fe80::1", "::2"}, false}, {{"1::1"}, false}};
    for (const auto &[names, isLetThrough] : rows) {
        std::vector<Address> hosts;
        for (const char *name : names) hosts.push_back(ReadAnyAddress(name, 1));
        const UniqueSocket socket(OpenDatagramSocket(hosts[0]));
        Address own = ReadAnyAddress("::1", 0);
        EXPECT_TRUE(BindTo(socket.Get(), own) && ReceiveOnlyFrom(socket.Get(), hosts));
        getsockname(socket.Get(), reinterpret_cast<sockaddr *>(&own.storage), &own.length);
        EXPECT_EQ(SendTo(socket.Get(), "x", 1, own), 1);
        char byte = 0;
        EXPECT_EQ(recv(socket.Get(), &byte, 1, MSG_DONTWAIT), isLetThrough ? 1 : -1) << names[0];
    }
}

} // namespace
} // namespace rtsptap::test
