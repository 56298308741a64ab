#include "platform/scope.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

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

    const uint64_t before = GetTimeValue();
    EXPECT_EQ(WaitForConditionVar(&condition, &mutex), -1);
    EXPECT_NEAR(static_cast<double>(GetTimeValue() - before), 5000, 500);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : No data received in 5 sec ...\n");
    EXPECT_EQ(MutexUnlock(&mutex), 0);
    EXPECT_EQ(DestroyConditionVar(&condition), 0);
    EXPECT_EQ(MutexDestroy(&mutex), 0);
}
