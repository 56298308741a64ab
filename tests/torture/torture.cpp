// Sessions in which one call of the library to the system fails: each kind of call, and of each kind every one that
// the session makes. Whatever fails, each function returns a code that the header names, no wait goes past its
// limit, and after RTSPClientDestroy nothing is left.
//
//     rtsptap_torture answering_server.py sessions.txt short | NAME | K/N (every Nth session from the Kth on)
#include "rtsp/client/stream_sockets.h"
#include "tests/support/calls.h"
#include "tests/support/packet_builder.h"
#include "tests/support/process.h"
#include "tests/torture/system_calls.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace {

using namespace torture;
using namespace rtsptap::test;

// A line of sessions.txt.
struct Scenario {
    char name[64] = {}, proto[8] = {}, path[64] = {}, acts[128] = {};
    int32_t firstFailure = 0;
    bool isShort = false;
};

struct Plan {
    std::vector<Scenario> scenarios;
    std::vector<std::pair<Fault, bool>> faults;                           // and whether it is the first of its line
    std::vector<std::pair<std::string, std::vector<int32_t>>> documented; // acts and what they may give
    std::multimap<char, std::string> calls;                               // of an act, in order
};

int EffectOf(const std::string &word) {
    for (int error = 1; error < 200; ++error)
        if (const char *const name = strerrorname_np(error); name != nullptr && word == name) return error;
    return word == "strikes" ? kStrikes : word == "short" ? kShort : word == "nothing" ? kNothing : std::stoi(word);
}

Plan ReadPlan(const char *file) {
    Plan plan;
    std::ifstream lines(file);
    bool isShort = true;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string what, key, word;
        bool isFirst = true;
        words >> what >> key;
        if (what == "code") plan.documented.push_back({key, {std::istream_iterator<int32_t>(words), {}}});
        while ((what == "fault" || what == "again") && words >> word)
            plan.faults.push_back({{key, EffectOf(word), what == "again"}, isFirst}), isFirst = false;
        if (what == "act") plan.calls.emplace(key[0], line.substr(6));
        if (line.empty()) isShort = false;
        Scenario next{.isShort = isShort};
        if (sscanf(line.c_str(), "%63[^;#]; %7[^;]; %63[^; ] ; %127[^;]; %d", next.name, next.proto, next.path,
                   next.acts, &next.firstFailure) == 5)
            plan.scenarios.push_back(next);
    }
    return plan;
}

Plan plan;
constexpr uint16_t kPort = 61000; // of standalone reception, and the two above it, in sessions.txt, too
constexpr int32_t kCodecs[] = {0, RTP_CODEC_H264, RTP_CODEC_MPEG4_GENERIC, RTP_CODEC_JPEG};
constexpr int32_t kUnheardOf = -1000;
constexpr unsigned kWatchdogSeconds = 60;
uint16_t serverPort = 0;

struct Run {
    explicit Run(const Scenario &scenario) : proto(strcmp(scenario.proto, "TCP") == 0) {
        words.names = {{"{path}", scenario.path}, {"{port}", std::to_string(serverPort)}};
    }

    intptr_t client = 0;
    intptr_t list = 0;
    bool proto;
    std::vector<RTPStreamData *> held = {};
    std::vector<RTPStreamData *> numbered[3] = {}; // by stream
    Words words;
};

bool IsDocumented(char act, int32_t result) {
    return result >= 0 || std::ranges::any_of(plan.documented, [=](const auto &row) {
               return row.first.find(act) != row.first.npos && std::ranges::count(row.second, result) > 0;
           });
}

int32_t Take(Run &run, int32_t stream, bool hold) {
    RTPStreamData *packet = nullptr;
    const int32_t result = RTPClientGetRTPStreamData(run.client, &packet, kCodecs[stream]);
    if (packet == nullptr) return result;
    if (hold)
        run.held.push_back(packet);
    else if (RTPClientFreeRTPStreamData(run.client, packet, packet->codecType) != 0)
        return kUnheardOf;
    return result;
}

// All that a batch has room for; one in two is kept, and the others go back first.
int32_t TakeByNumber(Run &run, int32_t stream) {
    RTPStreamData *packets[4] = {};
    const int32_t count = RTSPTapTakePackets(run.client, stream, packets, 4, 200);
    for (int32_t i = 0; i < count; i += 2) run.numbered[stream].push_back(packets[i]);
    for (int32_t i = 1; i < count; i += 2)
        if (RTSPTapFreePackets(run.client, stream, packets + i, 1) != 0) return kUnheardOf;
    return count;
}

