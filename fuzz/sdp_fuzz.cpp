// A hostile session description: parse it, ask for every line of every stream, release it all.
#include "fuzz/fuzz_target.h"
#include "tests/support/described_client.h"

using rtsptap::test::DescribedClient;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string_view input = rtsptap::fuzz::TextOf(data, size);
    DescribedClient described(input, input.substr(0, 80));
    const int32_t streams = std::min(RTSPClientGetNbStreams(described.handle), 3);
    for (int32_t stream = 0; stream <= streams; ++stream) {
        const RTSPStreamDescription *const is = RTSPClientGetSDPInfo(described.handle, stream);
        rtsptap::fuzz::Require((is != nullptr) == (stream > 0));
        for (const char *name : {"a", "a=fmtp", "m="}) {
            char value[64];
            uint32_t valueSize = sizeof value;
            RTSPClientGetSDPFieldInfo(described.handle, stream, name, value, &valueSize);
        }
    }
    return 0;
}
