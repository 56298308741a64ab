// Servers that mean no good. One reply of an otherwise good session is theirs; the method that gets it returns the
// documented code in time, and Destroy leaves nothing behind. They are the lines of tests/data/hostile_servers.txt.
// What any reply leads to is judged by rules: fuzz/exchange_fuzz.cpp.
#include "rtsp/client/stream_sockets.h"
#include "tests/support/methods.h"
#include "tests/support/session.h"

#include <sstream>

namespace rtsptap::test {
namespace {

struct Hostile {
    int32_t code;
    std::string name;
    const Method *method;
    uint32_t proto;
    Reply reply;
    Reply before; // what comes without a request, or a connection that ends before it
};
using Hostiles = std::vector<Hostile>;

// What stands before it comes without a request.
constexpr std::string_view kRequest = "{request}";

// CODE METHOD udp|tcp|both NAME REPLY
Hostiles ReadRows() {
    Hostiles hostiles;
    for (const auto &row : Rows("hostile_servers.txt")) {
        std::istringstream words(row[0]);
        Hostile hostile{};
        std::string method, transport, reply;
        words >> hostile.code >> method >> transport >> hostile.name;
        std::getline(words.ignore(1), reply, '\n');
        reply = Lines(reply);
        const std::size_t request = reply.find(kRequest);
        if (request != reply.npos) hostile.before = ReadReply(reply.substr(0, request));
        hostile.reply = ReadReply(request == reply.npos ? reply : reply.substr(request + kRequest.size()));
        hostile.method = std::ranges::find(kMethods, method, &Method::name);
        for (const uint32_t proto : {kUdp, kTcp}) {
            hostile.proto = proto;
            if (transport == "both" || transport == (proto == kUdp ? "udp" : "tcp")) hostiles.push_back(hostile);
        }
    }
    return hostiles;
}

// What came without a request has been met: who receives has come to the packet behind it, or it lies in the
// socket.
void AwaitArrival(Session &session, const Hostile &hostile, bool hasThreads) {
    const int socket = RecordOf(session).media.connection.socket;
    pollfd wait = {socket, POLLIN, 0};
    if (session.proto == kUdp || hostile.method->from < CLIENT_PLAYING_STATE) {
        EXPECT_EQ(poll(&wait, 1, 20000), 1);
    } else if (std::ranges::none_of(hostile.before, &Action::close) && session.server.Send(Frame(0, Rtp(1)))) {
        const auto hasCome = [&] { return RTPClientGetNbOfPktInBuffer(session, kVideo) == 1; };
        EXPECT_TRUE(hasThreads ? Eventually(hasCome) : session.Video(1).size() == 1) << hostile.name;
    }
}

constexpr std::size_t kAtOnce = 60; // sessions, which have 8 descriptors each

bool IsSlow(const Hostile &hostile) { return hostile.code == RTSP_RESPONSE_TIMEOUT; }

// How a server is met.
struct Way {
    const char *name;
    int32_t dialect = RTSPTAP_DIALECT_EXACT;
    bool hasThreads = true;
    bool IsPlain() const { return dialect == RTSPTAP_DIALECT_EXACT && hasThreads; }
};
constexpr Way kPlain{.name = ""};
constexpr Way kOthers[] = {{" tolerated", RTSPTAP_DIALECT_TOLERANT},
                           {" without threads", RTSPTAP_DIALECT_EXACT, false}};

// What went wrong; empty when nothing did. The codes are those of the exact dialect.
std::string Meet(const Hostile &hostile, const Way &way) {
    Session session(hostile.proto, hostile.method->from, Times(2, {hostile.method->name, hostile.reply, true}),
                    1 << 20,
                    [&way](intptr_t client) { SetNumber(client, RTSPTAP_OPTION_THREADS, way.hasThreads); });
    RecordOf(session).media.dialect.Choose(way.dialect);
    const bool isExact = way.dialect == RTSPTAP_DIALECT_EXACT;
    if (!isExact) RTSPTapSetOption(session, RTSPTAP_OPTION_REPLY_LIMIT, 1500);
    std::ostringstream wrong;
    for (const Action &action : hostile.before)
        action.close ? session.server.Hangup(action.reset) : void(session.server.Send(action.bytes));
    if (!hostile.before.empty()) AwaitArrival(session, hostile, way.hasThreads);
    // A challenge is answered, with whatever it gave.
    for (int i = 0; i < (hostile.code == RTSP_UNAUTHORIZED ? 2 : 1); ++i) {
        std::string buffer(100000, '#');
        auto size = static_cast<int32_t>(buffer.size());
        int32_t result = 0;
        const double seconds = SecondsOf([&] { result = hostile.method->call(session, 0, buffer.data(), &size); });
        const bool endedMeanwhile = i == 1 && result == RTSP_NO_RESPONSE;
        if (isExact && result != hostile.code && !endedMeanwhile)
            wrong << " gave " << result << ", not " << hostile.code;
        if (isExact && IsSlow(hostile) ? seconds < 24.5 || seconds > 40 : seconds > 15)
            wrong << " took " << seconds << " s";
    }
    int32_t destroyed = 0;
    const double seconds = SecondsOf([&] { destroyed = session.Destroy(); });
    if (destroyed != 0 || seconds > 10) wrong << " Destroy: " << destroyed << " after " << seconds << " s";
    return wrong.str();
}

} // namespace

// Standard output goes nowhere: failures are told at the end.
TEST(HostileServers, GetTheDocumentedCodeAndLeaveNothingBehind) {
    const Hostiles hostiles = ReadRows();
    std::mutex lock; // guards these two
    std::vector<std::string> wrong;
    std::size_t met = 0;
    {
        const CapturedStdout nowhere(true);
        const std::size_t threads = CountThreads();
        const std::size_t descriptors = CountDescriptors();
        const uint16_t firstPort = gblClientRtspUdpPort;
        std::vector<std::thread> waiting; // for the 25 seconds that some need, all at once
        const auto meet = [&](const Hostile &hostile, const Way &way) {
            std::string what = Meet(hostile, way);
            const bool isAlone = way.IsPlain() && !IsSlow(hostile);
            if (isAlone &&
                !Eventually([&] { return CountDescriptors() == descriptors && CountThreads() == threads; }))
                what += " threads or descriptors remain";
            const std::lock_guard guard(lock);
            ++met;
            if (what.empty()) return;
            wrong.push_back(hostile.method->name + std::string(hostile.proto == kUdp ? " udp " : " tcp ") +
                            hostile.name + way.name + ":" + what);
        };
        for (const Hostile &hostile : hostiles) {
            if (!IsSlow(hostile)) meet(hostile, kPlain);
            gblClientRtspUdpPort = firstPort;
        }
        for (const Way &way : kOthers)
            for (std::size_t first = 0; first < hostiles.size(); first += kAtOnce) {
                std::vector<std::jthread> some; // who forgives waits for what may still come
                for (std::size_t i = first; i < std::min(first + kAtOnce, hostiles.size()); ++i)
                    if (way.hasThreads || !IsSlow(hostiles[i]))
                        some.emplace_back(meet, std::cref(hostiles[i]), std::cref(way));
            }
        for (const Hostile &hostile : hostiles)
            if (LongForm() && IsSlow(hostile)) waiting.emplace_back(meet, std::cref(hostile), std::cref(kPlain));
        for (std::thread &thread : waiting) thread.join();
        if (CountDescriptors() != descriptors) wrong.push_back("descriptors remain of those that wait");
    }
    for (const std::string &what : wrong) ADD_FAILURE() << what;
    fprintf(stderr, "%zu of %zu hostile servers met\n", met, 3 * hostiles.size());
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
        EXPECT_EQ(RTSPClientGetNbStreams(session), 8000);
        EXPECT_EQ(session.Setup(1), 0);
        const std::size_t descriptors = CountDescriptors();
        EXPECT_TRUE(SucceedsSoon([&] { return session.Play(); }));
        EXPECT_LE(CountDescriptors(), descriptors + 10);
        EXPECT_TRUE(SucceedsSoon([&] { return session.Destroy(); }));
    }
}

} // namespace rtsptap::test
