// Requests and replies, header lists and challenges, without a session where none is needed.
#include "rtsp/client/exchange.h"
#include "rtsp/message/response.h"
#include "tests/support/session.h"

#include <future>
#include <regex>
#include <sstream>

namespace rtsptap::test {
namespace {

TEST(Base64, EncodesAndDecodesTheKnownTexts) { // RFC 4648, 10
    const std::pair<const char *, const char *> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF", "+/8="}};
    for (const auto &[plain, known] : cases) {
        const std::size_t size = std::strlen(plain);
        char *text = nullptr;
        EXPECT_EQ(Base64Encode(reinterpret_cast<const uint8_t *>(plain), static_cast<int32_t>(size), &text), 0);
        EXPECT_STREQ(HeapText(text).get(), known);
        std::string_view encoded = known;
        for (const bool padded : {true, false}) {
            if (!padded) encoded = encoded.substr(0, encoded.find('='));
            std::vector<uint8_t> decoded(size + 1, 0xEE); // exactly enough room, and a byte to be left alone
            EXPECT_EQ(Base64DecodeBinaryToBuffer(encoded, decoded.data(), static_cast<int32_t>(size)), size);
            EXPECT_EQ(std::memcmp(decoded.data(), plain, size), 0);
            EXPECT_EQ(decoded[size], 0xEE);
        }
    }
}

TEST(Base64, DecoderRefusesForeignTextAndLackOfRoom) {
    uint8_t room[3] = {};
    for (const char *text :
         {"Z", "Zm9vY", "Zm9=v", "Zm9 ", "Zm9\n", "====", "Zg===", "Zm9-", "Zm9v\x80", "Zm9vYg=="})
        EXPECT_EQ(Base64DecodeBinaryToBuffer(text, room, 3), -1) << text;
    EXPECT_EQ(Base64DecodeBinaryToBuffer("Zm9v", nullptr, 3), -1);
    EXPECT_EQ(Base64DecodeBinaryToBuffer("", room, -1), -1);
}

// RFC 2617, 3.5. The form without quality of protection: Authorization, below.
TEST(DefaultDigest, GivesTheKnownAnswerOrRefusesWhatItCannotCompute) {
    const std::tuple<const char *, const char *, int, const char *> cases[] = {
        {"MD5", "auth", 0, "6629fae49393a05397450978507c4ef1"},
        {"SHA-256", "", -1, ""},
        {"md5", "auth-int", -1, ""}};
    for (const auto &[algorithm, qop, result, expected] : cases) {
        char response[64] = "before";
        EXPECT_EQ(GenerateDigestResponse("dcd98b7102dd2f0e8b11d0f600bfb0c093", "0a4f113b", "Mufasa",
                                         "testrealm@host.com", "Circle Of Life", algorithm, "00000001", "GET", qop,
                                         "/dir/index.html", response),
                  result);
        EXPECT_STREQ(response, expected);
    }
}

ResponseMsgPtr Parse(const std::string &text, const Dialect &dialect = {}) {
    const RecvBufferPtr buffer(CreateRecvBuffer(static_cast<uint32_t>(text.size())));
    text.copy(buffer->data, text.size());
    buffer->length = static_cast<int32_t>(text.size());
    return ResponseMsgPtr(ClientParseMessage(buffer.get(), dialect));
}

TEST(Challenge, ReplacesWhatItNamesAndNothingElse) {
    for (const auto &row : Rows("challenges.txt")) {
        Authentication is;
        for (char *field : {is.type, is.realm, is.nonce}) CopyText(field, 128, "old");
        StoreChallenge(is, *Parse("RTSP/1.0 401 Unauthorized\r\n" + row[0] + "\r\n\r\n"));
        EXPECT_EQ(is.type + std::string(" ") + is.realm + " " + is.nonce, row.at(1)) << row[0];
        EXPECT_EQ(is.required, row[1].starts_with("old") ? 0u : 1u) << row[0];
    }
}

TEST(Authorization, GivesTheSchemeBackAndTheDigestOfTheMethod) {
    Authentication is;
    CopyText(is.type, "Basic");
    CopyText(is.realm, "testrealm@host.com");
    CopyText(is.nonce, "dcd98b7102dd2f0e8b11d0f600bfb0c093");
    CopyText(is.username, "Mufasa");
    CopyText(is.password, "Circle Of Life");
    const HeapText value(GenerateRTSPAuthenticationRequest(is, "rtsp://10.0.0.5:554/live", RTSP_TEARDOWN));
    EXPECT_STREQ(value.get(), "Basic username=\"Mufasa\", realm=\"testrealm@host.com\", "
                              "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", uri=\"rtsp://10.0.0.5:554/live\", "
                              "response=\"2efb17bb01d5be5aa7f6808adb0f1771\"");
}

// "name=value" of every entry, "!" behind a custom one.
std::string Entries(intptr_t list) {
    std::string entries;
    for (const RTSPHeaderStruct *node = FirstHeader(list); node != nullptr; node = node->next)
        if (node->headerName != nullptr)
            entries += std::string(node->headerName) + "=" + node->headerValue + (node->isCustom != 0 ? "! " : " ");
    return entries;
}

// Addition compares the first name always and the last of several never; all compare the case.
TEST(HeaderLists, AreEditedInPlace) {
    const HeaderList list({});
    const std::string handle = std::to_string(static_cast<int32_t>(static_cast<intptr_t>(list)));
    for (const auto &row : test::Rows("header_lists.txt")) {
        const char act = row.at(0)[0];
        const char *const name = row.at(1).c_str();
        const char *const value = row.at(2).c_str();
        CapturedStdout output;
        EXPECT_EQ(act == 'r'   ? RTSPRemoveHeaderFromList(list, name)
                  : act == 'm' ? RTSPModifyHeaderInList(list, name, value)
                               : RTSPAddHeaderToList(list, name, value, act == 'C' ? 7 : 0),
                  std::stoi(row.at(3)))
            << name << value;
        EXPECT_EQ(Entries(list), row.at(4) == "none" ? "" : row.at(4) + " ") << name << value;
        const std::string printed = std::regex_replace(row.at(5), std::regex("HANDLE"), handle);
        EXPECT_EQ(test::OnOneLine(output.Text()), printed == "nothing" ? "" : printed) << name << value;
    }
}

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

TEST(HeaderValidation, OnlyNamesOfTheTablePassWithoutTheCustomFlagAndEachOnlyWithItsMethods) {
    for (const auto &row : Rows("header_names.txt")) {
        EXPECT_NE(Refusal(row[0].c_str(), "1", RTSP_SETUP), row.size() > 2 ? "" : kUnflagged) << row[0];
        for (uint32_t method = 0; row.size() > 1 && method < 9; ++method)
            EXPECT_EQ(Refusal(row[0].c_str(), "no value is looked at", method, 1),
                      row[1].find(std::to_string(method)) != row[1].npos
                          ? ""
                          : " (" + row[0] + ") Header is invalid for this method\n\n");
    }
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

// The requests of a whole session, byte for byte: tests/rtsp/client/connection_test.cpp.
TEST(Request, HeaderNumber33IsRefusedAndTheRestIsSent) {
    const HeaderList list({});
    for (int i = 0; i < 31; ++i) RTSPAddHeaderToList(list, ("X" + std::to_string(i)).c_str(), "v", 1);
    const Session session(kUdp, CLIENT_INIT_STATE, {{"\r\nX28: v\r\nX29: v\r\n\r\n", Ok()}});
    CapturedStdout output;
    EXPECT_EQ(RTSPClientSendOptionsRequest(session, list, nullptr, nullptr), 0);
    EXPECT_EQ(CountOf(output.Text(), "Request Message already has maximum number of messages\n"), 1U);
}

TEST(Request, ReplacementThatFailsIsReportedWithUserAgentAndEndsTheHeaders) {
    const std::tuple<const char *, const char *, uint32_t> cases[] = {
        {"User-Agent", "Occurred while Adding ", 1},
        {"Range", "Occured while Adding user given 'Range' ", 2},
        {"Session", "Occured while Adding user given 'Session' ", 3},
    };
    for (const auto &[name, text, headers] : cases) {
        RTSPClient client;
        RTSPHeaderStruct withoutValue;
        withoutValue.headerName = const_cast<char *>(name);
        CapturedStdout output;
        const RequestMsgPtr request(GenerateRequestMessage(RequesterOf(client, -1), RTSP_PLAY,
                                                           reinterpret_cast<intptr_t>(&withoutValue), -1));
        ASSERT_TRUE(request);
        EXPECT_EQ(request->headerCount, headers) << name;
        EXPECT_EQ(withoutValue.isUsed, 0) << name;
        EXPECT_TRUE(output.Text().ends_with("!!!ERROR!!! : \tEXIT : GenerateRequestMessage :Problem " +
                                            std::string(text) + "Request Header User-Agent\n"))
            << output.Text();
    }
}

TEST(Request, SendingWaitsForAReportThatIsBeingSent) {
    Session session(kTcp, CLIENT_PLAYING_STATE, {{"OPTIONS ", Ok()}});
    pthread_mutex_t &sendLock = RecordOf(session).media.connection.sendLock;
    MutexLock(&sendLock);
    auto result = std::async(std::launch::async, [&] { return session.Options(); });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(session.server.Requests().size(), 4U);
    MutexUnlock(&sendLock);
    EXPECT_EQ(result.get(), 0);
}

// "version status reason cSeq [name=value]...", or what a refusal printed.
std::string Summary(const std::string &text, const Dialect &dialect = {}) {
    CapturedStdout output;
    const ResponseMsgPtr response = Parse(text, dialect);
    if (!response) return output.Text();
    std::string summary = std::string(response->version) + " " + std::to_string(response->statusCode) + " " +
                          response->reasonPhrase + " " + std::to_string(response->cSeq);
    for (uint32_t i = 0; i < response->headerCount; ++i)
        summary +=
            std::string(" [") + response->headers[i].headerName + "=" + response->headers[i].headerValue + "]";
    return summary;
}

TEST(Response, IsReadLineByLineOrRefusedWithItsReason) {
    for (const auto &row : Rows("responses.txt")) EXPECT_EQ(OnOneLine(Summary(Lines(row[0]))), row.at(1)) << row[0];
}

TEST(Response, IsReadAsARulePermitsWhichIsCounted) {
    for (const auto &row : Rows("tolerated_replies.txt")) {
        std::istringstream words(row[0]);
        int32_t number = 0;
        uint64_t uses = 0;
        std::string reply;
        std::getline(words >> number >> uses >> std::ws, reply);
        const Rule rule = FindRule(number);
        Dialect dialect;
        const std::string exact = OnOneLine(Summary(Lines(reply), dialect));
        EXPECT_EQ(exact != row.at(1), uses > 0) << row[0];
        EXPECT_EQ(dialect.Uses(rule), 0U) << row[0];
        dialect.Set(rule, true);
        EXPECT_EQ(OnOneLine(Summary(Lines(reply), dialect)), row.at(1)) << row[0];
        EXPECT_EQ(dialect.Uses(rule), uses) << row[0];
    }
}

TEST(Response, HeadersAreFoundIgnoringCaseTheFirstFirst) {
    const ResponseMsgPtr response = Parse("R 200 OK\nPublic: a\nPUBLIC: b\nPublicity: c");
    const CapturedStdout output;
    EXPECT_STREQ(GetResponseHeader(response.get(), "public"), "a");
    EXPECT_EQ(GetResponseHeader(response.get(), "Publi"), nullptr);
    EXPECT_EQ(GetResponseHeader(nullptr, "Public"), nullptr);
}

TEST(Response, AMissingSocketFailsAtOnce) {
    RTSPClient client;
    int32_t errCode = 7;
    CapturedStdout output;
    for (const int socket : {-1, 1 << 20}) {
        client.media.connection.socket = socket;
        EXPECT_EQ(ClientReadMessage(&client, 100, &errCode), nullptr);
    }
    EXPECT_EQ(errCode, 7);
    const std::string failed = "!!!ERROR!!! : \tEXIT : ClientReadMessage :Socket select call failed\n";
    EXPECT_EQ(output.Text(), failed + failed);
}

} // namespace
} // namespace rtsptap::test
