#include "platform/fiber.h"

#include "platform/printers.h"
#include "platform/system.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#include <utility>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define RTSPTAP_ASAN 1
#include <sanitizer/common_interface_defs.h>
#else
#define RTSPTAP_ASAN 0
#endif
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
#define RTSPTAP_TSAN 1
#include <sanitizer/tsan_interface.h>
#else
#define RTSPTAP_TSAN 0
#endif

namespace rtsptap {

// Of the fiber and of whoever resumes it, in turn.
struct Fiber {
    void (*body)(void *argument) = nullptr;
    void *argument = nullptr;
    uint8_t *memory = nullptr; // a page that nobody may touch, and the stack above it
    ucontext_t context = {};   // where the fiber is
    ucontext_t resumer = {};   // where it goes back to
    intptr_t printsFor = 0;    // while it does not run
    bool isEnded = false;
    bool isCalledOff = false;
    bool isFresh = true; // has not run
    Awaited awaited;
    int found = 0; // by the last look, as poll(2) says it

    // What sanitizers want to know of its stack and of the resumer's.
    void *shadow = nullptr;
    const void *resumerStack = nullptr;
    std::size_t resumerStackBytes = 0;
    void *tsanFiber = nullptr;
    void *tsanResumer = nullptr;
};

namespace {

// What code on it calls of the program's may need as much as on a library thread. Touched as far as it is needed.
constexpr std::size_t kStackBytes = kLibraryStackBytes;

constinit thread_local Fiber *running = nullptr;

std::size_t GuardBytes() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

uint8_t *MapStack() {
    constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE;
    void *const memory = mmap(nullptr, GuardBytes() + kStackBytes, PROT_READ | PROT_WRITE, kFlags, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    if (mprotect(memory, GuardBytes(), PROT_NONE) == 0) return static_cast<uint8_t *>(memory);
    munmap(memory, GuardBytes() + kStackBytes);
    return nullptr;
}

// ---- from one stack to the other; nothing may be called in between that a sanitizer sees ----

[[gnu::noinline]] void GoIn(Fiber &fiber) {
#if RTSPTAP_ASAN
    void *shadow = nullptr;
    __sanitizer_start_switch_fiber(&shadow, fiber.memory + GuardBytes(), kStackBytes);
#endif
#if RTSPTAP_TSAN
    fiber.tsanResumer = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(fiber.tsanFiber, 0);
#endif
    swapcontext(&fiber.resumer, &fiber.context);
#if RTSPTAP_ASAN
    __sanitizer_finish_switch_fiber(shadow, nullptr, nullptr);
#endif
}

[[gnu::noinline]] void GoBack(Fiber &fiber) {
#if RTSPTAP_ASAN
    void **const shadow = fiber.isEnded ? nullptr : &fiber.shadow;
    __sanitizer_start_switch_fiber(shadow, fiber.resumerStack, fiber.resumerStackBytes);
#endif
#if RTSPTAP_TSAN
    __tsan_switch_to_fiber(fiber.tsanResumer, 0);
#endif
    swapcontext(&fiber.context, &fiber.resumer);
#if RTSPTAP_ASAN
    __sanitizer_finish_switch_fiber(fiber.shadow, &fiber.resumerStack, &fiber.resumerStackBytes);
#endif
}

} // namespace

// The outermost frame on the stack, which is never left.
extern "C" {
static void FiberMain() {
    Fiber &fiber = *CurrentFiber();
#if RTSPTAP_ASAN
    __sanitizer_finish_switch_fiber(nullptr, &fiber.resumerStack, &fiber.resumerStackBytes);
#endif
    fiber.body(fiber.argument);
    fiber.isEnded = true;
    GoBack(fiber);
    std::abort();
}
}

Fiber *MakeFiber(void (*body)(void *argument), void *argument) {
    auto *const fiber = new (std::nothrow) Fiber{};
    if (fiber == nullptr) return nullptr;
    fiber->memory = MapStack();
    if (fiber->memory == nullptr || getcontext(&fiber->context) != 0) {
        FreeFiber(fiber);
        return nullptr;
    }
    fiber->body = body;
    fiber->argument = argument;
    fiber->context.uc_stack.ss_sp = fiber->memory + GuardBytes();
    fiber->context.uc_stack.ss_size = kStackBytes;
    fiber->context.uc_link = nullptr;
    makecontext(&fiber->context, FiberMain, 0);
#if RTSPTAP_TSAN
    fiber->tsanFiber = __tsan_create_fiber(0);
#endif
    return fiber;
}

void FreeFiber(Fiber *fiber) {
    if (fiber == nullptr) return;
#if RTSPTAP_TSAN
    if (fiber->tsanFiber != nullptr) __tsan_destroy_fiber(fiber->tsanFiber);
#endif
    if (fiber->memory != nullptr) munmap(fiber->memory, GuardBytes() + kStackBytes);
    delete fiber;
}

[[gnu::noinline]] Fiber *CurrentFiber() { return running; }

// What belongs to the thread stays with it: whose messages it prints, and the signals that it blocks.
bool ResumeFiber(Fiber &fiber) {
    fiber.isFresh = false;
    Fiber *const outer = std::exchange(running, &fiber);
    const intptr_t printsFor = SetPrintsFor(fiber.printsFor);
    pthread_sigmask(SIG_SETMASK, nullptr, &fiber.context.uc_sigmask);
    GoIn(fiber);
    fiber.printsFor = SetPrintsFor(printsFor);
    running = outer;
    return fiber.isEnded;
}

bool IsDue(Fiber &fiber) {
    if (fiber.isFresh || fiber.isCalledOff) return true;
    Awaited &awaited = fiber.awaited;
    fiber.found = awaited.count > 0 ? poll(awaited.sockets.data(), awaited.count, 0) : 0;
    if (fiber.found < 0 && errno == EINTR) fiber.found = 0;
    return fiber.found != 0 || MonotonicMs() >= awaited.deadlineMs;
}

const Awaited &AwaitedBy(const Fiber &fiber) { return fiber.awaited; }

void CallOff(Fiber &fiber) {
    fiber.isCalledOff = true;
    ++fiber.awaited.changes;
}

bool IsCalledOff(const Fiber &fiber) { return fiber.isCalledOff; }

int WaitOnFiber(Fiber &fiber, std::span<pollfd> sockets, int timeoutMs) {
    for (pollfd &socket : sockets) socket.revents = 0;
    if (fiber.isCalledOff) return 0;
    Awaited &awaited = fiber.awaited;
    awaited.count = std::min(sockets.size(), kMostAwaited);
    std::copy_n(sockets.begin(), awaited.count, awaited.sockets.begin());
    awaited.deadlineMs = timeoutMs < 0 ? kNoDeadline : MonotonicMs() + static_cast<uint64_t>(timeoutMs);
    ++awaited.changes;
    fiber.found = 0;
    GoBack(fiber);
    std::copy_n(awaited.sockets.begin(), awaited.count, sockets.begin());
    awaited.count = 0;
    awaited.deadlineMs = 0;
    ++awaited.changes;
    return fiber.isCalledOff ? 0 : fiber.found;
}

} // namespace rtsptap
