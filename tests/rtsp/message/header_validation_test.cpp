#include "rtsp/message/header_list.h"
#include "rtsp/message/header_rules.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/rows.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace rtsptap;
using test::HeaderList;

namespace {

const std::string kPrefix = "!!!ERROR!!! : \tEXIT : ValidateHeaderList :";
const std::string kUnflagged = " Custom Header Added without adding Custom Flag while adding\n\n";

// What is printed, behind the prefix of every line, for a list of one header, which may lack name and value.
std::string Refusal(const char *name, const char *value, uint32_t method, uint8_t isCustom = 0) {
    RTSPHeaderStruct node;
    node.isCustom = isCustom;
    node.headerName = const_cast<char *>(name);
    node.headerValue = const_cast<char *>(value);
    CapturedStdout output;
    const int32_t result = ValidateHeaderList(reinterpret_cast<intptr_t>(&node), method);
    std::string text = output.Text();
    EXPECT_EQ(result, text.empty() ? 0 : -1);
    return text.starts_with(kPrefix) ? text.substr(kPrefix.size()) : text;
}

} // namespace

TEST(HeaderValidation, EachMethodCarriesItsHeadersOnly) {
    const struct {
        std::string name, methods; // the digits of those that may carry it, flagged or not
    } cases[] = {
        {"Blocksize", "1235678"}, {"Cache-Control", "2"},    {"Conference", "2"},
        {"Transport", "2"},       {"Content-Encoding", "1"}, {"Expires", "1"},
        {"Range", "35"},          {"Content-Language", "1"}, {"Scale", "3"},
        {"Speed", "012345678"},   {"X-Own", "012345678"},    {"If-Modified-Since", "12"},
        {"Session", "12345678"},  {"CSeq", "012345678"},
    };
    for (const auto &[name, methods] : cases)
        for (uint32_t method = 0; method < 9; ++method)
            EXPECT_EQ(Refusal(name.c_str(), "no value is looked at", method, 1),
                      methods.find(std::to_string(method)) != methods.npos
                          ? ""
                          : " (" + name + ") Header is invalid for this method\n\n");
}

TEST(HeaderValidation, OnlyThe32NamesAndParamPassWithoutTheCustomFlag) {
    std::istringstream names(
        "Accept Accept-Encoding Accept-Language Authorization Bandwidth Blocksize Cache-Control "
        "Conference Connection Content-Base Content-Encoding Content-Language Content-Length "
        "Content-Location Content-Type CSeq Date Expires From If-Modified-Since Last-Modified "
        "Proxy-Authenticate Proxy-Require Range Referer Require Scale Session Speed Transport "
        "User-Agent Via Param");
    for (std::string name; names >> name;) EXPECT_NE(Refusal(name.c_str(), "1", RTSP_SETUP), kUnflagged) << name;
    for (const char *name : {"cseq", "Public", "", "Params", static_cast<const char *>(nullptr)})
        EXPECT_EQ(Refusal(name, "1", RTSP_SETUP), kUnflagged);
    EXPECT_EQ(Refusal(nullptr, "1", RTSP_SETUP, 1), kUnflagged);
    for (uint32_t method = 0; method < 9; ++method) EXPECT_EQ(Refusal("Param", "1", method), "");
}

TEST(HeaderValidation, ValuesAreJudgedByNameAndMethod) {
    for (const auto &row : test::Rows("header_values.txt")) {
        const char *const value = row.at(1) == "null" ? nullptr : row.at(1).c_str();
        const std::string text = Refusal(row[0].c_str(), value, static_cast<uint32_t>(std::stoi(row.at(2))));
        EXPECT_EQ(text.empty() ? "fine" : test::OnOneLine(text), row.at(3)) << row[0];
    }
}

TEST(HeaderValidation, TheWholeListIsWalkedAndAnEmptyOneIsFine) {
    const HeaderList empty({}), good({{"Via", "a"}, {"Session", "c"}}), bad({{"Via", "a"}, {"X", "b"}});
    CapturedStdout output;
    EXPECT_EQ(ValidateHeaderList(empty, RTSP_OPTIONS), 0);
    EXPECT_EQ(ValidateHeaderList(good, RTSP_PLAY), 0);
    EXPECT_EQ(ValidateHeaderList(bad, RTSP_OPTIONS), -1);
    EXPECT_EQ(ValidateHeaderList(bad, 9), -1);
    EXPECT_EQ(ValidateHeaderList(0, RTSP_OPTIONS), -1);
    const std::string invalid = kPrefix + "Invalid headerlist or RTSP method\n";
    EXPECT_EQ(output.Text(), kPrefix + kUnflagged + invalid + invalid);
}
