#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "sdp/aac_config.h"
#include "sdp/h264_config.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

#include <cstring>

namespace rtsptap::test {
namespace {

struct StreamRelease {
    void operator()(RTSPStreamInfo *stream) const { ReleaseStream(stream); }
};

std::unique_ptr<RTSPStreamInfo, StreamRelease> StreamWith(const std::string &fmtp) {
    std::unique_ptr<RTSPStreamInfo, StreamRelease> stream(new RTSPStreamInfo);
    stream->description.fmtp = strdup(fmtp.c_str());
    return stream;
}

std::string Hex(const uint8_t *bytes, int32_t size) {
    std::string text;
    for (int32_t at = 0; at < size; ++at) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02x", static_cast<unsigned>(bytes[at]));
        text += pair;
    }
    return text;
}

std::string ParameterSetsOf(const char *fmtp) {
    const auto stream = StreamWith(fmtp);
    const RTSPStreamDescription &is = stream->description;
    const std::string verdict = ExtractSPSPPS(stream.get()) == 0 ? "both " : "refused ";
    return verdict + Hex(is.sps, is.spsSize) + "," + Hex(is.pps, is.ppsSize);
}

TEST(CodecConfig, ParameterSetsAreSortedByTheirKind) {
    const std::pair<const char *, const char *> kCases[] = {
        {"96 packetization-mode=1;sprop-parameter-sets=Z0IAHw,aM48gA==;a=1", "both 6742001f,68ce3c80"},
        {"96 SPROP-Parameter-Sets= Z0IAHw== , aM48gA profile-level-id=1", "both 6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=aM48gA==,Z0IAHw==,Z00A,BgUB,aO48gA==", "both 6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=Z0I\x01,,Z0IAHw==,aM48gA==,", "both 6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=Z0IAHw==", "refused 6742001f,"},
        {"96 x-sprop-parameter-sets=Z0IAHw==,aM48gA==", "refused ,"},
        {"", "refused ,"},
    };
    CapturedStdout out;
    for (const auto &[fmtp, sets] : kCases) EXPECT_EQ(ParameterSetsOf(fmtp), sets) << fmtp;
    EXPECT_TRUE(out.Text().starts_with("!!!INFO!!! : Decoded SPS Size : 4 \nDecoded SPS : 67 42 00 1f\n"
                                       "!!!INFO!!! : Decoded PPS Size : 4 \nDecoded PPS : 68 ce 3c 80\n"));
}

std::string AacConfigOf(const char *fmtp) {
    const auto stream = StreamWith(fmtp);
    const RTSPStreamDescription &is = stream->description;
    if (ExtractAACConfig(stream.get()) < 0 && is.aacConfig == nullptr && is.aacConfigSize == 0) return "refused";
    return Hex(is.aacConfig, is.aacConfigSize) + " type " + std::to_string(is.aacObjectType) + " " +
           std::to_string(is.aacSamplingRate) + "/" + std::to_string(is.aacChannels);
}

TEST(CodecConfig, TheAacConfigurationNamesTheCoreLayer) {
    const std::pair<const char *, const char *> kCases[] = {
        {"97 streamconfig=1190; CONFIG=1210", "1210 type 2 44100/2"},
        {"97 config=eb098800", "eb098800 type 2 24000/1"},     // parametric stereo over AAC-LC
        {"97 config=f94640", "f94640 type 42 48000/2"},        // escaped object type
        {"97 config=1780562210", "1780562210 type 2 44100/2"}, // rate in 24 bits
        {"97 config=11b8", "11b8 type 2 48000/8"},
        {"97 config=1180", "1180 type 2 48000/0"}, // channels listed as elements
        {"97 config=1690", "refused"},             // reserved rate
        {"97 config=1780000010", "refused"},       // rate 0
        {"97 config=178056", "refused"},           // cut inside the rate
        {"97 config=2b8A", "refused"},             // cut inside the extension
        {"97 config=121", "refused"},
        {"97 config=12g0", "refused"},
    };
    CapturedStdout out;
    for (const auto &[fmtp, config] : kCases) EXPECT_EQ(AacConfigOf(fmtp), config) << fmtp;
    EXPECT_TRUE(out.Text().starts_with("!!!INFO!!! : \n AAC Config Size and Data :: 2 , 1210 \n"));
}

} // namespace
} // namespace rtsptap::test
