#include "rtsptap.h"

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

namespace {

// Says how far a thread came that leaves from an inner frame.
struct Trail {
    bool unwound = false;
    bool wentOn = false;
};

struct Unwound {
    Trail &trail;
    ~Unwound() { trail.unwound = true; }
};

void *LeaveEarly(void *argument) {
    auto &trail = *static_cast<Trail *>(argument);
    const Unwound unwound{trail};
    ThreadExit(-1);
    trail.wentOn = true;
    return nullptr;
}

void *DoNothing(void *) { return nullptr; }

} // namespace

TEST(Thread, ExitEndsOnlyTheCallingThreadAndUnwindsIt) {
    Trail trail;
    pthread_t thread{};
    ASSERT_EQ(ThreadCreate(&thread, LeaveEarly, &trail), 0);
    EXPECT_EQ(WaitForThreadCompletion(thread), 0);
    EXPECT_TRUE(trail.unwound);
    EXPECT_FALSE(trail.wentOn);

    ASSERT_EQ(ThreadCreate(&thread, DoNothing, nullptr), 0);
    EXPECT_EQ(ThreadDetach(thread), 0);
}

TEST(Thread, NullArgumentsAndHandleZeroAreRefused) {
    pthread_t thread{};
    EXPECT_EQ(ThreadCreate(nullptr, DoNothing, nullptr), -1);
    EXPECT_EQ(ThreadCreate(&thread, nullptr, nullptr), -1);
    EXPECT_EQ(ThreadDetach(0), -1);
    EXPECT_EQ(WaitForThreadCompletion(0), -1);
}

TEST(Thread, AWriteToAClosedPeerReturnsAnErrorOnceTheSignalIsIgnored) {
    HandleSignal();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

TEST(Clock, TellsTheSameTimeInBothFormsAndSleepsAsLongAsAsked) {
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    EXPECT_EQ(GetPresentTimeInSec(nullptr, nullptr), 0);
    const uint64_t before = GetTimeValue();
    EXPECT_EQ(GetPresentTimeInSec(&seconds, nullptr), 0);
    EXPECT_EQ(GetPresentTimeInSec(nullptr, &microseconds), 0);
    EXPECT_EQ(MSecDelay(0), 0);
    EXPECT_EQ(MSecDelay(30), 0);
    const uint64_t after = GetTimeValue();
    EXPECT_GE(after - before, 30u);
    EXPECT_TRUE(seconds == before / 1000 || seconds == after / 1000);
    EXPECT_LT(microseconds, 1000000u);
}
