#include "sdp/codec_config.h"
#include "tests/support/described_client.h"
#include "tests/support/session.h"

#include <sstream>

namespace rtsptap::test {
namespace {

// A stream as the rows tell it; what is 0 or empty is left out.
struct Figures {
    template <typename Value> void operator()(const char *name, const Value &value) {
        std::ostringstream figure;
        figure << value;
        if (figure.str() != "0" && !figure.str().empty()) text += name + figure.str();
    }
    std::string text;
};

template <typename Description> void TellFigures(Figures &tell, const Description &is) {
    tell(" ", is.encodingName);
    tell(" codec ", is.codecType);
    tell(" clock ", is.clockRate);
    tell(" channels ", is.channels);
    tell(" bandwidth ", is.bandwidth);
    tell(" rate ", is.frameRate);
}

std::string Summary(const RTSPStreamInfo &stream) {
    const RTSPStreamDescription &is = stream.description;
    Figures tell{(is.isVideo != 0 ? "video " : "audio ") + std::to_string(is.payloadNumber)};
    TellFigures(tell, is);
    tell(" sps ", Hex(is.sps, is.spsSize));
    tell(" pps ", Hex(is.pps, is.ppsSize));
    tell(" aac ", Hex(is.aacConfig, is.aacConfigSize));
    tell(" type ", is.aacObjectType);
    tell(" at ", is.aacSamplingRate);
    tell(" for ", is.aacChannels);
    tell(" fmtp ", is.fmtp != nullptr ? is.fmtp : "");
    tell(" url ", stream.controlUrl ? stream.controlUrl.get() : "");
    return tell.text;
}

void TellConfigs(Figures &tell, const RTSPTapStreamDescription &is) {
    tell(" vps ", Hex(is.vps, is.vpsSize));
    tell(" sps ", Hex(is.sps, is.spsSize));
    tell(" pps ", Hex(is.pps, is.ppsSize));
    tell(" config ", Hex(is.config, is.configSize));
}

RTSPTapStreamDescription DescriptionOf(intptr_t client, int32_t number) {
    RTSPTapStreamDescription is = {};
    is.recordSize = sizeof is;
    EXPECT_EQ(RTSPTapGetStreamDescription(client, number, &is), 0);
    return is;
}

std::string Configs(const DescribedClient &described) {
    Figures tell;
    TellConfigs(tell, DescriptionOf(described.handle, 1));
    return tell.text;
}

// The same of the record that tells more.
std::string FullSummary(const DescribedClient &described, int32_t number, RTSPStreamInfo &stream) {
    const RTSPTapStreamDescription is = DescriptionOf(described.handle, number);
    EXPECT_EQ(is.codecType, stream.codecType);
    const char *const media[] = {"other ", "video ", "audio ", "application ", "text "};
    Figures tell{media[is.media] + std::to_string(is.payloadType)};
    TellFigures(tell, is);
    TellConfigs(tell, is);
    tell(" fmtp ", is.fmtp != nullptr ? is.fmtp : "");
    tell(" url ", is.controlUrl);
    tell(" like ", is.sameControlAs);
    for (uint8_t type = 0; type < 128; ++type)
        if (stream.payloadTypes.Has(type) && !RTSPStreamInfo{}.payloadTypes.Has(type)) tell(" takes ", int{type});
    return tell.text;
}

std::string Summaries(DescribedClient &described) {
    std::string text = std::to_string(described.result);
    for (int32_t number = 1; number <= described.client.media.streamCount; ++number)
        text += " [" + Summary(described.Stream(number)) + "]";
    return text;
}

// The result, the streams and what was printed behind the whole description.
std::string Reading(const std::string &sdp, const std::string &session) {
    CapturedStdout out;
    DescribedClient described(sdp, {.sessionName = session});
    const std::string printed = out.Text();
    const std::string rest = OnOneLine(printed.substr(printed.find(" \n\n") + 3));
    return Summaries(described) + (rest.empty() ? "" : " ") + rest;
}

TEST(SdpParser, MakesOfADescriptionWhatItsRowTells) {
    for (const auto &row : Rows("descriptions.txt"))
        EXPECT_EQ(Reading(Lines(row.at(1)), row[0]), row.at(2)) << row[1];
}

// The rules that were needed, each with its uses.
std::string RulesUsed(const Dialect &dialect) {
    std::string text;
    for (std::size_t i = 0; i < kRuleCount; ++i)
        if (const uint64_t uses = dialect.Uses(Rule{i}); uses != 0)
            text += (text.empty() ? "" : " ") + std::to_string(kRules[i].number) + "*" + std::to_string(uses);
    return text;
}

class SdpDialects : public testing::TestWithParam<const char *> {};

TEST_P(SdpDialects, MakeOfADescriptionWhatItsRowTells) {
    for (const auto &row : Rows(GetParam())) {
        const CapturedStdout out;
        const std::string sdp = Lines(row[0]);
        DescribedClient exact(sdp), tolerant(sdp, {RTSPTAP_DIALECT_TOLERANT, Rule::kNoControl});
        EXPECT_EQ(Summaries(exact), row.at(1)) << row[0];
        EXPECT_EQ(RulesUsed(exact.client.media.dialect), "") << row[0];
        std::string told = std::to_string(tolerant.result);
        for (int32_t number = 1; number <= tolerant.client.media.streamCount; ++number)
            told += " [" + FullSummary(tolerant, number, tolerant.Stream(number)) + "]";
        EXPECT_EQ(told, row.at(2)) << row[0];
        EXPECT_EQ(RulesUsed(tolerant.client.media.dialect), row.at(3)) << row[0];
    }
}

INSTANTIATE_TEST_SUITE_P(SdpParser, SdpDialects,
                         testing::Values("tolerated_descriptions.txt", "device_descriptions.txt"));

TEST(SdpParser, MakesOfADescriptionWithSomeRulesAloneWhatItsRowTells) {
    for (const auto &row : Rows("single_rules.txt")) {
        const CapturedStdout out;
        std::istringstream rules(row[0]);
        test::Reading as;
        for (int32_t number = 0; rules >> number;) as.with.push_back(FindRule(number));
        DescribedClient described(Lines(row.at(1)), as);
        EXPECT_EQ(Summaries(described), row.at(2)) << row[0] << " " << row[1];
        EXPECT_EQ(RulesUsed(described.client.media.dialect), row.at(3)) << row[0] << " " << row[1];
    }
}

// "p97:" of another payload type, "m:" marked, then the payload; "-" is lost.
void SearchAll(DescribedClient &described, const std::string &packets) {
    std::istringstream words(packets);
    RTPHeader header = {};
    header.sequenceNumber = 65534;
    for (std::string word; words >> word; ++header.sequenceNumber) {
        header.payloadType = word.starts_with("p97:") ? 97 : 96;
        header.marker = word.starts_with("m:");
        const std::string hex = Literal(word.substr(word.find(':') + 1));
        std::vector<uint8_t> payload(hex.size() / 2);
        ConvertAsciiToHex(hex, payload.data(), static_cast<int32_t>(payload.size()));
        if (word != "-") described.Search(payload, header);
    }
}

TEST(StreamConfig, IsFoundInPacketsAsItsRowTells) {
    for (const auto &row : Rows("stream_configs.txt")) {
        const CapturedStdout out;
        const std::string sdp = Lines("v=0|m=video 0 " + row[0] + "|a=rtpmap:96 " + row.at(1));
        DescribedClient exact(sdp), tolerant(sdp, {RTSPTAP_DIALECT_TOLERANT});
        for (DescribedClient *described : {&exact, &tolerant}) SearchAll(*described, row.at(2));
        EXPECT_EQ(Configs(tolerant), row.at(3)) << row[1] << " " << row[2];
        EXPECT_EQ(exact.Stream(1).configSearch.found, 0) << row[2];
    }
}

TEST(StreamConfig, OfAStreamIsThereWhenItsPacketIs) {
    const CapturedStdout out;
    Client client;
    EXPECT_EQ(RTSPTapSetOption(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT), 0);
    const uint16_t port = UdpPeer().Port();
    EXPECT_EQ(StartThirdPartyClient(client, 1, RTP_CODEC_H264, port, 1 << 20, 0, 0, 0, 0, 0, 0), 0);
    const RTSPTapStreamDescription before = DescriptionOf(client, 1);
    UdpPeer().SendTo(port, Bytes(RtpPacket{.sequenceNumber = 5, .payload = "gB\x01\x02"}));
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_H264, 1), Numbers(5, 5));
    const RTSPTapStreamDescription after = DescriptionOf(client, 1);
    EXPECT_EQ(Hex(before.sps, before.spsSize) + " " + Hex(after.sps, after.spsSize), " 67420102");
}