int32_t LookAtParameterSet(Run &run, int32_t) {
    const RTSPStreamDescription *const is = RTSPClientGetSDPInfo(run.client, 1);
    const bool isCut = is != nullptr && is->spsSize > 0 && is->sps[is->spsSize - 1] == 0; // it ends in another byte
    return isCut ? kUnheardOf : 0;
}

int32_t MakeList(Run &run, int32_t) {
    run.list = RTSPCreateHeaderList();
    return run.list < 0 ? static_cast<int32_t>(std::exchange(run.list, 0)) : 0;
}

int32_t SendToStandalone(Run &, int32_t) {
    for (uint16_t i = 0; i < 9; ++i) UdpPeer().SendTo(static_cast<uint16_t>(kPort + i % 3), Rtp(i));
    return 0;
}

int32_t GoOn(Run &run, int32_t) {
    int32_t result = 0;
    while ((result = RTSPTapProgress(run.client)) == RTSPTAP_PENDING) usleep(100);
    return result;
}

// A byte stream that reads ahead, and takes little at a time.
struct ReadAhead {
    int32_t socket;
    bool stands = false;
    uint32_t at = 0, end = 0;
    uint8_t bytes[100] = {};
};
ReadAhead &Of(void *stream) { return *static_cast<ReadAhead *>(stream); }

int32_t ReadSome(void *stream, void *to, uint32_t count) {
    ReadAhead &is = Of(stream);
    if (is.at == is.end) {
        const ssize_t came = recv(is.socket, is.bytes, sizeof is.bytes, MSG_DONTWAIT);
        if (came <= 0) return static_cast<int32_t>(came);
        is.at = 0, is.end = static_cast<uint32_t>(came);
    }
    count = std::min(count, is.end - is.at);
    memcpy(to, is.bytes + std::exchange(is.at, is.at + count), count);
    return static_cast<int32_t>(count);
}

int32_t ReadAheadFromNowOn(Run &run, int32_t) {
    static constexpr RTSPTapByteStream kTable = {
        .recordSize = sizeof kTable,
        .open = [](void *, int32_t socket, const char *) -> void * { return new ReadAhead{socket}; },
        .handshake = [](void *stream) -> int32_t { return std::exchange(Of(stream).stands, true) ? 0 : 1; },
        .read = ReadSome,
        .write = [](void *stream, const void *bytes, uint32_t count) -> int32_t {
            if (count == 0) return 0;
            const auto some = std::min<size_t>(count, 50);
            return static_cast<int32_t>(send(Of(stream).socket, bytes, some, MSG_DONTWAIT | MSG_NOSIGNAL));
        },
        .pending = [](void *stream) { return Of(stream).end - Of(stream).at; },
        .wanted = [](void *, int32_t wait, int32_t *) -> int32_t {
            return wait == RTSPTAP_STREAM_READING ? POLLIN : POLLOUT;
        },
        .failure = nullptr,
        .leave = nullptr,
        .close = [](void *stream) { delete &Of(stream); },
        .release = nullptr};
    return RTSPTapSetByteStream(run.client, RTSPTAP_STREAM_OF_RTSP, &kTable, nullptr);
}

// What is not a call alone; those are in sessions.txt.
const std::map<char, int32_t (*)(Run &run, int32_t n)> kActs = {
    {'g', [](Run &run, int32_t n) { return Take(run, n, false); }},
    {'h', [](Run &run, int32_t n) { return Take(run, n, true); }},
    {'n', TakeByNumber},
    {'G', GoOn},
    {'B', ReadAheadFromNowOn},
    {'q', LookAtParameterSet},
    {'l', MakeList},
    {'y', SendToStandalone},
    {'b', [](Run &run, int32_t) { return run.words.room = 10, 0; }},
    {'P', [](Run &run, int32_t) { return run.proto = !run.proto, 0; }},
    {'w', [](Run &, int32_t) { return usleep(20000); }},
};

int32_t Perform(Run &run, char letter, int32_t n) {
    int32_t result = kActs.contains(letter) ? kActs.at(letter)(run, n) : 0;
    auto &names = run.words.names;
    names["{client}"] = std::to_string(run.client);
    names["{list}"] = std::to_string(run.list);
    names["{proto}"] = std::to_string(run.proto);
    names["{transport}"] = std::to_string(run.proto ? RTSPTAP_TRANSPORT_TCP : RTSPTAP_TRANSPORT_UDP);
    names["{n}"] = std::to_string(n);
    names["{codec}"] = std::to_string(kCodecs[n % 4]);
    const auto [first, end] = plan.calls.equal_range(letter);
    for (auto call = first; call != end; ++call)
        if (const auto code = static_cast<int32_t>(run.words.Call(call->second)); result >= 0) result = code;
    return result;
}

char current[200]; // what is going on, for the watchdog

