// Passwords: digests, challenges answered by themselves, and what must not get out.
#include "tests/support/methods.h"
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

std::string Digest(RTSPTapDigest of, uint32_t size = 65) {
    of.recordSize = sizeof of;
    std::string response(80, '#');
    const int32_t result = RTSPTapComputeDigest(&of, response.data(), size);
    return result == 0 ? response.c_str() : std::to_string(result);
}

TEST(Digest, IsWhatTheStandardsComputeAndNothingForWhatIsUnknown) {
    const char *const nonce = "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v";
    const char *const own = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ", *const realm = "http-auth@example.org";
    RTSPTapDigest of = {0,   "md5",      "Mufasa", realm, "Circle of Life",  nonce,
                        own, "00000001", "auth",   "GET", "/dir/index.html", "unused"};
    for (const auto &row : Rows("digests.txt")) {
        const std::string algorithm = row[0].substr(0, row[0].find(' ')), qop = row[0].substr(row[0].find(' ') + 1);
        of.algorithm = algorithm == "none" ? nullptr : algorithm.c_str();
        of.qop = qop == "none" ? "" : qop.c_str();
        EXPECT_EQ(Digest(of), row.at(1)) << row[0];
    }
    of.algorithm = nullptr;
    of.qop = "";
    EXPECT_EQ(Digest(of, 32), std::to_string(RTSP_SMALL_BUFFER));
    of.recordSize = 3;
    char response[2] = "x";
    EXPECT_EQ(RTSPTapComputeDigest(&of, response, sizeof response), RTSP_INVALID_ARGUMENT);
    EXPECT_STREQ(response, "");
}

constexpr char kUser[] = "u\"\\";
constexpr char kPassword[] = "p p";

Reply Unauthorized(const std::string &challenges) {
    return SendBytes("RTSP/1.0 401 Unauthorized\r\nCSeq: 1\r\nWWW-Authenticate: " +
                     Lines(challenges, "\r\nWWW-Authenticate: ") + "\r\n\r\n");
}

std::string Between(const std::string &text, const std::string &before, const std::string &after) {
    const std::size_t at = text.find(before);
    if (at == text.npos) return "";
    const std::size_t start = at + before.size();
    return text.substr(start, text.find(after, start) - start);
}

// Whether the response of a request's Authorization is that of its own other fields and our password.
void ExpectDigestOf(const std::string &request, const std::string &realm, const std::string &nonce) {
    const std::string algorithm = Between(request + ",", "algorithm=", ","), qop = Between(request, "qop=", ",");
    const std::string name = Between(algorithm, "", "\r"), method = Between(request, "", " ");
    const std::string uri = Between(request, " ", " RTSP"), count = Between(request, "nc=", ",");
    const std::string clientNonce = Between(request, "cnonce=\"", "\"");
    EXPECT_EQ(Between(request, "response=\"", "\""),
              Digest({0, name.c_str(), kUser, realm.c_str(), kPassword, nonce.c_str(), clientNonce.c_str(),
                      count.c_str(), qop.c_str(), method.c_str(), uri.c_str(), ""}))
        << request;
    EXPECT_EQ(Between(request, "uri=\"", "\""), uri);
}

TEST(Credentials, AnswerTheStrongestChallengeThatIsKnown) {
    for (const auto &row : Rows("challenges_answered.txt")) {
        SCOPED_TRACE(row[0]);
        const bool allowsBasic = row[0].starts_with("basic ");
        Script script = {{{"OPTIONS ", "!Authorization"}, Unauthorized(row[0].substr(allowsBasic ? 6 : 0))}};
        const bool isAnswered = !row.at(1).starts_with("-");
        Expect expected("OPTIONS ");
        for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + 3) {
            end = row[1].find(" & ", at);
            expected.texts.push_back(row[1].substr(at, end - at));
        }
        if (isAnswered) script.push_back({expected, Ok()});
        CapturedStdout output;
        Session session(kUdp, CLIENT_INIT_STATE, script);
        EXPECT_EQ(RTSPTapSetCredentials(session, kUser, kPassword), 0);
        EXPECT_EQ(RTSPTapSetOption(session, RTSPTAP_OPTION_BASIC_ALLOWED, allowsBasic ? 1 : 0), 0);
        EXPECT_EQ(session.Options(), isAnswered ? 0 : std::stoi(row[1]));
        const std::string request = session.server.Requests().back();
        const std::string nonce = Between(request, "nonce=\"", "\", uri=");
        if (isAnswered && !nonce.empty())
            ExpectDigestOf(request, row.size() > 2 ? row[2] : "r", nonce == "n,\\\"n" ? "n,\"n" : nonce);
        EXPECT_EQ(CountOf(output.Text(), "Digest username") + CountOf(output.Text(), "dSJcOnAgcA"), 0U);
        EXPECT_EQ(CountOf(output.Text(), "Authorization: ***\n"), 0U);
        EXPECT_EQ(CountOf(output.Text(), "Authorization: ***\r\n"), isAnswered ? 1U : 0U);
    }
}

