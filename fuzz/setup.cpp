// Before the first input: the library's lines go nowhere, and sockets live in a network of this process's own where
// the system allows it, so that ports collide with nobody's.
#include "tests/support/own_network.h"

#include <cstdio>

// Sizes that no machine should give are refused, as a test of what follows; the rest makes inputs cheaper.
extern "C" const char *__asan_default_options() {
    return "max_allocation_size_mb=64:allocator_may_return_null=1:quarantine_size_mb=4:malloc_context_size=2";
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    rtsptap::test::EnterOwnNetwork();
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    static char lines[1 << 16];
    std::setvbuf(stdout, lines, _IOFBF, sizeof lines);
    return 0;
}