[[noreturn]] void TellAndAbort(int) {
    const ssize_t written = write(STDERR_FILENO, current, strlen(current));
    abort();
    (void)written;
}

int findings = 0;

void Tell(const char *what, int32_t code) {
    ++findings;
    fprintf(stderr, "%s: %s %d\n", current, what, code);
}

// The first failure, 0 when there is none.
int32_t PerformAll(Run &run, const char *acts) {
    run.client = RTSPClientCreate();
    if (run.client <= 0) {
        const auto code = static_cast<int32_t>(run.client);
        if (code != -98 && code != -78 && code != -77 && code != -76) Tell("RTSPClientCreate gives", code);
        return code;
    }
    RTPClientSetAudioVideoBufferSize(run.client, 1 << 16, 1 << 16);
    int32_t firstFailure = 0;
    for (const char *at = acts; *at != '\0'; ++at) {
        if (*at == ' ' || isdigit(*at)) continue;
        const int32_t result = Perform(run, *at, at[1] - '0');
        if (!IsDocumented(*at, result)) Tell((std::string("act ") + *at + " gives").c_str(), result);
        if (firstFailure == 0 && result < 0 && *at != 'q') firstFailure = result; // no answer is none
    }
    for (RTPStreamData *const packet : run.held)
        if (RTPClientFreeRTPStreamData(run.client, packet, packet->codecType) != 0) Tell("a held packet stays", 0);
    for (int32_t stream : {1, 2}) {
        std::vector<RTPStreamData *> &packets = run.numbered[stream];
        std::ranges::reverse(packets);
        const auto count = static_cast<int32_t>(packets.size());
        if (RTSPTapFreePackets(run.client, stream, packets.data(), count) != 0) Tell("a held packet stays", 0);
    }
    if (run.list != 0) RTSPDestroyHeaderList(run.list);
    if (const int32_t result = RTSPClientDestroy(run.client); result != 0) Tell("RTSPClientDestroy gives", result);
    return firstFailure;
}

int32_t RunOnce(const Scenario &scenario, const Fault &fault, long nth) {
    snprintf(current, sizeof current, "%s, %s %ld (%d)", scenario.name, fault.call.c_str(), nth, fault.effect);
    alarm(kWatchdogSeconds);
    Run run(scenario);
    torture::Arm(fault, nth);
    const int32_t firstFailure = PerformAll(run, scenario.acts);
    if (const char *const complaint = torture::Complaint(); *complaint != '\0') Tell(complaint, 0);
    return firstFailure;
}

void RunUnharmed(const Scenario &scenario) {
    const int32_t code = RunOnce(scenario, {"nothing", 0}, 0);
    if (code != scenario.firstFailure) Tell("gives", code);
}

// Every fault at every call that the scenario makes, or only the first fault of each call; the number of runs.
long Torment(const Scenario &scenario, bool onlyFirst) {
    long runs = 2;
    RunUnharmed(scenario);
    for (const auto &[fault, isFirst] : plan.faults)
        for (long nth = 0; (isFirst || !onlyFirst) && (nth == 0 || torture::HasStruck()); ++nth, ++runs) {
            const int32_t code = RunOnce(scenario, fault, nth);
            if (fault.isRepeated && code != scenario.firstFailure) Tell("an interrupted receive gives", code);
        }
    RunUnharmed(scenario); // nothing stays behind in the process either
    fprintf(stderr, "%s %ld runs\n", scenario.name, runs);
    return runs;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) return 2;
    const std::string wanted = argv[3];
    std::size_t first = 0, step = 0;
    sscanf(argv[3], "%zu/%zu", &first, &step);
    const bool ownNetwork = EnterOwnNetwork();
    if (!ownNetwork) rtsptap::gblClientRtspUdpPort = static_cast<uint16_t>(4000 + getpid() % 500 * 56);
    ChildProcess server({"python3", argv[1]});
    serverPort = static_cast<uint16_t>(atoi(server.ReadLine(std::chrono::seconds(20)).c_str()));
    signal(SIGALRM, TellAndAbort);
    if (freopen("/dev/null", "w", stdout) == nullptr) return 2;

    long runs = 0;
    plan = ReadPlan(argv[2]);
    for (std::size_t at = 0; at < plan.scenarios.size(); ++at) {
        const Scenario &scenario = plan.scenarios[at];
        const bool isWanted = wanted == "short" ? scenario.isShort : std::string(scenario.name).starts_with(wanted);
        if (!isWanted && (step == 0 || at % step != first)) continue;
        if (!ownNetwork && strcmp(scenario.path, "group") == 0) continue;
        runs += Torment(scenario, wanted == "short");
    }
    fprintf(stderr, "%ld runs, %d findings\n", runs, findings);
    return findings == 0 && runs > 0 ? 0 : 1;
}
