// What only shows in the long run, in a crowd or by the clock. Each command prints its figures and fails when one
// is out of bounds.
//
//     rtsptap_soak answering_server.py [COMMAND NUMBER]...
//
//     cycles N       clients created and destroyed            stream S    four sessions of 4 Mbit/s for S seconds
//     sessions N     over UDP, and as many over TCP           limits N    how long TEARDOWN and Destroy take
//     ports N        SETUPs; from 29000 on they repeat        crowd N     clients at once, as threads
#include "tests/support/client.h"
#include "tests/support/packet_builder.h"
#include "tests/support/process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <malloc.h>
#include <map>
#include <mutex>
#include <set>
#include <sys/resource.h>

using namespace rtsptap::test;

namespace {

constexpr uint32_t kFirstSequenceNumber = 64000; // as the server has it
uint16_t serverPort = 0;
std::atomic<int> failures{0};

// Counts and tells what is not as it should be.
bool Expect(bool good, const std::string &what, long value = 0) {
    if (!good && ++failures <= 20) fprintf(stderr, "FAILED: %s: %ld\n", what.c_str(), value);
    return good;
}

class Player : public Client {
public:
    Player(uint32_t dataProto, const std::string &pathOfUrl, int32_t ringBytes = 1 << 18)
        : Client(ringBytes, dataProto, pathOfUrl) {
        Expect(*this > 0, "RTSPClientCreate", *this);
        serverPort = ::serverPort;
    }

    // The numbers behind that word of the last reply: 0 where there are none.
    std::array<long, 2> Told(const std::string &word) const {
        std::array<long, 2> numbers = {};
        std::string reply(4096, '\0');
        auto size = static_cast<int32_t>(reply.size());
        RTSPClientGetLastReply(*this, reply.data(), &size);
        const std::size_t at = reply.find(word);
        if (at != reply.npos) sscanf(reply.c_str() + at + word.size(), "%ld%*c%ld", &numbers[0], &numbers[1]);
        return numbers;
    }

    // Takes one packet of stream 0 or 1, which must be the next one; false when there was none.
    bool Take(std::size_t stream) {
        constexpr int32_t kCodecs[] = {RTP_CODEC_H264, RTP_CODEC_MPEG4_GENERIC};
        RTPStreamData *packet = nullptr;
        if (RTPClientGetRTPStreamData(*this, &packet, kCodecs[stream]) != 0 || packet == nullptr) return false;
        const auto number = static_cast<uint32_t>(taken[stream]++);
        const std::string payload(reinterpret_cast<const char *>(packet->payload), packet->payloadLength);
        const uint32_t first = Word32(payload, 0);
        Expect(first == number && Word32(payload, payload.size() - 4) == number &&
                   packet->rtpHeader->sequenceNumber == static_cast<uint16_t>(kFirstSequenceNumber + number),
               "instead of packet " + std::to_string(number) + " comes", first);
        return RTPClientFreeRTPStreamData(*this, packet, kCodecs[stream]) == 0;
    }
    void TakeUpTo(std::size_t stream, long count) {
        while (taken[stream] < count && Expect(Take(stream), "packets missing", count - taken[stream])) {
        }
    }

    std::array<std::atomic<long>, 2> taken = {};
};

struct Holdings {
    long threads = static_cast<long>(CountThreads());
    long descriptors = static_cast<long>(CountDescriptors());
    long residentKiB = Resident();

private:
    static long Resident() {
        malloc_trim(0);                                  // what the C library keeps for later is not held by us
        std::ifstream rollup("/proc/self/smaps_rollup"); // exact, unlike what the kernel counts by the way
        long figure = 0;
        for (std::string word; figure == 0 && rollup >> word;)
            if (word == "Rss:") rollup >> figure;
        return figure;
    }
};

// Fails unless threads and descriptors are the same again and memory has grown no further; tells the figures.
void ExpectSameHoldings(const std::string &what, const Holdings &before, long mostGrowthKiB = 64) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    mostGrowthKiB = 1 << 30; // those keep for a while what is freed
#endif
    const Holdings now;
    const long growth = now.residentKiB - before.residentKiB;
    Expect(now.threads == before.threads, what + ", threads more", now.threads - before.threads);
    Expect(now.descriptors == before.descriptors, what + ", descriptors more",
           now.descriptors - before.descriptors);
    Expect(growth <= mostGrowthKiB, what + ", KiB more", growth);
    fprintf(stderr, "    %ld threads, %ld descriptors, %ld KiB (%+ld)\n", now.threads, now.descriptors,
            now.residentKiB, growth);
}

constexpr long kSettled = 100; // rounds after which a process has all it needs
constexpr int32_t kStreamRingBytes = 1 << 20;
const std::string kRate = "rate=2000"; // kbit/s of each of two streams

