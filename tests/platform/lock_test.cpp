#include "platform/scope.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

namespace {

struct Signalled {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    bool ready = false;
};

void *SignalOnce(void *argument) {
    auto *signalled = static_cast<Signalled *>(argument);
    const rtsptap::ScopedLock lock(signalled->mutex);
    signalled->ready = true;
    SignalOnConditionVar(&signalled->condition);
    return nullptr;
}

} // namespace

TEST(Lock, WaitIsWokenByASignalAndOtherwiseGivesUpAfterFiveSeconds) {
    Signalled signalled;
    ASSERT_EQ(MutexInit(&signalled.mutex), 0);
    ASSERT_EQ(InitConditionVar(&signalled.condition), 0);
    CapturedStdout captured;
    ASSERT_EQ(MutexLock(&signalled.mutex), 0);
    pthread_t thread{};
    ASSERT_EQ(ThreadCreate(&thread, SignalOnce, &signalled), 0);
    while (!signalled.ready) ASSERT_EQ(WaitForConditionVar(&signalled.condition, &signalled.mutex), 0);
    EXPECT_EQ(WaitForThreadCompletion(thread), 0);
    EXPECT_EQ(captured.Text(), "");

    const uint64_t before = GetTimeValue();
    EXPECT_EQ(WaitForConditionVar(&signalled.condition, &signalled.mutex), -1);
    EXPECT_NEAR(static_cast<double>(GetTimeValue() - before), 5000, 500);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : No data received in 5 sec ...\n");
    EXPECT_EQ(MutexUnlock(&signalled.mutex), 0);
    EXPECT_EQ(DestroyConditionVar(&signalled.condition), 0);
    EXPECT_EQ(MutexDestroy(&signalled.mutex), 0);
}

TEST(Lock, MutexCallsFailOnAnyErrorButAConditionWaitTakesItForAWakeUp) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    ASSERT_EQ(MutexLock(&mutex), 0);
    EXPECT_EQ(MutexLock(&mutex), -1) << "EDEADLK";

    const int kind = std::exchange(mutex.__data.__kind, 127); // no such kind: the wait cannot release it (EINVAL)
    CapturedStdout captured;
    EXPECT_EQ(WaitForConditionVar(&condition, &mutex), 0);
    EXPECT_EQ(captured.Text(), "");
    mutex.__data.__kind = kind;
    EXPECT_EQ(MutexUnlock(&mutex), 0);
    MutexDestroy(&mutex);
}

TEST(Lock, MissingObjectsAreRefusedEachWithItsLine) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    CapturedStdout captured;
    testing::internal::CaptureStderr();
    for (const int result : {MutexInit(nullptr), MutexLock(nullptr), MutexUnlock(nullptr), MutexDestroy(nullptr),
                             InitConditionVar(nullptr), SignalOnConditionVar(nullptr), DestroyConditionVar(nullptr),
                             WaitForConditionVar(nullptr, &mutex)})
        EXPECT_EQ(result, -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Err in pthread_mutex_init: : Invalid argument\n");
    EXPECT_EQ(captured.Text(), "MutexInit:"
                               "Unable to initialize condition variable\n"
                               "Unable to signal on condition variable\n"
                               "Unable to destroy condition variable\n"
                               "!!!ERROR!!! : Unable to wait for condition variable\n");
}