std::string OrDash(const char *url) { return url != nullptr ? url : "-"; }

TEST(SdpParser, ControlUrlsLeadWhereTheirRowsTell) {
    for (const auto &row : Rows("control_urls.txt")) {
        const CapturedStdout out;
        DescribedClient described("v=0\n" + Lines(row.at(2)), {RTSPTAP_DIALECT_TOLERANT, kNoRule, Literal(row[1]), row[0]});
        std::string urls = OrDash(described.client.aggregateUrl);
        for (int32_t number = 1; number <= described.client.media.streamCount; ++number)
            urls += " " + OrDash(described.Stream(number).controlUrl.get());
        EXPECT_EQ(urls, row.at(3)) << row[1] << " " << row[2];
        EXPECT_EQ(RulesUsed(described.client.media.dialect), row.at(4)) << row[1] << " " << row[2];
    }
}

TEST(SdpParser, TheRecordOfAStreamIsFilledAsFarAsItsSizeSays) {
    const CapturedStdout out;
    const DescribedClient described("v=0\nm=audio 0 RTP/AVP 0\n");
    RTSPTapStreamDescription is = {};
    is.recordSize = offsetof(RTSPTapStreamDescription, codecType);
    is.codecType = 77;
    EXPECT_EQ(RTSPTapGetStreamDescription(described.handle, 1, &is), 0);
    EXPECT_EQ(std::to_string(is.media) + " " + std::to_string(is.codecType), "2 77");
    for (const int32_t number : {0, 2, -1})
        EXPECT_EQ(RTSPTapGetStreamDescription(described.handle, number, &is), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(RTSPTapGetStreamDescription(0, 1, &is), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(RTSPTapGetStreamDescription(described.handle, 1, nullptr), RTSP_INVALID_ARGUMENT);
    is.recordSize = 3;
    EXPECT_EQ(RTSPTapGetStreamDescription(described.handle, 1, &is), RTSP_INVALID_ARGUMENT);
}

TEST(Codecs, FurtherOnesAreThereForAClientThatAskedForThem) {
    const CapturedStdout out;
    Client exact, tolerant;
    EXPECT_EQ(RTSPTapSetOption(tolerant, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT), 0);
    for (const intptr_t client : {intptr_t{exact}, intptr_t{tolerant}}) {
        const uint16_t port = UdpPeer().Port();
        EXPECT_EQ(StartThirdPartyClient(client, 1, RTSPTAP_CODEC_H265, port, 1 << 20, 0, 0, 0, 0, 0, 0),
                  client == tolerant ? 0 : RTSP_INVALID_ARGUMENT);
        EXPECT_EQ(client == tolerant ? 0 : CreateRTPStream(client, RTSPTAP_CODEC_H265, port, 1), 0);
        UdpPeer().SendTo(port, Bytes(RtpPacket{.payloadType = 96, .sequenceNumber = 5}));
    }
    EXPECT_EQ(TakeSequenceNumbers(tolerant, RTSPTAP_CODEC_H265, 1), Numbers(5, 5));
    EXPECT_EQ(RTPClientGetNbOfPktInBuffer(tolerant, RTSPTAP_CODEC_H265), 0);
    RTPStreamData *packet = nullptr;
    EXPECT_EQ(RTPClientGetRTPStreamData(exact, &packet, RTSPTAP_CODEC_H265), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(RTPClientGetNbOfPktInBuffer(exact, RTSPTAP_CODEC_H265), RTSP_INVALID_ARGUMENT);
}

TEST(SdpParser, EveryLineIsKeptInTheListOfItsLevel) {
    CapturedStdout out;
    DescribedClient described("\nv=0\rs=a=b\r\n\r\nz\nm=audio\nx=1\nm=\n");
    std::string kept;
    for (const SDPField *list :
         {described.client.sdpFieldList, described.Stream(1).sdpFieldList, described.Stream(2).sdpFieldList}) {
        for (; list != nullptr; list = list->next) kept += std::string(list->name) + "=" + list->value + ",";
        kept += ";";
    }
    EXPECT_EQ(kept, "v=0,s=a=b,z=,;m=audio,x=1,;m=,;");
    EXPECT_NE(out.Text().find("!!!ERROR!!! : \t\nENTIRE SDP : \nv=0\r"), std::string::npos);
}

TEST(SdpParser, DescriptionsAsDevicesWriteThemAreUnderstood) {
    int32_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(TEST_DATA_DIR)) {
        if (entry.path().extension() != ".sdp") continue;
        const auto read = [&](const char *extension) {
            return ContentOf(std::filesystem::path(entry).replace_extension(extension));
        };
        const CapturedStdout out;
        DescribedClient described(read(".sdp"));
        EXPECT_EQ(Summaries(described) + "\n", read(".streams")) << entry;
        ++files;
    }
    EXPECT_EQ(files, 5);
}

} // namespace
} // namespace rtsptap::test