uint32_t ProtoOf(long at) { return at % 2 == 0 ? kUdp : kTcp; }
const char *NameOf(uint32_t proto) { return proto == kUdp ? " over UDP" : " over TCP"; }
void Rest(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

void Repeat(const std::string &what, long rounds, const std::function<void(long)> &round) {
    Holdings before;
    const double seconds = SecondsOf([&] {
        for (long at = 0; at < rounds; ++at) {
            if (at == kSettled) before = Holdings();
            round(at);
        }
    });
    fprintf(stderr, "%s: %ld in %.1f s\n", what.c_str(), rounds, seconds);
    ExpectSameHoldings(what, before);
}

void AtOnce(long threads, const std::function<void(long)> &body) {
    std::vector<std::thread> all;
    for (long at = 0; at < threads; ++at) all.emplace_back(body, at);
    for (std::thread &thread : all) thread.join();
}

void PlayOnce(uint32_t proto) {
    Player player(proto, "burst=5");
    const int32_t result = player.Reach(CLIENT_PLAYING_STATE);
    if (!Expect(result == 0, "a session's first failure", result)) return;
    for (const std::size_t stream : {0U, 1U}) player.TakeUpTo(stream, 5);
    Expect(player.Teardown() == 0, "TEARDOWN");
}

void RunCycles(long count) {
    Repeat("created and destroyed", count, [](long) { Player(kUdp, ""); });
}

void RunSessions(long count) {
    for (const uint32_t proto : {kUdp, kTcp})
        Repeat(std::string("sessions") + NameOf(proto), count, [=](long) { PlayOnce(proto); });
}

// The client's RTP port as the reply to its SETUP tells it.
long PortOfSetup(Player &player) {
    const int32_t result = player.Setup(1);
    Expect(result == 0, "SETUP", result);
    return player.Told("client_port=")[0];
}

void RunPorts(long count) {
    Player player(kUdp, "live");
    Expect(player.Reach(CLIENT_DESCRIBE_SENT_STATE) == 0, "DESCRIBE");
    long last = 0, wraps = 0;
    Repeat("SETUPs", count, [&](long) {
        const long port = PortOfSetup(player);
        Expect(port >= 2000 && port < 60000 && port % 2 == 0 && port != last, "chosen port", port);
        wraps += port < last;
        last = port;
    });
    fprintf(stderr, "    back to port 2000 %ld times\n", wraps);
    Expect(wraps >= count / 29000, "wraps", wraps);
}

void Stream(uint32_t proto, std::chrono::steady_clock::time_point end, int msUnread) {
    Player player(proto, kRate, kStreamRingBytes);
    Expect(player.Reach(CLIENT_PLAYING_STATE) == 0, "PLAY");
    std::atomic<bool> over{false};
    std::vector<std::thread> readers;
    for (const std::size_t stream : {0U, 1U})
        readers.emplace_back([&, stream] {
            Rest(msUnread);
            while (!over) player.Take(stream);
        });
    std::array<long, 2> sent = {};
    while (std::chrono::steady_clock::now() < end) {
        Rest(700);
        Expect(player.Play() == 0, "repeated PLAY");
        Rest(700);
        Expect(player.Pause() == 0, "PAUSE");
        sent = player.Told("X-Sent: ");
        Rest(200);
        Expect(player.Play() == 0, "PLAY after PAUSE");
    }
    const auto missing = [&] { return std::max(sent[0] - player.taken[0], sent[1] - player.taken[1]); };
    for (int tries = 0; tries < 50 && missing() > 0; ++tries) Rest(100);
    Expect(sent[0] > 0 && missing() <= 0, "packets missing", missing());
    over = true;
    for (std::thread &reader : readers) reader.join();
    Expect(player.Teardown() == 0, "TEARDOWN");
    fprintf(stderr, "   %s: %ld and %ld packets, %ld wraps\n", NameOf(proto), player.taken[0].load(),
            player.taken[1].load(), (kFirstSequenceNumber + player.taken[0]) / 65536);
}

void RunStream(long seconds) {
    const auto begin = std::chrono::steady_clock::now();
    const auto end = begin + std::chrono::seconds(seconds);
    // Memory grows with the longest backlog so far: the first packets wait for longer than any after them.
    const int msUnread = static_cast<int>(std::min(seconds * 100, 2000L));
    std::thread sessions([=] { AtOnce(4, [=](long at) { Stream(ProtoOf(at), end, msUnread); }); });
    std::this_thread::sleep_until(begin + std::chrono::milliseconds(seconds * 300));
    const Holdings early;
    std::this_thread::sleep_until(begin + std::chrono::milliseconds(seconds * 950));
    ExpectSameHoldings("streaming", early, seconds >= 120 ? 64 : 8 * kStreamRingBytes / 1024);
    sessions.join();
}

void TellTimes(const std::string &what, std::vector<double> ms, double share, double mostMs) {
    std::sort(ms.begin(), ms.end());
    const auto within = [&](double part) {
        return ms[static_cast<std::size_t>(part * static_cast<double>(ms.size() - 1))];
    };
    fprintf(stderr, "%s: median %.1f ms, 99 %% within %.1f ms, longest %.1f ms\n", what.c_str(), within(0.5),
            within(0.99), within(1));
    Expect(within(share) <= mostMs, what + " takes ms", static_cast<long>(within(share)));
}

// Destroy in every state, with the server dead or alive, with room in the receive buffers or none.
double MillisecondsOfDestroy(uint32_t proto, long at) {
    const auto state = static_cast<RTSPClientState>(at % 6);
    const bool isDead = at / 6 % 2 == 1 && state >= CLIENT_PLAYING_STATE, isFull = at / 12 % 2 == 1;
    Player player(proto, isDead ? "after:PLAY,burst=50" : kRate, isFull ? 2000 : 1 << 18);
    const int32_t result = player.Reach(isDead ? CLIENT_PLAYING_STATE : state);
    Expect(result == 0, "on the way to Destroy", result);
    Rest(isFull ? 20 : 1);
    return 1000 * SecondsOf([&] { Expect(player.Destroy() == 0, "RTSPClientDestroy"); });
}

void RunLimits(long count) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        std::vector<double> teardowns, destroys;
        for (long at = 0; at < count; ++at) {
            Player player(proto, kRate);
            Expect(player.Reach(CLIENT_PLAYING_STATE) == 0 && player.Take(0), "PLAY");
            teardowns.push_back(1000 * SecondsOf([&] { Expect(player.Teardown() == 0, "TEARDOWN"); }));
            destroys.push_back(MillisecondsOfDestroy(proto, at));
        }
        TellTimes(std::string("TEARDOWN") + NameOf(proto), teardowns, 0.99, proto == kUdp ? 100 : 400);
        TellTimes(std::string("Destroy") + NameOf(proto), destroys, 1, 1000);
    }
}

