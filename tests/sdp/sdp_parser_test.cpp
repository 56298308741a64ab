#include "tests/support/captured_stdout.h"
#include "tests/support/described_client.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace rtsptap::test {
namespace {

const std::string kHead = "v=0\r\no=- 1 1 IN IP4 10.0.0.2\r\ns=x\r\nt=0 0\r\n";
const std::string kVideo = kHead + "m=video 0 RTP/AVP 96\r\n";
const std::string kAudio = kHead + "m=audio 0 RTP/AVP 97\r\n";
const std::string kLast = "\r\nm=audio 0 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000"; // comes unless the reading ended

// A client and what parsing its description printed.
struct Parsing {
    explicit Parsing(const std::string &sdp, std::string_view sessionName = "live") : client(sdp, sessionName) {}
    CapturedStdout out;
    DescribedClient client;
    const std::string printed = out.Text();
};

// One stream in a line, for comparison with descriptions as devices write them.
std::string Summary(const RTSPStreamInfo &stream) {
    const RTSPStreamDescription &is = stream.description;
    std::ostringstream text;
    text << (is.isVideo != 0 ? "video " : "audio ") << is.payloadNumber << ' ' << is.encodingName << ' '
         << is.codecType << ' ' << is.clockRate << ' ' << is.channels << " b" << is.bandwidth << " f"
         << is.frameRate << " sps" << is.spsSize << " pps" << is.ppsSize << " aac" << is.aacConfigSize << ' '
         << stream.controlUrl;
    return text.str();
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

TEST(SdpParser, ALineThatCannotStandEndsTheReadingWithItsCode) {
    const std::string fail = "EXIT : ParseReceivedSDP :", tab = "\tEXIT : ParseReceivedSDP :";
    const std::string invalid = tab + "Invalid SDP received\n";
    const std::string network = tab + "Network Type not supported\n";
    const std::string bandwidth = tab + "Invalid bandwidth value in SDP\n";
    const std::string number = fail + "Problem in converting Ascii to Integer value \n";
    const std::string map = fail + "Invalid rtpmap value in SDP \n";
    const std::string name = fail + "Problem in copying Encoding Name \n";
    const std::string rate = fail + "Invalid SDP framerate\n";
    const std::string url = fail + "Invalid streamURL field \n";
    const std::string longUrl = tab + " Too long stream URI received from Server \n";
    const struct {
        std::string start, line;
        int32_t result;
        std::string text; // printed last; empty: the reading goes on to kLast
    } kCases[] = {
        {"", "o=- 1 1 IN IP4 10.0.0.2\r\nv=0", -1, invalid},
        {"\n", "v", 0, ""},
        {kHead, "c=IN IP6 ::1", -1, network},
        {"v=0\n", "t=0 -1", -1, tab + "Invalid Session Time found in SDP\n"},
        {"v=0\n", "t=-1\nb=AS:0", 0, ""},
        {kVideo, "c=IN IP6 ::1\nt=0 -1\nq\nb=AS:50\na=fmtp\na=rtcp-fb:96 nack", 0, ""},
        {kVideo, "b=AS:0", -1, bandwidth},
        {kVideo, "b=:5", -73, number},
        {kVideo, "b=TIAS:64000", -73, number}, // Kept
        {kVideo, "a=rtpmap", 0, map},
        {kVideo, "a=rtpmap/96:96 H264", 0, map},
        {kVideo, "a=rtpmap:0 " + std::string(32, 'n') + "/90000/x", 0, ""},
        {kVideo, "a=rtpmap:0 " + std::string(33, 'n') + "/90000", -1, name},
        {kVideo, "a=rtpmap:96 H264/0", -73, number},
        {kAudio, "a=rtpmap:97 L16/44100/x", -73, number},
        {kVideo, "a=framerate:0.0\na=framerate:nan\na=framerate:-inf\na=framerate:0x1e\na=framerate:1e400", 0, ""},
        {kVideo, "a=framerate:0", 0, rate},
        {kVideo, "a=control", 0, url},
        {kVideo, "a=control:" + std::string(257, 'u'), -1, longUrl},
    };
    for (const auto &row : kCases) {
        const Parsing parsing(row.start + row.line + kLast);
        const int32_t streams = (row.start.find("m=") != std::string::npos) + row.text.empty();
        EXPECT_EQ(parsing.client.result, row.result) << row.line;
        EXPECT_EQ(parsing.client.client.streamCount, streams) << row.line;
        EXPECT_TRUE(row.text.empty() ? parsing.printed.find("EXIT") == std::string::npos
                                     : parsing.printed.ends_with("!!!ERROR!!! : " + row.text))
            << row.line << " printed " << parsing.printed;
    }
}

TEST(SdpParser, EveryLineIsKeptInTheListOfItsLevel) {
    Parsing parsing("\nv=0\rs=a=b\r\n\r\nz\nm=audio\nx=1\nm=\n");
    std::string kept;
    const auto keep = [&kept](const SDPField *list) {
        for (; list != nullptr; list = list->next) kept += std::string(list->name) + "=" + list->value + ",";
        kept += ";";
    };
    keep(parsing.client.client.sdpFieldList);
    keep(parsing.client.Stream(1).sdpFieldList);
    keep(parsing.client.Stream(2).sdpFieldList);
    EXPECT_EQ(kept, "v=0,s=a=b,z=,;m=audio,x=1,;m=,;");
    EXPECT_NE(parsing.printed.find("!!!ERROR!!! : \t\nENTIRE SDP : \nv=0\r"), std::string::npos);
}

TEST(SdpParser, TheControlAttributeBecomesTheStreamsUrl) {
    const std::string absolute = "rtsp://h/" + std::string(247, 'u'); // 256 characters
    const struct {
        std::string control, sessionName, url;
    } kCases[] = {
        {"trackID=1", "live", "rtsp://10.0.0.2:554/live/trackID=1"},
        {"rtsp://other/a", "rtsp://other/a", ""},
        {absolute, "live", absolute},
        {std::string(256, 'u'), "live", ("rtsp://10.0.0.2:554/live/" + std::string(256, 'u')).substr(0, 255)},
    };
    for (const auto &row : kCases) {
        Parsing parsing(kVideo + "a=control:" + row.control, row.sessionName);
        EXPECT_EQ(parsing.client.Stream(1).controlUrl, row.url);
        EXPECT_TRUE(
            parsing.printed.ends_with("!!!ERROR!!! : \n\nINFOINFOINFO : STREAM URI : " + row.url + " \n\n"));
    }
}

TEST(SdpParser, TheFirstMarkInTestOrderDecidesWhatAnAttributeIs) {
    Parsing parsing(kVideo + "a=control-framerate-fmtp-rtpmap:96 H264/90000\na=control-fmtp:96 framerate:5\n"
                             "a=control-framerate:25");
    EXPECT_EQ(parsing.client.Stream(1).codecType, RTP_CODEC_H264);
    EXPECT_STREQ(parsing.client.Stream(1).description.fmtp, "96 framerate:5");
    EXPECT_EQ(parsing.client.Stream(1).description.frameRate, 25.0);
    EXPECT_STREQ(parsing.client.Stream(1).controlUrl, "");
}

TEST(SdpParser, TheLastOfRepeatedAttributesWinsButAnUnknownCodecDoesNot) {
    Parsing parsing(kVideo + "a=rtpmap:96 H264/90000\na=fmtp:96 sprop-parameter-sets=Z0IAH5WoFAFuQA==,aM48gA==\n"
                             "a=rtpmap:97 rtx/8000\na=fmtp:97 apt=96");
    EXPECT_STREQ(parsing.client.Stream(1).description.fmtp, "97 apt=96");
    EXPECT_EQ(Summary(parsing.client.Stream(1)), "video 97 rtx 100 8000 0 b0 f0 sps10 pps4 aac0 ");
    EXPECT_TRUE(parsing.printed.ends_with("!!!ERROR!!! : \tEXIT : ParseReceivedSDP :Unable to extract SPS and PPS "
                                          "from SDP\n"));
}

TEST(SdpParser, KeptFormatParametersAheadOfTheCodecConfigureNothing) {
    Parsing parsing(kVideo + "a=fmtp:96 sprop-parameter-sets=Z0IAH5WoFAFuQA==,aM48gA==\na=rtpmap:96 H264/90000");
    EXPECT_NE(parsing.client.Stream(1).description.fmtp, nullptr);
    EXPECT_EQ(parsing.client.Stream(1).description.sps, nullptr);
}

TEST(SdpParser, ParameterSetsAreSortedByTheirKind) {
    const std::pair<const char *, const char *> kCases[] = {
        {"96 packetization-mode=1;sprop-parameter-sets=Z0IAHw,aM48gA==;a=1", "6742001f,68ce3c80"},
        {"96 SPROP-Parameter-Sets= Z0IAHw== , aM48gA profile-level-id=1", "6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=aM48gA==,Z0IAHw==,Z00A,BgUB,aO48gA==", "6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=Z0I\x01,,Z0IAHw==,aM48gA==,", "6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=Z0IAHw==", "6742001f,"},
        {"96 x-sprop-parameter-sets=Z0IAHw==,aM48gA==", "6742001f,68ce3c80"},
        {"96 x-sprop-parameter-sets=Z01,aM48;sprop-parameter-sets=\"Z0IAHw==\",\"aM48gA==\"", "6742001f,68ce3c80"},
        {"96 sprop-parameter-sets=AAAAAWdCAB8=,AAABaM48gA==,AAA=,AAAB", "6742001f,68ce3c80"},
        {"", ","},
    };
    for (const auto &[fmtp, sets] : kCases) {
        Parsing parsing(kVideo + "a=rtpmap:96 H264/90000\na=fmtp:" + fmtp);
        const RTSPStreamDescription &is = parsing.client.Stream(1).description;
        EXPECT_EQ(Hex(is.sps, is.spsSize) + "," + Hex(is.pps, is.ppsSize), sets) << fmtp;
        EXPECT_TRUE(parsing.printed.ends_with(is.pps != nullptr ? "\nDecoded PPS : 68 ce 3c 80\n"
                                                                : "Unable to extract SPS and PPS from SDP\n"));
        EXPECT_EQ(parsing.printed.find("!!!INFO!!! : Decoded SPS Size : 4 \nDecoded SPS : 67 42 00 1f\n") !=
                      std::string::npos,
                  is.sps != nullptr);
    }
}

TEST(SdpParser, TheAacConfigurationNamesTheCoreLayer) {
    const std::pair<const char *, const char *> kCases[] = {
        {"97 streamconfig=1190; CONFIG=\"1210\"", "1210 type 2 44100/2"},
        {"97 config=eb098800", "eb098800 type 2 24000/1"},     // parametric stereo over AAC-LC
        {"97 config=f94640", "f94640 type 42 48000/2"},        // escaped object type
        {"97 config=1780562210", "1780562210 type 2 44100/2"}, // rate in 24 bits
        {"97 config=11b8", "11b8 type 2 48000/8"},
        {"97 config=1180", "1180 type 2 48000/0"}, // channels listed as elements
        {"97 config=1690", " type 0 0/0"},         // reserved rate
        {"97 config=1780000010", " type 0 0/0"},   // rate 0
        {"97 config=178056", " type 0 0/0"},       // cut inside the rate
        {"97 config=2b8A", " type 0 0/0"},         // cut inside the extension
        {"97 config=121", " type 0 0/0"},
        {"97 config=12g0", " type 0 0/0"},
    };
    for (const auto &[fmtp, config] : kCases) {
        Parsing parsing(kAudio + "a=rtpmap:97 mpeg4-generic/44100\na=fmtp:" + fmtp);
        const RTSPStreamDescription &is = parsing.client.Stream(1).description;
        EXPECT_EQ(Hex(is.aacConfig, is.aacConfigSize) + " type " + std::to_string(is.aacObjectType) + " " +
                      std::to_string(is.aacSamplingRate) + "/" + std::to_string(is.aacChannels),
                  config)
            << fmtp;
        EXPECT_EQ(parsing.printed.ends_with("!!!INFO!!! : \n AAC Config Size and Data :: 2 , " +
                                            std::string(config, 4) + " \n"),
                  is.aacConfigSize == 2);
    }
}

TEST(SdpParser, NamesOfCodecsAreComparedAsEachCodecWants) {
    const std::pair<const char *, int32_t> kCases[] = {{"h264", 0},
                                                       {"MPEG4-Generic", RTP_CODEC_MPEG4_GENERIC},
                                                       {"AAL2-G726-40", RTP_CODEC_G726},
                                                       {"g726-32", 0},
                                                       {"L16x", 0}};
    for (const auto &[name, codecType] : kCases) {
        Parsing parsing(kAudio + "a=rtpmap:97 " + name + "/8000");
        EXPECT_EQ(parsing.client.Stream(1).codecType, codecType) << name;
    }
}

TEST(SdpParser, DescriptionsAsDevicesWriteThemAreUnderstood) {
    const auto read = [](const std::filesystem::path &path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    int32_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(TEST_DATA_DIR)) {
        std::filesystem::path path = entry.path();
        if (path.extension() != ".sdp") continue;
        Parsing parsing(read(path));
        std::string streams;
        for (int32_t number = 1; number <= parsing.client.client.streamCount; ++number)
            streams += Summary(parsing.client.Stream(number)) + "\n";
        EXPECT_EQ(parsing.client.result, 0) << path;
        EXPECT_EQ(streams, read(path.replace_extension(".streams"))) << path;
        ++files;
    }
    EXPECT_EQ(files, 5);
}

} // namespace
} // namespace rtsptap::test
