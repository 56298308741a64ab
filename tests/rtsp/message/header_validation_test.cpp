#include "rtsp/message/header_slots.h"
#include "rtsp/message/header_validation.h"
#include "tests/support/captured_stdout.h"
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
    const struct {
        const char *name;
        const char *value;
        uint32_t method;
        const char *text; // empty: accepted
    } cases[] = {
        {"Accept", "text/plain, application/sdp", RTSP_PLAY, ""},
        {"Accept", "text/plain", RTSP_OPTIONS, "Accept Header's value (text/plain) is not valid \n"},
        {"Accept", nullptr, RTSP_OPTIONS, "Accept Header's value () is not valid \n"},
        {"Via", nullptr, RTSP_PAUSE, "Via header's value is NULL\n"},
        {"CSeq", "12", RTSP_OPTIONS, ""},
        {"CSeq", "1a", RTSP_OPTIONS, "CSeq header's value (1a) is Not Valid \n"},
        {"CSeq", "\xB2", RTSP_OPTIONS, "CSeq header's value (\xB2) is Not Valid \n"},
        {"CSeq", nullptr, RTSP_PAUSE, "CSeq header's (Method : 5) value is NULL\n"},
        // The first three characters of a bandwidth are not looked at.
        {"Bandwidth", "as:64", RTSP_PLAY, ""},
        {"Bandwidth", "4000", RTSP_PLAY, "Bandwidth header's (Method : 3) value is NULL\n"},
        {"Bandwidth", "40", RTSP_PLAY, "Bandwidth header's value (40) is Not Valid \n"},
        {"Bandwidth", "400k", RTSP_PLAY, "Bandwidth header's value (400k) is Not Valid \n"},
        // No method that may carry a block size looks at its value.
        {"Blocksize", "none", RTSP_SETUP, ""},
        {"Range", "npt=0-", RTSP_PLAY, ""},
        {"Range", "smpte=0", RTSP_PAUSE, ""},
        {"Range", "npt=", RTSP_PLAY, "Range header's (Method : 3) value (npt=) is not valid \n"},
        {"Range", " npt=0-", RTSP_PAUSE, "Range header's (Method : 5) value ( npt=0-) is not valid \n"},
        {"Scale", "-1.5x", RTSP_PLAY, ""},
        {"Scale", "0.0", RTSP_PLAY, "Scale header's (Method : 3) value is NULL\n"},
        {"Speed", "-", RTSP_PLAY, "Speed header's (Method : 3) value is NULL\n"},
        {"Speed", "fast", RTSP_PAUSE, ""},
        {"Content-Type", "text/parameters; x", RTSP_DESCRIBE, ""},
        {"Content-Type", "text", RTSP_DESCRIBE, "Content-Type header's (Method : 1) value (text) is Not Valid \n"},
        {"Content-Type", "text/plain", RTSP_SETUP, ""},
        {"If-Modified-Since", nullptr, RTSP_DESCRIBE, "If-Modified-Since header's (Method : 1) value is NULL\n"},
        {"If-Modified-Since", nullptr, RTSP_SETUP, "If-Modified-Since Header's (Method : 2) Value is NULL \n"},
        {"Conference", nullptr, RTSP_SETUP, "Conference Header's (Method : 2) Value is NULL \n"},
        {"Cache-Control", nullptr, RTSP_SETUP, "Cache-Control Header's (Method : 2) Value is NULL \n"},
        {"Cache-Control", "whatever", RTSP_SETUP, ""},
        {"Session", "Ab12", RTSP_SETUP, ""},
        {"Session", "Ab-12", RTSP_SETUP, "Session header's (Method : 2) value (Ab-12) is Not Valid \n"},
        {"Session", nullptr, RTSP_SETUP, "Session Header's (Method : 2) Value is NULL \n"},
        {"Session", "Ab-12", RTSP_PLAY, ""},
        {"Transport", "RTP/AVP;unicast;client_port=4000-4001", RTSP_SETUP, ""},
        {"Transport", "RTP/AVP/TCP;multicast;interleaved=0-1", RTSP_SETUP, ""},
        {"Transport", "RTP/AVP;unicast", RTSP_SETUP,
         "Transport header's (Method : 2) value (RTP/AVP;unicast) is Not Valid \n"},
        {"Transport", "unicast;client_port=1", RTSP_SETUP,
         "Transport header's (Method : 2) value (unicast;client_port=1) is Not Valid \n"},
    };
    for (const auto &[name, value, method, text] : cases) EXPECT_EQ(Refusal(name, value, method), text) << name;
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