// Each method is refused with a new nonce, and with a stale one; the second request is the same but for number and
// answer.
TEST(Credentials, AnswerForEveryMethodWithTheSameRequestOnceAndAgainForAStaleNonce) {
    const auto challenge = [](int nonce, const char *stale = "") {
        return Unauthorized("Digest realm=\"r\", qop=\"auth\", nonce=\"" + std::to_string(nonce) + "\"" + stale);
    };
    const HeaderList own({{"X-Own", "kept"}}, 1);
    for (const uint32_t proto : {kUdp, kTcp}) {
        Script script;
        const auto add = [&](const char *begin, const Reply &last, const char *with) {
            const int nonce = static_cast<int>(script.size());
            const std::string named = "nonce=\"" + std::to_string(nonce) + "\"";
            const char *const before = script.empty() ? "!Authorization" : "nc=00000002"; // of the nonce before
            script.push_back({{begin, with, before}, challenge(nonce)});
            script.push_back({{begin, with, named.c_str()}, challenge(nonce + 1, ", stale=TRUE")});
            script.push_back({{begin, with, "nc=00000001"}, last});
        };
        add("OPTIONS {base} ", Ok(), "X-Own: kept\r\n");
        add("DESCRIBE {base} ", WithBody(kDescription), "Accept: application/sdp\r\n");
        add("SETUP {base}/track1 ", SetupReply(1, proto), "\r\nTransport: ");
        add("PLAY {base} ", Ok(), "X-Own: kept\r\n");
        add("GET_PARAMETER {base} ", Ok(), "\r\n\r\nbody");
        add("SET_PARAMETER {base} ", Ok(), "\r\n\r\nbody");
        add("PLAY {base} ", Ok(), "Range: npt=now-\r\n");
        add("PAUSE {base} ", Ok(), "X-Own: kept\r\n");
        add("TEARDOWN {base} ", Ok(), "Session: {session}\r\n");
        Session client(proto, CLIENT_INIT_STATE, script);
        EXPECT_EQ(RTSPTapSetCredentials(client, kUser, kPassword), 0);
        char reply[256];
        int32_t size = sizeof reply;
        EXPECT_EQ(RTSPClientSendOptionsRequest(client, own, reply, &size), 0);
        EXPECT_TRUE(std::string(reply, 15).starts_with("RTSP/1.0 200 OK"));
        EXPECT_EQ(client.Describe() + client.Setup(1), 0);
        EXPECT_EQ(RTSPClientSendPlayRequest(client, 0, own, nullptr, nullptr), 0);
        EXPECT_EQ(RTSPTapGetParameter(client, 0, 0, nullptr, "body", nullptr, nullptr), 0);
        EXPECT_EQ(RTSPTapSetParameter(client, 0, 0, nullptr, "body", nullptr, nullptr), 0);
        const RTSPTapPlayRequest request = {sizeof request, 0, 0, "npt=now-", 0, 0, 0, 0};
        EXPECT_EQ(RTSPTapPlay(client, 0, &request, nullptr), 0);
        EXPECT_EQ(RTSPClientSendPauseRequest(client, 0, own, nullptr, nullptr), 0);
        EXPECT_EQ(RTSPTapTeardown(client), 0);
        const std::vector<std::string> requests = client.server.Requests();
        for (std::size_t i = 0; i < requests.size(); ++i)
            EXPECT_TRUE(requests[i].find("\r\nCSeq: " + std::to_string(i + 1) + "\r\n") != std::string::npos);
    }
}

