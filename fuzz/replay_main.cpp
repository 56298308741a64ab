// Runs a target once on every file of a directory: its corpus as a test, without libFuzzer.
// The name printed last is the input that failed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
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
