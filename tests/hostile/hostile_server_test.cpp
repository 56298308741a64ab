// Servers that mean no good. One reply of an otherwise good session is theirs; the method that gets it returns the
// documented code in time, and Destroy leaves nothing behind. Most are generated from good replies and judged by
// rules (reply_rules.h); the others are the lines of tests/data/hostile_servers.txt, judged by hand.
#include "rtsp/client/udp_ports.h"
#include "tests/hostile/reply_rules.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/methods.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <optional>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

namespace rtsptap::test {
namespace {

struct Hostile {
    std::string name;
    const Method *method;
    uint32_t proto;
    Verdict verdict;
    Reply reply;
    Reply before = {};          // what comes without a request, or a connection that ends before it
    bool isShort = true;        // part of the short run; of the others one in twenty is
    bool isWrittenDown = false; // the state is not judged
};
using Hostiles = std::vector<Hostile>;

// The interleaved thread reads the connection.
bool IsAmongFrames(const Method &method, uint32_t proto) {
    return proto == kTcp && method.from >= CLIENT_PLAYING_STATE;
}

// ---- generated ----

struct Good {
    std::vector<std::string> lines;
    std::string body;
    std::string Text() const {
        std::string text;
        for (const std::string &line : lines) text += line + "\r\n";
        return text + "\r\n" + body;
    }
};

Good GoodReply(const std::string &method, uint32_t proto) {
    Good good{{"RTSP/1.0 200 OK", "CSeq: 7"}, ""};
    const auto add = [&](const std::string &line) { good.lines.push_back(line); };
    if (method == "OPTIONS") add("Public: OPTIONS, DESCRIBE");
    if (method == "DESCRIBE") {
        good.body = kDescription;
        add("Content-Type: application/sdp");
        add("Content-Length: " + std::to_string(good.body.size()));
    }
    if (method.size() < 7 || method == "TEARDOWN") add("Session: 12345678;timeout=60");
    if (method == "SETUP")
        add(proto == kUdp ? "Transport: RTP/AVP;unicast;server_port=6970-6971"
                          : "Transport: RTP/AVP/TCP;unicast;interleaved=0-1");
    return good;
}

struct Generator {
    const Method &method;
    const uint32_t proto;
    Hostiles &hostiles;
    const Good good = GoodReply(method.name, proto);

    void Add(const std::string &name, const std::string &text, bool isShort = true) {
        const bool amongFrames = IsAmongFrames(method, proto);
        // What does not begin a reply is none there: the wait for one has rows of its own.
        if (amongFrames && !text.starts_with("RTSP")) return;
        hostiles.push_back(
            {name, &method, proto, Judge(method.name, text, amongFrames), SendBytes(text) + Close(), {}, isShort});
    }

    void Headers() {
        for (std::size_t i = 0; i < good.lines.size(); ++i) {
            const std::string &line = good.lines[i];
            const std::string name = i == 0 ? "" : line.substr(0, line.find(':') + 1);
            const auto with = [&](const char *what, std::vector<std::string> instead) {
                Good changed = good;
                changed.lines.erase(changed.lines.begin() + static_cast<long>(i));
                changed.lines.insert(changed.lines.begin() + static_cast<long>(i), instead.begin(), instead.end());
                Add((i == 0 ? "status line " : name + " ") + what, changed.Text());
            };
            with("missing", {});
            with("doubled", {line, line});
            with("of one byte", {name + " x"});
            with("without a value", {name});
            with("of 64 KiB", {name + " " + std::string(65536, 'x')});
            with("and 64 KiB more", {line + std::string(65536, '1')});
        }
    }

    void WrongNumbers() {
        const std::string text = good.Text();
        const std::size_t end = text.find("\r\n\r\n");
        constexpr char kDigits[] = "0123456789";
        for (std::size_t at = text.find_first_of(kDigits); at < end;) {
            const std::size_t behind = text.find_first_not_of(kDigits, at);
            for (const char *number :
                 {"", "0", "-1", "1", "99", "201", "300", "400", "401", "500", "65536", "65537", "2147483648",
                  "4294967496", "99999999999999999999", "x", " 7", "0x10"})
                Add(std::string(number) + " at " + std::to_string(at),
                    text.substr(0, at) + number + text.substr(behind));
            at = text.find_first_of(kDigits, behind);
        }
    }

    void Cuts() {
        const std::string text = good.Text();
        for (std::size_t length = 0; length < text.size(); ++length)
            Add("cut at " + std::to_string(length), text.substr(0, length), false);
    }