TEST(Credentials, ThatAreWrongAreNotSentAgainAndAgain) {
    const Reply again = Unauthorized("Digest realm=\"r\", nonce=\"n\"");
    const Reply other = Unauthorized("Digest realm=\"r\", nonce=\"m\"");
    const Reply stale = Unauthorized("Digest realm=\"r\", nonce=\"n\", stale=true");
    const HeaderList own({{"Authorization", "mine"}});
    Session session(kUdp, CLIENT_READY_STATE,
                    {{{"PLAY ", "!Authorization"}, again},
                     {{"PLAY ", "nonce=\"n\""}, other},
                     {{"PLAY ", "!Authorization"}, stale},
                     {{"PLAY ", "nonce=\"n\""}, stale},
                     {{"PLAY ", "nonce=\"n\""}, stale},
                     {{"PLAY ", "Authorization: mine\r\n"}, again},
                     {{"OPTIONS ", "!Authorization"}, Status(401, "Unauthorized")},
                     {{"OPTIONS ", "!Authorization"}, again},
                     {{"OPTIONS ", "username=\"\""}, again},
                     {{"PAUSE ", "!Authorization"}, again}});
    EXPECT_EQ(RTSPTapSetCredentials(session, std::string(1024, 'u').c_str(), ""), RTSPTAP_OUT_OF_RANGE);
    EXPECT_EQ(RTSPTapSetCredentials(session, "u", std::string(1024, 'p').c_str()), RTSPTAP_OUT_OF_RANGE);
    EXPECT_EQ(RTSPTapSetCredentials(session, "u\r\nX: y", ""), RTSPTAP_OUT_OF_RANGE);
    EXPECT_EQ(RTSPTapSetCredentials(session, std::string(1023, 'u').c_str(), std::string(1023, 'p').c_str()), 0);
    Refusals refused("RTSPClientSendPlayRequest");
    for (int i = 0; i < 2; ++i)
        refused(session.Play(), RTSP_UNAUTHORIZED, " :The server takes no answer to its challenge\n");
    refused(RTSPClientSendPlayRequest(session, 0, own, nullptr, nullptr), RTSP_UNAUTHORIZED, "");
    EXPECT_EQ(session.Options(), RTSP_UNAUTHORIZED);
    EXPECT_EQ(RTSPTapSetCredentials(session, "", nullptr), 0);
    EXPECT_EQ(session.Options(), RTSP_UNAUTHORIZED);
    EXPECT_EQ(RTSPTapSetCredentials(session, nullptr, "p"), 0); // as without any
    RecordOf(session).media.state = CLIENT_PLAYING_STATE;
    EXPECT_EQ(session.Pause(), RTSP_CLIENT_ERROR);
}

TEST(Credentials, HashTheRealmAsItWasSentWhereTheOtherWayIsRefused) {
    const Reply refusal = Unauthorized("Digest realm=\"a\\\"b\", nonce=\"n\"");
    const CapturedStdout output;
    Session session(kUdp, CLIENT_INIT_STATE, {{"OPTIONS ", refusal}, {"OPTIONS ", refusal}, {"OPTIONS ", Ok()}});
    RecordOf(session).media.dialect.Set(Rule::kRawRealm, true);
    EXPECT_EQ(RTSPTapSetCredentials(session, kUser, kPassword), 0);
    EXPECT_EQ(session.Options(), 0);
    const std::vector<std::string> requests = session.server.Requests();
    ExpectDigestOf(requests.at(1), "a\"b", "n");
    ExpectDigestOf(requests.at(2), "a\\\"b", "n");
}

TEST(Credentials, AnswerForNoUrlOfAnotherHost) {
    const Reply challenge = Unauthorized("Digest realm=\"r\", nonce=\"n\"");
    for (const int64_t dialect : {RTSPTAP_DIALECT_EXACT, RTSPTAP_DIALECT_TOLERANT}) {
        const bool isExact = dialect == RTSPTAP_DIALECT_EXACT;
        const std::string path = isExact ? "x" : std::string(4000, 'x') + "?a=\"b"; // URLs are not cut
        const std::string sdp = "v=0\r\nm=video 0 RTP/AVP 0\r\na=control:rtsp://u@10.9.8.7/" + path + "\r\n";
        const std::string named = "SETUP rtsp://127.0.0.1:{port}/" + path + " RTSP/1.0\r\n";
        Script script = {{"DESCRIBE ", challenge}, {"DESCRIBE {base} ", WithBody(sdp)}};
        if (isExact) script.push_back({{"SETUP rtsp://u@10.9.8.7/", "!Authorization"}, challenge});
        if (!isExact) script.push_back({{named.c_str(), "xxx?a=\\\"b\", response="}, Ok("Session: 1")});
        Session client(kTcp, CLIENT_INIT_STATE, script);
        RecordOf(client).media.dialect.Choose(static_cast<int32_t>(dialect));
        EXPECT_EQ(RTSPTapSetCredentials(client, kUser, kPassword), 0);
        EXPECT_EQ(client.Describe(), 0);
        EXPECT_EQ(client.Setup(1), isExact ? RTSP_UNAUTHORIZED : 0);
        EXPECT_EQ(RecordOf(client).media.dialect.Uses(Rule::kForeignControl), isExact ? 0U : 1U);
    }
}

} // namespace
} // namespace rtsptap::test
