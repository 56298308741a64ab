// What can be set of a client by number, and the rules of its dialect.
#include "rtsp/client/options.h"
#include "tests/support/session.h"

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace rtsptap::test {
namespace {

std::string OptionText(intptr_t client, int32_t option) {
    char text[256] = "?";
    uint32_t size = sizeof text;
    EXPECT_EQ(RTSPTapGetOptionText(client, option, text, &size), 0);
    EXPECT_EQ(size, strlen(text) + 1);
    return text;
}

TEST(Options, EachHasItsDefaultAndTakesWhatItsRangeSays) {
    const CapturedStdout output;
    const Client client;
    for (const Option &option : Options()) {
        const int32_t number = option.number;
        if (option.text != nullptr) {
            EXPECT_EQ(OptionText(client, number), option.textByDefault) << number;
            const std::string longest(static_cast<std::size_t>(option.highest), 'x');
            EXPECT_EQ(RTSPTapSetOptionText(client, number, longest.c_str()), 0) << number;
            EXPECT_EQ(RTSPTapSetOptionText(client, number, (longest + "x").c_str()), RTSPTAP_OUT_OF_RANGE);
            EXPECT_EQ(OptionText(client, number), longest);
            uint32_t size = static_cast<uint32_t>(longest.size());
            EXPECT_EQ(RTSPTapGetOptionText(client, number, std::string(size, '?').data(), &size),
                      RTSP_SMALL_BUFFER);
            EXPECT_EQ(size, longest.size() + 1);
            continue;
        }
        int64_t value = -1;
        EXPECT_EQ(RTSPTapGetOption(client, number, &value), 0);
        EXPECT_EQ(value, option.byDefault) << number;
        for (const int64_t good : {option.lowest, option.highest}) {
            EXPECT_EQ(RTSPTapSetOption(client, number, good), 0) << number;
            for (const int64_t bad : {option.lowest - 1, option.highest + 1})
                EXPECT_EQ(RTSPTapSetOption(client, number, bad), RTSPTAP_OUT_OF_RANGE) << number;
            EXPECT_EQ(RTSPTapGetOption(client, number, &value), 0);
            EXPECT_EQ(value, good) << number;
        }
    }
}

TEST(Options, RulesFollowTheDialectUntilTheyAreSetAloneAndWhatTheyForgaveIsTold) {
    Session session(kUdp, CLIENT_INIT_STATE, {{"OPTIONS ", SendBytes("RTSP/1.0 200\r\nCSeq:1\r\n\r\n")}});
    const Client other;
    RTSPTapRule rule = {};
    rule.recordSize = sizeof rule;
    int32_t isOn = -1;
    for (int32_t i = 0; RTSPTapShowRule(i, &rule) == 0; ++i) {
        EXPECT_EQ(RTSPTapGetRule(other, rule.number, &isOn) + isOn, rule.isExact);
        EXPECT_EQ(RTSPTapSetOption(other, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT), 0);
        EXPECT_EQ(RTSPTapGetRule(other, rule.number, &isOn) + isOn, rule.isTolerant);
        EXPECT_EQ(RTSPTapSetRule(other, rule.number, 0), 0);
        EXPECT_EQ(RTSPTapGetRule(other, rule.number, &isOn) + isOn, 0);
        EXPECT_EQ(RTSPTapSetOption(other, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_EXACT), 0);
    }
    rule.recordSize = offsetof(RTSPTapRule, name);
    rule.name = "kept";
    EXPECT_EQ(RTSPTapShowRule(0, &rule), 0);
    EXPECT_EQ(std::to_string(rule.number) + rule.name, "101kept");

    EXPECT_EQ(session.Options(), RTSP_BAD_RESPONSE); // exact
    ScriptedServer again({{"\r\nUser-Agent: mine\r\n", SendBytes("RTSP/1.0 200\r\nCSeq:1\r\n\r\n")}});
    const Client tolerant;
    EXPECT_EQ(RTSPTapSetOption(tolerant, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT), 0);
    EXPECT_EQ(RTSPTapSetOptionText(tolerant, RTSPTAP_OPTION_USER_AGENT, "mine"), 0);
    EXPECT_EQ(RTSPClientConnect(tolerant, "127.0.0.1", again.Port(), "live", kUdp, 0), 0);
    EXPECT_EQ(RTSPClientSendOptionsRequest(tolerant, 0, nullptr, nullptr), 0);
    for (const int32_t number : {101, 102}) {
        uint64_t count = 0;
        EXPECT_EQ(RTSPTapGetRuleUse(tolerant, number, &count) + static_cast<int32_t>(count), 1) << number;
    }
}

std::string TextOf(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(Options, EveryCodeOfTheHeadersHasAMeaningOfItsOwnAndTheVersionIsTheProjects) {
    const std::string headers =
        TextOf(PROJECT_DIR "/include/rtsptap.h") + TextOf(PROJECT_DIR "/include/rtsptap_extended.h");
    const std::regex codes(R"(RTSP(TAP)?_\w+ = (-\d+))");
    std::set<std::string> texts = {RTSPTapResultText(1), RTSPTapResultText(-75)};
    std::size_t count = texts.size();
    for (std::sregex_iterator at(headers.begin(), headers.end(), codes), end; at != end; ++at, ++count)
        EXPECT_TRUE(texts.insert(RTSPTapResultText(std::stoi((*at)[2]))).second) << (*at)[0];
    EXPECT_GT(count, 30U);
    const int32_t version = RTSPTapVersion();
    EXPECT_EQ(std::to_string(version / 1000000) + "." + std::to_string(version / 1000 % 1000) + "." +
                  std::to_string(version % 1000),
              PROJECT_VERSION);
}

} // namespace
} // namespace rtsptap::test
