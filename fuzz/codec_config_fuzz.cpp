// Hostile format parameters: parameter sets and configurations of all codecs from the same text, and what they are
// written in, base64 and hexadecimal digits.
#include "fuzz/fuzz_target.h"
#include "rtp/stream.h"
#include "sdp/codec_config.h"

#include <vector>

using namespace rtsptap;
using fuzz::Require;

// What is encoded decodes to the same; what is decoded fits, or nothing is written behind what it fits in.
static void CheckBase64(const uint8_t *data, std::size_t size) {
    char *encoded = nullptr;
    Require(Base64Encode(data, static_cast<int32_t>(size), &encoded) == 0);
    const HeapText text(encoded);
    std::vector<uint8_t> decoded(size);
    Require(Base64DecodeBinaryToBuffer(encoded, decoded.data(), static_cast<int32_t>(size)) ==
            static_cast<int32_t>(size));
    Require(std::equal(decoded.begin(), decoded.end(), data));
}

static void CheckDecoders(std::string_view text, int32_t capacity) {
    std::vector<uint8_t> bytes(static_cast<std::size_t>(capacity));
    Require(Base64DecodeBinaryToBuffer(text, bytes.data(), capacity) <= capacity);
    Require(ConvertAsciiToHex(text, bytes.data(), capacity) <= capacity);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    CheckBase64(data, size);
    const std::string_view text = fuzz::TextOf(data, size);
    for (const int32_t capacity : {data[0] % 8, static_cast<int32_t>(size)}) CheckDecoders(text, capacity);

    auto *const stream = new RTSPStreamInfo{};
    stream->description.fmtp = DuplicateText(text).release();
    for (int round = 0; round < 2; ++round) { // the second replaces the results of the first
        const RTSPStreamDescription &is = stream->description;
        if (ExtractSPSPPS(stream) == 0) Require(is.spsSize > 0 && is.ppsSize > 0);
        if (ExtractAACConfig(stream) == 0) Require(is.aacConfigSize > 1 && is.aacSamplingRate > 0);
        ExtractH265ParameterSets(*stream);
        ExtractConfigBytes(*stream);
        Require((stream->further.vps == nullptr) == (stream->further.vpsSize == 0));
        Require((stream->further.config == nullptr) == (stream->further.configSize == 0));
    }
    ReleaseStream(stream);
    return 0;
}