    // A few bytes of the head changed at random; those that make another good number are as welcome.
    void Mutants(int count) {
        std::mt19937_64 random(static_cast<uint64_t>(method.from) * 2 + proto);
        for (int i = 0; i < count; ++i) {
            std::string text = good.Text();
            const std::size_t head = text.size() - good.body.size();
            for (uint64_t n = 1 + random() % 4; n > 0; --n)
                text[4 + random() % (head - 4)] = static_cast<char>(random());
            Add("mutant " + std::to_string(i), text, false);
        }
    }

    // Before the request, behind it, and half way through the reply.
    void Endings() {
        const std::string text = good.Text();
        const std::string half = text.substr(0, text.size() / 2);
        const bool amongFrames = IsAmongFrames(method, proto);
        const Verdict late{RTSP_RESPONSE_TIMEOUT, kNoReply};
        const Verdict nothing = amongFrames ? late : Verdict{RTSP_NO_RESPONSE, kNoReply};
        const Verdict something = Judge(method.name, half, amongFrames);
        const auto add = [&](const char *name, const Verdict &verdict, const Reply &reply,
                             const Reply &before = {}) {
            hostiles.push_back({name, &method, proto, verdict, reply, before});
        };
        for (const Reply &end : {Close(), Reset()}) {
            add("ends before the request", nothing, {}, end);
            add("ends behind the request", nothing, end);
            add("ends in the reply", something, SendBytes(half) + Delay(50) + end);
        }
        add("stalls behind the request", late, Stall());
        add("stalls in the reply", something, SendBytes(half));
        if (something.code == RTSP_NO_RESPONSE) hostiles.back().verdict.code = RTSP_RESPONSE_TIMEOUT;
    }
};

// ---- written down ----

// {ok} is a good beginning, {close} a closed connection, {wait N} a delay, {endless TEXT} what never ends; what
// stands before {request} comes without a request.
void ReadReply(std::string text, Hostile &hostile) {
    const auto add = [&](const Reply &more) { hostile.reply = hostile.reply + more; };
    const std::regex commands("\\{(ok|request|close|wait|endless) ?([^}]*)\\}");
    for (std::smatch found; std::regex_search(text, found, commands); text = found.suffix()) {
        add(SendBytes(found.prefix()));
        const std::string command = found[1];
        if (command == "ok") add(SendBytes("RTSP/1.0 200 OK\r\nCSeq: 7\r\n"));
        if (command == "request") hostile.before = std::exchange(hostile.reply, {});
        if (command == "close") add(Close());
        if (command == "wait") add(Delay(std::stoi(found[2])));
        if (command == "endless") add(Endless(found[2]));
    }
    add(SendBytes(text));
}

// CODE METHOD udp|tcp|both NAME REPLY
void ReadRows(Hostiles &hostiles) {
    for (const auto &row : Rows("hostile_servers.txt")) {
        std::istringstream words(row[0]);
        Hostile hostile{};
        std::string method, transport, reply;
        words >> hostile.verdict.code >> method >> transport >> hostile.name;
        std::getline(words.ignore(1), reply, '\n');
        ReadReply(Lines(reply), hostile);
        hostile.isWrittenDown = true;
        hostile.method = std::ranges::find(kMethods, method, &Method::name);
        for (const uint32_t proto : {kUdp, kTcp}) {
            hostile.proto = proto;
            if (transport == "both" || transport == (proto == kUdp ? "udp" : "tcp")) hostiles.push_back(hostile);
        }
    }
}

Hostiles AllHostiles() {
    Hostiles hostiles;
    for (const Method &method : kMethods)
        for (const uint32_t proto : {kUdp, kTcp}) {
            Generator generator{method, proto, hostiles};
            generator.Headers();
            generator.WrongNumbers();
            generator.Cuts();
            generator.Mutants(100);
            generator.Endings();
        }
    ReadRows(hostiles);
    return hostiles;
}

// ---- met ----

// What went wrong; empty when nothing did.
std::string Meet(const Hostile &hostile) {
    const auto &[code, text, moves] = hostile.verdict;
    const bool isSlow = code == RTSP_RESPONSE_TIMEOUT; // those go side by side, so that their lines mix
    std::optional<CapturedStdout> out;
    if (!isSlow) out.emplace();
    Session session(hostile.proto, hostile.method->from, Times(2, {hostile.method->name, hostile.reply, true}));
    const int32_t stateBefore = ObservedState(session.client);
    std::ostringstream wrong;
    for (const Action &action : hostile.before) {
        if (action.close)
            session.server.Hangup(action.reset);
        else
            session.server.Send(action.bytes);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    // A challenge is answered, with whatever it gave.
    for (int i = 0; i < (code == RTSP_UNAUTHORIZED ? 2 : 1); ++i) {
        std::string buffer(100000, '#');
        auto size = static_cast<int32_t>(buffer.size());
        int32_t result = 0;
        const double seconds =
            SecondsOf([&] { result = hostile.method->call(session.client, 0, buffer.data(), &size); });
        const bool endedMeanwhile = i == 1 && result == RTSP_NO_RESPONSE;
        if (result != code && !endedMeanwhile) wrong << " gave " << result << ", not " << code;
        if (isSlow ? seconds < 24.5 || seconds > 28 : seconds > 4) wrong << " took " << seconds << " s";
    }
    const std::string line = std::string("EXIT : RTSPClientSend") + hostile.method->word + "Request" + text;
    if (!isSlow && !text.empty() && CountOf(out->Text(), line) != 1) wrong << " does not print " << line;
    const int32_t state = ObservedState(session.client);
    if (!hostile.isWrittenDown && state != (moves ? hostile.method->to : stateBefore))
        wrong << " leads to " << state;
    int32_t destroyed = 0;
    const double seconds = SecondsOf([&] { destroyed = session.client.Destroy(); });
    if (destroyed != 0 || seconds > 2) wrong << " Destroy: " << destroyed << " after " << seconds << " s";
    return wrong.str();
}

} // namespace

// Standard output goes nowhere: failures are told at the end.
TEST(HostileServers, GetTheDocumentedCodeAndLeaveNothingBehind) {
    const Hostiles hostiles = AllHostiles();
    std::mutex lock; // guards these two
    std::vector<std::string> wrong;
    std::size_t met = 0;
    {
        const CapturedStdout nowhere(true);
        const std::size_t threads = CountThreads();
        const std::size_t descriptors = CountDescriptors();
        const uint16_t firstPort = gblClientRtspUdpPort;
        std::vector<std::thread> waiting; // for the 25 seconds that some need, all at once
        const auto meet = [&](const Hostile &hostile) {
            std::string what = Meet(hostile);
            if (hostile.verdict.code != RTSP_RESPONSE_TIMEOUT &&
                (CountDescriptors() != descriptors || !Eventually([&] { return CountThreads() == threads; })))
                what += " threads or descriptors remain";
            const std::lock_guard guard(lock);
            ++met;
            if (what.empty()) return;
            wrong.push_back(hostile.method->name + std::string(hostile.proto == kUdp ? " udp " : " tcp ") +
                            hostile.name + ":" + what);
        };
        for (std::size_t i = 0; i < hostiles.size(); ++i) {
            const bool isDue = hostiles[i].isShort || i % 20 == 0 || LongForm();
            if (isDue && hostiles[i].verdict.code != RTSP_RESPONSE_TIMEOUT) meet(hostiles[i]);
            gblClientRtspUdpPort = firstPort;
        }
        for (const Hostile &hostile : hostiles)
            if (LongForm() && hostile.verdict.code == RTSP_RESPONSE_TIMEOUT)
                waiting.emplace_back(meet, std::cref(hostile));
        for (std::thread &thread : waiting) thread.join();
        if (CountDescriptors() != descriptors) wrong.push_back("descriptors remain of those that wait");
    }
    for (const std::string &what : wrong) ADD_FAILURE() << what;
    fprintf(stderr, "%zu of %zu hostile servers met\n", met, hostiles.size());
}

// Streams that nobody sets up cost neither threads, descriptors nor time.
TEST(HostileServers, MayDescribeThousandsOfStreams) {
    std::string description = "v=0\r\n";
    for (int i = 0; i < 8000; ++i) description += "m=\r\n";
    for (const uint32_t proto : {kUdp, kTcp}) {
        const CapturedStdout nowhere(true);
        Session session(proto, CLIENT_INIT_STATE,
                        {{"DESCRIBE ", WithBody(description)}, {"SETUP ", SetupReply(1, proto)}, {"PLAY ", Ok()}});
        EXPECT_EQ(session.Describe(), 0);
        EXPECT_EQ(RTSPClientGetNbStreams(session.client), 8000);
        EXPECT_EQ(session.Setup(1), 0);
        const std::size_t descriptors = CountDescriptors();
        EXPECT_TRUE(SucceedsSoon([&] { return session.Play(); }));
        EXPECT_LE(CountDescriptors(), descriptors + 10);
        EXPECT_TRUE(SucceedsSoon([&] { return session.client.Destroy(); }));
    }
}

} // namespace rtsptap::test
