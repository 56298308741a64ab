#include "platform/system.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

namespace {

double Microseconds() {
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    GetPresentTimeInSec(&seconds, &microseconds);
    return seconds * 1e6 + microseconds;
}

void *ExitThread(void * /*argument*/) { ThreadExit(0); }

} // namespace

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
    const int kind = std::exchange(mutex.__data.__kind, 127); // no such kind: the wait cannot release it (EINVAL)
    EXPECT_EQ(WaitForConditionVar(&condition, &mutex), 0);
    EXPECT_EQ(captured.Text(), "");
    mutex.__data.__kind = kind;

    const double before = Microseconds();
    EXPECT_EQ(WaitForConditionVar(&condition, &mutex), -1);
    EXPECT_GE(Microseconds() - before, 5e6);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : No data received in 5 sec ...\n");
    EXPECT_EQ(MutexUnlock(&mutex), 0);
    EXPECT_EQ(DestroyConditionVar(&condition), 0);
    EXPECT_EQ(MutexDestroy(&mutex), 0);
}
