// A hostile session description, in each dialect: parse it, ask for every line of every stream, release it all.
#include "fuzz/fuzz_target.h"
#include "tests/support/described_client.h"

using rtsptap::test::DescribedClient;

static void Read(std::string_view input, RTSPTapDialect dialect) {
    DescribedClient described(input, {.dialect = dialect,
                                      .contentBase = input.substr(0, input.find_first_of("\r\n")),
                                      .sessionName = input.substr(0, 80)});
    const int32_t streams = std::min(RTSPClientGetNbStreams(described.handle), 3);
    for (int32_t stream = 0; stream <= streams; ++stream) {
        const RTSPStreamDescription *const is = RTSPClientGetSDPInfo(described.handle, stream);
        rtsptap::fuzz::Require((is != nullptr) == (stream > 0));
        RTSPTapStreamDescription full = {};
        full.recordSize = sizeof full;
        const bool told = RTSPTapGetStreamDescription(described.handle, stream, &full) == 0;
        rtsptap::fuzz::Require(told == (stream > 0));
        if (told)
            rtsptap::fuzz::Require(full.encodingName != nullptr && full.controlUrl != nullptr &&
                                   full.payloadType >= -1 && full.payloadType < 128 &&
                                   (full.fmtp == nullptr || is->fmtp != nullptr));
        for (const char *name : {"a", "a=fmtp", "m="}) {
            char value[64];
            uint32_t valueSize = sizeof value;
            RTSPClientGetSDPFieldInfo(described.handle, stream, name, value, &valueSize);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string_view input = rtsptap::fuzz::TextOf(data, size);
    for (const RTSPTapDialect dialect : {RTSPTAP_DIALECT_EXACT, RTSPTAP_DIALECT_TOLERANT}) Read(input, dialect);
    return 0;
}