// Threads that set up streams at the same time; no port may be given twice.
void SetUpAtOnce(long threads, int rounds) {
    std::mutex lock;
    std::set<long> ports;
    AtOnce(threads, [&](long) {
        Player player(kUdp, "live");
        Expect(player.Reach(CLIENT_DESCRIBE_SENT_STATE) == 0, "DESCRIBE");
        for (int round = 0; round < rounds; ++round) {
            const long port = PortOfSetup(player);
            const std::lock_guard<std::mutex> guard(lock);
            Expect(ports.insert(port).second, "a port for the second time", port);
        }
    });
    Expect(std::ssize(ports) == threads * rounds, "ports", std::ssize(ports));
}

void BeACrowd(long clients) {
    AtOnce(clients, [](long at) { PlayOnce(ProtoOf(at)); });
    AtOnce(16, [](long) {
        const int32_t result = Player(kUdp, "gather=16").Reach(CLIENT_DESCRIBE_SENT_STATE);
        Expect(result == 0, "one of 16 DESCRIBEs", result);
    });
    SetUpAtOnce(64, 100);
}

// As many as are allowed at all; the server inherits it. The usual soft limit is too low for a crowd.
long RaiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<long>(std::min<rlim_t>(limit.rlim_cur, 1 << 20));
}

void RunCrowd(long clients) {
    const Holdings before;
    const long possible = RaiseDescriptorLimit();
    const long occupied = std::min(2000L, possible / 2); // where it can be, beyond what select(2) takes
    const long crowd = std::min(clients, (possible - occupied) / 16);
    BeACrowd(crowd);
    std::vector<int> descriptors;
    for (long i = 0; i < occupied; ++i) descriptors.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    Expect(descriptors.back() >= occupied, "descriptors", descriptors.back());
    BeACrowd(crowd);
    for (const int fd : descriptors) close(fd);
    fprintf(stderr, "%ld clients at once, and above %ld descriptors\n", crowd, occupied);
    ExpectSameHoldings("crowd", before, 1 << 20); // of memory the crowd's own threads take most
}

const std::map<std::string, void (*)(long number)> kCommands = {{"cycles", RunCycles}, {"sessions", RunSessions},
                                                                {"ports", RunPorts},   {"stream", RunStream},
                                                                {"limits", RunLimits}, {"crowd", RunCrowd}};

} // namespace

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    EnterOwnNetwork(); // else others may have a port, and a SETUP more is needed now and then
    RaiseDescriptorLimit();
    ChildProcess server({"python3", argv[1]});
    serverPort = static_cast<uint16_t>(atoi(server.ReadLine(std::chrono::seconds(20)).c_str()));
    mallopt(M_ARENA_MAX, 1); // what the C library sets aside for each thread would blur the figures
    if (freopen("/dev/null", "w", stdout) == nullptr) return 2;
    for (int at = 2; at + 1 < argc; at += 2) kCommands.at(argv[at])(atol(argv[at + 1]));
    if (failures > 0) fprintf(stderr, "%d failures\n", failures.load());
    return failures == 0 ? 0 : 1;
}
