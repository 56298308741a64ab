// Servers that mean well and speak oddly: a good session whose replies are changed as a row of
// tests/data/odd_servers.txt says. In the tolerant dialect everything succeeds and packets come, from both streams,
// before and after a pause; the rules that were needed are counted, and no others.
#include "tests/support/session.h"

#include <regex>
#include <sstream>

namespace rtsptap::test {
namespace {

struct Odd {
    std::string name, transport, rules;
    std::vector<std::string> changes; // "[METHOD: ]pattern", what is put there, and so on
    int channels[2] = {0, 2};         // as the SETUP replies say, in the end
};

Reply OddReply(Odd &odd, const std::string &method, const std::string &headers, const std::string &body = {}) {
    std::string text = "RTSP/1.0 200 OK|CSeq: {cseq}|" + headers + "|";
    std::smatch found;
    for (std::size_t i = 0; i + 1 < odd.changes.size(); i += 2) {
        const bool hasMethod = std::regex_match(odd.changes[i], found, std::regex("([A-Z0-9]{4,8}): (.*)"));
        if (hasMethod && found[1] != method) continue;
        const std::regex pattern(hasMethod ? found[2].str() : odd.changes[i]);
        text = std::regex_replace(text, pattern, odd.changes[i + 1]);
    }
    if (std::regex_search(text, found, std::regex("nterleaved[ =]*([0-9]+)", std::regex::icase)))
        odd.channels[method == "SETUP2"] =
            method == "SETUP2" && stoi(found[1]) == odd.channels[0] ? 2 : stoi(found[1]);
    Reply reply = ReadReply(Lines(text) + body);
    for (Action &action : reply) action.expand = true;
    return reply;
}

Script ScriptOf(Odd &odd, uint32_t proto) {
    const std::string body = kDescription;
    const auto setup = [&](int number) {
        const std::string channels = number == 1 ? "0-1" : "2-3";
        const std::string grant =
            proto == kTcp ? "RTP/AVP/TCP;unicast;interleaved=" + channels : "RTP/AVP;unicast;server_port=8-9";
        return OddReply(odd, "SETUP" + std::to_string(number),
                        "Session: {session};timeout=60|Transport: " + grant + "|");
    };
    const auto other = [&](const char *method) {
        return Step{method, OddReply(odd, method, "Session: {session}|")};
    };
    return {{"OPTIONS", OddReply(odd, "OPTIONS", "Public: DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN|")},
            {"DESCRIBE", OddReply(odd, "DESCRIBE", "Content-Length: " + std::to_string(body.size()) + "|", body)},
            {"SETUP {base}/track1 ", setup(1)},
            {{"SETUP {base}/track2 ", "Session: "}, setup(2)},
            other("PLAY"),
            other("PAUSE"),
            other("PLAY"),
            other("TEARDOWN")};
}

void SendAndTake(Session &session, const Odd &odd, uint16_t first) {
    const std::vector<uint16_t> numbers = Numbers(first, first + 9);
    for (const int stream : {1, 2})
        for (const uint16_t number : numbers)
            session.proto == kUdp
                ? session.SendRtp(stream, Rtp(number))
                : void(session.server.Send(Frame(static_cast<uint8_t>(odd.channels[stream - 1]), Rtp(number))));
    EXPECT_EQ(session.Video(numbers.size()), numbers);
    EXPECT_EQ(session.Audio(numbers.size()), numbers);
}

// Where requests go over a new connection, it is chance whether the end of the old one was seen before.
std::string RulesUsed(const Dialect &dialect) {
    std::string rules;
    const bool isChance = dialect.Uses(Rule::kConnectionPerRequest) > 0;
    for (const RuleRow &row : kRules)
        if (dialect.Uses(FindRule(row.number)) > 0 && !(isChance && FindRule(row.number) == Rule::kServerCloses))
            rules += (rules.empty() ? "" : ",") + std::to_string(row.number);
    return rules.empty() ? "-" : rules;
}

void Play(Odd odd, uint32_t proto) {
    SCOPED_TRACE(odd.name + (proto == kTcp ? " over TCP" : " over UDP"));
    const Script script = ScriptOf(odd, proto);
    Session session(proto, CLIENT_INIT_STATE, script);
    Dialect &dialect = RecordOf(session).media.dialect;
    dialect.Choose(RTSPTAP_DIALECT_TOLERANT);
    EXPECT_EQ(session.Options() + session.Describe(), 0);
    EXPECT_EQ(session.Setup(1) + session.Setup(2) + session.Play(), 0);
    SendAndTake(session, odd, 1);
    EXPECT_EQ(session.Pause() + session.Play(), 0);
    SendAndTake(session, odd, 11);
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_EQ(RulesUsed(dialect), odd.rules);
}

} // namespace

// NAME udp|tcp|both RULES => CHANGE => TEXT ...
TEST(OddServers, ArePlayedInTheTolerantDialect) {
    const CapturedStdout nowhere;
    for (const auto &row : Rows("odd_servers.txt")) {
        Odd odd;
        std::istringstream(row[0]) >> odd.name >> odd.transport >> odd.rules;
        odd.changes.assign(row.begin() + 1, row.end());
        for (const uint32_t proto : {kUdp, kTcp})
            if (odd.transport != (proto == kUdp ? "tcp" : "udp")) Play(odd, proto);
    }
}

} // namespace rtsptap::test
