// Before the first input: the library's lines go nowhere, and sockets live in a network of this process's own where
// the system allows it, so that ports collide with nobody's.
#include "tests/support/process.h"

#include <iterator>

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

#ifdef REPLAY
// Runs a target once on every file of a directory: its corpus as a test, without libFuzzer. The name printed last
// is the input that failed.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
    if (argc != 2 || LLVMFuzzerInitialize(&argc, &argv) != 0) return 2;
    int inputs = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++inputs;
    }
    return inputs > 0 ? 0 : 1;
}
#endif
