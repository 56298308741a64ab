// Hostile packets in which parameter sets and configurations are looked for. Input: the codec, then packets, each
// behind its size and a byte that tells marker, step of its number, what it is lengthened by and payload type.
#include "fuzz/fuzz_target.h"
#include "rtp/codec_bits.h"
#include "tests/support/described_client.h"

using namespace rtsptap;
using fuzz::Require;

namespace {

constexpr const char *kEncodings[] = {"H264/90000", "H265/90000", "mpeg4-generic/16000/1", "MP4A-LATM/48000/2",
                                      "MP4V-ES/90000"};

// What has been told is no longer than anything may be, of its kind, and stays.
void Check(const RTSPStreamInfo &stream, std::array<std::string, kConfigKinds> &before) {
    for (std::size_t i = 0; i < kConfigKinds; ++i) {
        const auto found = FindConfig(stream, ConfigKind{static_cast<uint8_t>(i)});
        const std::string now(found.begin(), found.end());
        Require(now.size() <= kLongestConfig && (before[i].empty() || now == before[i]));
        Require((stream.configSearch.missing & stream.configSearch.found) == 0);
        if (stream.codecType == RTP_CODEC_H264 && !now.empty())
            Require(NalTypeOfH264(found[0]) == (i == 1 ? 7 : 8));
        if (stream.codecType == RTSPTAP_CODEC_H265 && !now.empty())
            Require(NalTypeOfH265(found[0]) == 32 + static_cast<int32_t>(i));
        before[i] = now;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string encoding = kEncodings[input.U8() % std::size(kEncodings)];
    test::DescribedClient described("v=0\nm=video 0 RTP/AVP 96\na=rtpmap:96 " + encoding,
                                    {.dialect = RTSPTAP_DIALECT_TOLERANT});
    std::array<std::string, kConfigKinds> told;
    RTPHeader header = {};
    while (!input.IsEmpty()) {
        const uint8_t length = input.U8();
        const uint8_t flags = input.U8();
        header.marker = flags & 1U;
        header.sequenceNumber = static_cast<uint16_t>(header.sequenceNumber + 1 + (flags >> 1 & 3U));
        header.payloadType = (flags & 0x80) != 0 ? 97 : 96;
        const std::string_view text = input.Take(length);
        std::vector<uint8_t> payload(text.begin(), text.end()); // its end is watched
        payload.resize(payload.size() + 600U * (flags >> 3 & 7U), 0x11);
        described.Search(payload, header);
        Check(described.Stream(1), told);
    }
    return 0;
}
