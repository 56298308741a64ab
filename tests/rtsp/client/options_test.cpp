// What can be set of a client by number, and the rules of its dialect.
#include "rtp/stream.h"
#include "rtsp/client/options.h"
#include "rtsp/client/stream_sockets.h"
#include "tests/support/session.h"

#include <regex>
#include <set>
#include <sstream>

namespace rtsptap::test {
namespace {

TEST(Options, EachHasItsDefaultAndTakesWhatItsRangeSays) {
    const CapturedStdout output;
    const Client client;
    for (const Option &option : Options()) {
        const int32_t number = option.number;
        if (option.text != nullptr) {
            EXPECT_EQ(TextSet(client, number), option.textByDefault) << number;
            if (option.until == Settable::kNever) {
                EXPECT_EQ(RTSPTapSetOptionText(client, number, ""), RTSPTAP_READ_ONLY);
                continue;
            }
            const std::string longest(static_cast<std::size_t>(option.highest), 'x');
            EXPECT_EQ(RTSPTapSetOptionText(client, number, longest.c_str()), 0) << number;
            EXPECT_EQ(RTSPTapSetOptionText(client, number, (longest + "x").c_str()), RTSPTAP_OUT_OF_RANGE);
            EXPECT_EQ(TextSet(client, number), longest);
            uint32_t size = static_cast<uint32_t>(longest.size());
            EXPECT_EQ(RTSPTapGetOptionText(client, number, std::string(size, '?').data(), &size),
                      RTSP_SMALL_BUFFER);
            EXPECT_EQ(size, longest.size() + 1);
            continue;
        }
        int64_t value = -1;
        EXPECT_EQ(RTSPTapGetOption(client, number, &value), 0);
        EXPECT_EQ(value, option.byDefault) << number;
        if (option.set == nullptr) {
            EXPECT_EQ(RTSPTapSetOption(client, number, option.lowest), RTSPTAP_READ_ONLY);
            continue;
        }
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
        SetNumber(other, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
        EXPECT_EQ(RTSPTapGetRule(other, rule.number, &isOn) + isOn, rule.isTolerant);
        EXPECT_EQ(RTSPTapSetRule(other, rule.number, 0), 0);
        EXPECT_EQ(RTSPTapGetRule(other, rule.number, &isOn) + isOn, 0);
        SetNumber(other, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_EXACT);
    }
    rule.recordSize = offsetof(RTSPTapRule, name);
    rule.name = "kept";
    EXPECT_EQ(RTSPTapShowRule(0, &rule), 0);
    EXPECT_EQ(std::to_string(rule.number) + rule.name, "101kept");

    EXPECT_EQ(session.Options(), RTSP_BAD_RESPONSE); // exact
    ScriptedServer again({{"\r\nUser-Agent: mine\r\n", SendBytes("RTSP/1.0 200\r\nCSeq:1\r\n\r\n")}});
    const Client tolerant;
    SetNumber(tolerant, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
    EXPECT_EQ(RTSPTapSetOptionText(tolerant, RTSPTAP_OPTION_USER_AGENT, "mine"), 0);
    EXPECT_EQ(RTSPClientConnect(tolerant, "127.0.0.1", again.Port(), "live", kUdp, 0), 0);
    EXPECT_EQ(RTSPClientSendOptionsRequest(tolerant, 0, nullptr, nullptr), 0);
    for (const int32_t number : {101, 102}) {
        uint64_t count = 0;
        EXPECT_EQ(RTSPTapGetRuleUse(tolerant, number, &count) + static_cast<int32_t>(count), 1) << number;
    }
}

std::string SetUpWith(const std::string &header, int32_t rule, int32_t isOn, uint64_t &uses) {
    const CapturedStdout output;
    Session client(kUdp, CLIENT_DESCRIBE_SENT_STATE, {{"SETUP ", Ok(header)}});
    RecordOf(client).media.dialect.Set(FindRule(rule), isOn != 0);
    RTSPStreamInfo &stream = *RecordOf(client).media.streamList;
    stream.serverPort = 9;
    const int32_t result = client.Setup(1);
    EXPECT_EQ(RTSPTapGetRuleUse(client, rule, &uses), 0);
    char reports[64] = {};
    WriteAddress(stream.reportsTo, reports);
    return std::to_string(result) + " " + std::to_string(stream.serverPort) + " " +
           std::to_string(stream.interleavedChannel) + " " + RecordOf(client).sessionId + reports;
}

TEST(Setup, ReadsAsRulesPermit) {
    for (const auto &row : Rows("tolerated_setups.txt")) {
        std::istringstream words(row[0]);
        int32_t rule = 0;
        uint64_t expected = 0, uses = 0;
        std::string header;
        std::getline(words >> rule >> expected >> std::ws, header);
        for (const int32_t isOn : {0, 1})
            EXPECT_EQ(WithoutBlanks(SetUpWith(header, rule, isOn, uses)),
                      WithoutBlanks(row.at(static_cast<std::size_t>(1 + isOn))))
                << row[0];
        EXPECT_EQ(uses, expected) << row[0];
    }
}

TEST(Setup, TheFirstSessionStaysInForceAndQuotesDoNotTellSessionsApart) {
    const Script script{{"SETUP ", Ok("Session: \"one\"")},
                        {{"SETUP ", "\r\nSession: \"one\"\r\n"}, Ok("Session: two")},
                        {{"PLAY ", "\r\nSession: \"one\"\r\n"}, Ok("Session: two")},
                        {{"PAUSE ", "\r\nSession: \"one\"\r\n"}, Ok("Session: one")}};
    const CapturedStdout output;
    Tolerant client(kUdp, CLIENT_DESCRIBE_SENT_STATE, script);
    EXPECT_EQ(client.Setup(1) + client.Setup(2) + client.Play() + client.Pause(), 0);
    EXPECT_EQ(client.Uses(Rule::kOtherSession), 2U);
    EXPECT_EQ(client.Uses(Rule::kPaddedSession), 1U);
}

// ---- replies, however the network and the server deal them out ----

// A whole session in the tolerant dialect, whose replies `deal` makes of their numbers and bodies; packets come
// between them. What was counted of the rule.
uint64_t PlayWith(uint32_t proto, Rule rule, const std::function<Reply(int, const std::string &)> &deal) {
    Script script;
    for (const char *method : {"OPTIONS ", "DESCRIBE ", "SETUP ", "SETUP ", "PLAY ", "PAUSE ", "TEARDOWN "}) {
        const int number = static_cast<int>(script.size()) + 1;
        script.push_back({method, deal(number, number == 2 ? kDescription : "")});
        if (proto == kTcp && number == 5) script.back().reply = script.back().reply + SendBytes(Frame(0, Rtp(7)));
    }
    Tolerant client(proto, CLIENT_INIT_STATE, script);
    EXPECT_EQ(client.Options() + client.Describe() + client.Setup(1) + client.Setup(2) + client.Play(), 0);
    EXPECT_EQ(client.Video(proto == kTcp ? 1 : 0), Numbers(7, proto == kTcp ? 7 : 6));
    EXPECT_EQ(client.Pause() + client.Teardown(), 0);
    return client.Uses(rule);
}

TEST(Replies, AreWholeHoweverTheyAreCut) {
    const CapturedStdout output;
    for (const uint32_t proto : {kUdp, kTcp})
        for (const std::size_t cut : {1U, 4U, 20U, 46U}) // the shortest has 47 bytes
            EXPECT_GE(PlayWith(proto, Rule::kFramedReplies,
                               [cut](int number, const std::string &body) {
                                   return Pieces(Numbered(number, "200 OK", body), cut, 20);
                               }),
                      5U) // those that no thread reads, which may find all pieces
                << cut;
}

TEST(Replies, ProvisionalOnesArePassedOverAndAnOldNumberIsNone) {
    const CapturedStdout output;
    for (const uint32_t proto : {kUdp, kTcp})
        for (const int pauseMs : {0, 5}) {
            const auto deal = [pauseMs](int number, const std::string &body) {
                const Reply pause = pauseMs > 0 ? Delay(pauseMs) : Reply();
                return SendBytes(Numbered(number, "100 Wait")) + pause + SendBytes(Numbered(1, "200 OK", body));
            };
            EXPECT_EQ(PlayWith(proto, Rule::kProvisionalReply, deal), 7U);
            EXPECT_EQ(PlayWith(proto, Rule::kLateReply, deal), 0U);
        }
}

TEST(Replies, ToARequestThatWasGivenUpAreDropped) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        Tolerant session(proto, CLIENT_PLAYING_STATE,
                         {{"PAUSE ", Stall()},
                          {"PAUSE ", SendBytes(Numbered(5, "454 Late") + Numbered(6))},
                          {"TEARDOWN ", SendBytes(Numbered(5, "454 Later")) + Delay(5) + SendBytes(Numbered(7))}});
        SetNumber(session, RTSPTAP_OPTION_REPLY_LIMIT, 20);
        EXPECT_EQ(session.Pause(), RTSP_RESPONSE_TIMEOUT);
        SetNumber(session, RTSPTAP_OPTION_REPLY_LIMIT, 25000);
        EXPECT_EQ(session.Pause() + session.Teardown(), 0);
        EXPECT_EQ(session.Uses(Rule::kLateReply), 2U);
    }
}

TEST(Replies, FramesOfNobodysChannelAreSkippedByTheirLength) {
    const CapturedStdout output;
    const std::string nobodys = Frame(9, "$" + Numbered(5, "454 No") + Frame(0, Rtp(6)));
    const auto deal = [&](int number, const std::string &body) {
        const std::string around = number == 5 ? nobodys : "";
        return SendBytes(around + Numbered(number, "200 OK", body) + around);
    };
    EXPECT_EQ(PlayWith(kTcp, Rule::kUnknownChannel, deal), 2U);
}

TEST(Replies, OfDescribeMayBeWrongAboutTheirLength) {
    const CapturedStdout output;
    const std::string body = kDescription;
    for (const std::string length :
         {"", "Content-Length: 0\r\n", "Content-Length: 90\r\n", "Content-Length: 9999\r\n"}) {
        const std::string head = "RTSP/1.0 200 OK\r\nContent-Type: application/sdp\r\n" + length + "\r\n";
        Tolerant client(kUdp, CLIENT_INIT_STATE,
                        {{"DESCRIBE ", SendBytes(head + body)}, {"SETUP ", SendBytes(Numbered(2))}});
        EXPECT_LT(SecondsOf([&] { EXPECT_EQ(client.Describe(), 0); }), 10) << length;
        EXPECT_EQ(RTSPClientGetNbStreams(client), 2) << length;
        EXPECT_GT(client.Uses(Rule::kAnyBodyLength), 0U) << length;
        EXPECT_EQ(client.Setup(1), 0) << length;
    }
}

// Each end comes long before the one that is there by default.
TEST(Options, WaitsEndAtTheirLimits) {
    const CapturedStdout output;
    Session udp(kUdp, CLIENT_READY_STATE, {{"PLAY ", Stall()}}); // a read of its own
    SetNumber(udp, RTSPTAP_OPTION_REPLY_LIMIT, 20);
    Session first(kTcp, CLIENT_READY_STATE, {{"PLAY ", Stall()}}); // among frames
    SetNumber(first, RTSPTAP_OPTION_REPLY_LIMIT, 20);
    Session tcp(kTcp, CLIENT_PLAYING_STATE, {{"PAUSE ", Stall()}, {"TEARDOWN ", Stall()}, {"TEARDOWN ", Stall()}});
    SetNumber(tcp, RTSPTAP_OPTION_PACKET_LIMIT, 20);
    EXPECT_LT(SecondsOf([&] {
                  EXPECT_EQ(udp.Play(), RTSP_RESPONSE_TIMEOUT);
                  EXPECT_EQ(first.Play(), RTSP_RESPONSE_TIMEOUT);
                  RTPStreamData *packet = nullptr;
                  EXPECT_EQ(RTPClientGetRTPStreamData(tcp, &packet, kVideo), RTSP_FAILURE);
                  SetNumber(tcp, RTSPTAP_OPTION_REPLY_LIMIT, 20); // also of a reply that the thread hands over
                  EXPECT_EQ(tcp.Pause(), RTSP_RESPONSE_TIMEOUT);
                  EXPECT_EQ(tcp.Teardown(), RTSP_RESPONSE_TIMEOUT);
                  SetNumber(tcp, RTSPTAP_OPTION_REPLY_LIMIT, 3600000);
                  SetNumber(tcp, RTSPTAP_OPTION_TEARDOWN_LIMIT, 20);
                  EXPECT_EQ(tcp.Teardown(), RTSP_RESPONSE_TIMEOUT);
              }),
              4);
}

TEST(Options, PortsComeFromTheClientsOwnRangeAndSocketsHaveTheBufferAskedFor) {
    const CapturedStdout output;
    const uint16_t port = FreePair();
    const UdpPeer taken(Plus(port, 3)); // the RTCP port of the next pair
    Session session(kUdp, CLIENT_DESCRIBE_SENT_STATE, Times(4, {"SETUP ", Ok()}));
    SetNumber(session, RTSPTAP_OPTION_FIRST_PORT, port - 1);
    SetNumber(session, RTSPTAP_OPTION_LAST_PORT, port + 4);
    SetNumber(session, RTSPTAP_OPTION_RECEIVE_BUFFER, 65536);
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.ClientPort(1), port);
    EXPECT_EQ(NumberSet(session, RTSPTAP_OPTION_RECEIVE_BUFFER_GRANTED), 65536);
    int held = 0;
    socklen_t length = sizeof held;
    getsockopt(RecordOf(session).media.streamList.load()->rtpSocket, SOL_SOCKET, SO_RCVBUF, &held, &length);
    EXPECT_EQ(held, 2 * 65536);
    EXPECT_EQ(session.Setup(2), RTSP_SOCKET_FAILED); // the one is taken, half of the next, and there is no third
    SetNumber(session, RTSPTAP_OPTION_LAST_PORT, port + 5);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_EQ(session.ClientPort(2), port + 4);
    SetNumber(session, RTSPTAP_OPTION_FIRST_PORT, 2000);
    SetNumber(session, RTSPTAP_OPTION_LAST_PORT, 59999);
    const uint16_t common = gblClientRtspUdpPort; // others have not heard of those ports
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_GT(session.ClientPort(2), common);
    gblClientRtspUdpPort = port;
    EXPECT_EQ(RTSPTapSetup(session, 2), 0);
    EXPECT_EQ(session.ClientPort(2), port + 4); // of the next pair the port for RTCP is taken
}

// The last packet tells that the others have come, or will not.
TEST(Options, DatagramsOfOthersThanTheServerAndWhomItNamesAreNotReceived) {
    const CapturedStdout output;
    for (const bool names : {false, true}) {
        const char *const grant = names ? "Transport: RTP/AVP;server_port=8-9;source=127.0.0.3" : "X: y";
        Session session(kUdp, CLIENT_DESCRIBE_SENT_STATE, Script{{"SETUP ", Ok(grant)}, {"PLAY ", Ok()}});
        RecordOf(session).media.dialect.Set(Rule::kAnnouncedSource, true);
        SetNumber(session, RTSPTAP_OPTION_SOURCE_FILTER, 1);
        EXPECT_EQ(session.Setup(1) + session.Play(), 0);
        uint16_t number = 0;
        for (const char *host : {"127.0.0.2", "127.0.0.3", "127.0.0.1"})
            UdpPeer(0, host).SendTo(session.ClientPort(1), Rtp(++number));
        EXPECT_EQ(session.Video(names ? 2 : 1), Numbers(names ? 2 : 3, 3));
    }
}

// ---- the page that is made from the tables ----

std::string RulesAsTable() {
    std::ostringstream table;
    table << "| | What | With the rule | Who sends it | Settled in | Tolerant |\n|---|---|---|---|---|---|\n";
    for (const RuleRow &row : kRules)
        table << "| " << row.number << " | " << row.name << " | " << row.permits << " | " << row.senders << " | "
              << row.section << " | " << ((row.dialects & kTolerant) != 0 ? "on" : "off") << " |\n";
    return table.str();
}

std::string OptionsAsTable() {
    std::ostringstream table;
    table << "| | What | Unit | Lowest | Highest | Default | Until |\n|---|---|---|---|---|---|---|\n";
    for (const Option &option : Options()) {
        table << "| " << option.number << " | " << option.name << " | " << option.unit << " | " << option.lowest
              << " | " << option.highest << " | ";
        option.text != nullptr ? table << option.textByDefault : table << option.byDefault;
        constexpr const char *kUntil[] = {"only told", "connecting", "reception", "any time"};
        table << " | " << kUntil[static_cast<int>(option.until)] << " |\n";
    }
    return table.str();
}

// What stands between the lines that begin with these marks; put there when the page is to be written.
void ExpectBetween(const std::string &begin, const std::string &end, const std::string &table) {
    const std::string path = PROJECT_DIR "/docs/cameras.md";
    std::string page = ContentOf(path);
    const std::size_t first = page.find('\n', page.find(begin)) + 1;
    const std::size_t last = page.find(end);
    ASSERT_TRUE(first != 0 && last != page.npos) << begin;
    if (getenv("RTSPTAP_WRITE") != nullptr) {
        std::ofstream(path) << page.replace(first, last - first, table);
        return;
    }
    EXPECT_EQ(page.substr(first, last - first), table) << "docs/cameras.md says how it is written anew";
}

TEST(Pages, CamerasIsInStepWithTheTablesOfRulesAndOptions) {
    ExpectBetween("<!-- rules:", "<!-- end of rules", RulesAsTable());
    ExpectBetween("<!-- options:", "<!-- end of options", OptionsAsTable());
}

TEST(Options, EveryCodeOfTheHeadersHasAMeaningOfItsOwnAndTheVersionIsTheProjects) {
    const std::string headers =
        ContentOf(PROJECT_DIR "/include/rtsptap.h") + ContentOf(PROJECT_DIR "/include/rtsptap_extended.h");
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
