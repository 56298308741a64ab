// Packets that a bad network has lost, doubled, delayed and mixed up, against a model that says what is handed out.
// Sender and reader go in step, so that nothing depends on time: the reader takes its packets when the queue's
// figures have come to where the model says they come.
#include "tests/impair/queue_model.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/child_process.h"
#include "tests/support/session.h"
#include "tools/relay/impairment.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <map>
#include <random>
#include <sched.h>
#include <set>

namespace rtsptap::test {
namespace {

using relay::Impairment;
using relay::ImpairmentSettings;

// Up to `take` packets behind every `every` arrivals, once there have been `lead`.
struct Reader {
    int lead, every, take;
    Latency latency = {};
    int32_t ringBytes = 16 << 20;
};
const Reader kReaders[] = {
    {0, 1, 5000, {}, 8000},      // at once
    {40, 10, 10, {}, 90000},     // a little behind, in a ring that has hardly room for it
    {700, 7, 7},                 // far enough behind for the whole reorder window
    {0, 4, 1},                   // too slow: the queue comes to its limit
    {0, 8, 6, {500, 100, 1000}}, // held back, and cut down, by latency
};

// 8 packets a frame, 30 frames a second, past both wraps. One in ten has all that a header can have; one in fifty
// is ignored, one in a hundred longer than the MTU.
std::vector<std::string> Stream(uint64_t seed, int packets) {
    std::mt19937_64 random(seed);
    std::vector<std::string> stream;
    for (int i = 0; i < packets; ++i) {
        RtpPacket packet{.sequenceNumber = static_cast<uint16_t>(65536 - 1500 + i),
                         .timestamp = static_cast<uint32_t>(i / 8 * 3000) - 600000U};
        packet.payload.resize(random() % 100 == 0 ? 2500 : 1 + random() % 1400);
        for (char &byte : packet.payload) byte = static_cast<char>(random());
        if (random() % 10 == 0) {
            packet.csrc.assign(random() % 16, 7);
            packet.extension = true;
            packet.extensionData.assign(4 * (random() % 20), 'x');
            packet.padding = static_cast<unsigned>(1 + random() % 255);
        }
        if (random() % 100 == 0) packet.version = 1;
        if (random() % 100 == 0) packet.payloadType = 95;
        stream.push_back(Bytes(packet));
    }
    return stream;
}

// A stream's queue and its model, kept in step. `failure` is the first difference; nothing is done after it.
class InStep {
public:
    InStep(intptr_t theClient, uint16_t thePort, const Reader &theReader, uint32_t counter = 0)
        : client(theClient), port(thePort), reader(theReader), model{theReader.latency, counter} {}

    // Figures that come twice do not tell how far the queue is: before the second time it is waited for.
    void Deliver(const std::string &datagram) {
        const QueueFigures before = Predicted();
        model.Arrive(datagram);
        const bool isNew = Predicted() == before || seen.insert(Predicted()).second;
        if (!isNew || ++underWay > kMostUnderWay) {
            Await(before);
            seen = {before, Predicted()};
        }
        sender.SendTo(port, datagram);
        ReadInTurn();
    }

    // For the one packet sent before; what it became is in `datagrams`.
    void Expect(const std::vector<std::string> &datagrams) {
        for (const std::string &datagram : datagrams) model.Arrive(datagram);
        if (++underWay > kMostUnderWay) Await(Predicted());
        for (std::size_t i = 0; i < datagrams.size(); ++i) ReadInTurn();
    }

    void Drain() {
        Await(Predicted());
        RTPClientConfigLatency(client, 0, 0, 0);
        model.latency = {};
        Read(1 << 20);
        Await(Predicted());
    }

    QueueModel &Model() { return model; }
    const UdpPeer sender;
    std::string failure;
    uint64_t taken = 0;

private:
    static constexpr int kMostUnderWay = 32;           // what a socket's buffer holds for certain
    using QueueFigures = std::pair<uint32_t, int32_t>; // the head's index, the count of packets

    QueueFigures Predicted() const { return {model.HeadIndex(), model.count}; }

    void Await(const QueueFigures &wanted) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        underWay = 0;
        while (failure.empty()) {
            const QueueFigures now{RTPClientGetStreamPktCount(client, kVideo),
                                   RTPClientGetNbOfPktInBuffer(client, kVideo)};
            if (now == wanted) return;
            sched_yield();
            Check(std::chrono::steady_clock::now() < end,
                  "head " + std::to_string(now.first) + " of " + std::to_string(now.second) + ", not " +
                      std::to_string(wanted.first) + " of " + std::to_string(wanted.second));
        }
    }

    void ReadInTurn() {
        if (++arrivals > reader.lead && arrivals % reader.every == 0) Read(reader.take);
    }

    void Read(int most) {
        const bool waitsInGet = reader.every == 1; // for the one packet on its way
        if (!waitsInGet) Await(Predicted());
        for (int i = 0; i < most && failure.empty() && !model.queue.empty(); ++i) {
            RTPStreamData *packet = waitsInGet ? TakePacket(client, kVideo) : nullptr;
            const bool refused = packet == nullptr && RTPClientGetRTPStreamData(client, &packet, kVideo) != 0;
            if (model.HoldsBack()) return Check(refused, "not held back");
            if (packet == nullptr) return Check(false, "no packet");
            Compare(*packet, model.Take());
            RTPClientFreeRTPStreamData(client, packet, kVideo);
            ++taken;
        }
        seen = {Predicted()};
    }

    void Compare(const RTPStreamData &packet, const ModelPacket &expected) {
        const std::string bytes(reinterpret_cast<const char *>(packet.packetData), packet.packetLength);
        Check(packet.rtpHeader->sequenceNumber == expected.number,
              "number " + std::to_string(packet.rtpHeader->sequenceNumber) + ", not " +
                  std::to_string(expected.number));
        Check(bytes == expected.datagram && PayloadOf(packet) == expected.payload, "other bytes");
        Check(packet.packetIndex == expected.index && packet.lossFlag == expected.lossFlag, "index or loss flag");
    }

    void Check(bool holds, const std::string &what) {
        if (!holds && failure.empty())
            failure = what + " (arrivals " + std::to_string(arrivals) + ", taken " + std::to_string(taken) + ")";
    }

    const intptr_t client;
    const uint16_t port;
    const Reader reader;
    QueueModel model;
    std::set<QueueFigures> seen;
    int underWay = 0;
    long arrivals = 0;
};

// Summed over the runs of a test and told at its end.
struct Figures {
    std::map<std::string, uint64_t> sums;

    void Add(const Impairment &network, InStep &step) {
        const QueueModel &model = step.Model();
        const std::pair<const char *, uint64_t> figures[] = {{"runs", 1},
                                                             {"sent", network.arrived},
                                                             {"lost", network.lost},
                                                             {"doubled", network.duplicated},
                                                             {"held back", network.heldBack},
                                                             {"ignored", model.ignored},
                                                             {"placed by number", model.late},
                                                             {"cut for latency", model.trimmed},
                                                             {"dropped at the limit", model.dropped},
                                                             {"handed out and compared", step.taken}};
        for (const auto &[name, value] : figures) sums[name] += value;
    }
    ~Figures() {
        for (const auto &[name, value] : sums) fprintf(stderr, "%s %lu\n", name.c_str(), value);
    }
};

// The first difference, or nothing.
std::string RunInStep(const ImpairmentSettings &settings, const Reader &reader, int packets, Figures &figures) {
    CapturedStdout out;
    const Client client;
    const uint16_t port = UdpPeer().Port(); // was free a moment ago
    const Latency &latency = reader.latency;
    if (StartThirdPartyClient(client, 1, kVideo, port, reader.ringBytes, 0, 0, 0, latency.target, latency.underflow,
                              latency.overflow) != 0)
        return "no start";
    InStep step(client, port, reader);
    step.Model().mtu = 2000;
    RTSPClientSetMTUSize(client, 2000);
    Impairment network(settings);
    const auto deliver = [&](int64_t nowUs) {
        for (const std::string &datagram : network.Depart(nowUs)) step.Deliver(datagram);
    };
    int64_t nowUs = 0;
    for (const std::string &packet : Stream(settings.seed, packets)) {
        network.Arrive(nowUs += 4167, packet); // 240 a second
        deliver(nowUs);
    }
    deliver(INT64_MAX);
    step.Drain();
    figures.Add(network, step);
    const uint64_t lines = CountOf(out.Text(), "Reordering :: ");
    if (step.failure.empty() && lines != step.Model().passed) return std::to_string(lines) + " lines of reordering";
    return step.failure;
}

} // namespace

TEST(Impairment, HandsOutWhatTheRulesSay) {
    const struct {
        double duplicatePercent;
        int lossRun, jitterMs, burst;
    } kRoughness[] = {{0, 1, 0, 1}, {10, 20, 0, 64}, {2, 1, 200, 1}};
    const int kDepths[] = {0, 3, 50, 499, 500};
    const double kLosses[] = {0, 1, 5, 20};
    const bool isLong = LongForm();
    Figures figures;
    for (std::size_t i = 0; i < 60; i += isLong ? 1 : 7)
        for (uint64_t seed = 1; seed <= (isLong ? 3 : 1); ++seed) {
            const auto &rough = kRoughness[i % 3];
            const std::size_t depth = i / 3 % 5;
            const std::size_t loss = i / 15;
            // Every depth and every roughness meets every reader.
            const std::size_t reader = (loss + 2 * (i % 3) + depth) % 5;
            const ImpairmentSettings settings{
                kLosses[loss], rough.lossRun, rough.duplicatePercent, 5, kDepths[depth], rough.jitterMs,
                rough.burst,   seed};
            EXPECT_EQ(RunInStep(settings, kReaders[reader], isLong ? 20000 : 2000, figures), "")
                << "loss " << kLosses[loss] << ", depth " << kDepths[depth] << ", roughness " << i % 3
                << ", reader " << reader << ", seed " << seed;
        }
}

#ifdef RELAY
TEST(Impairment, HoldsForASessionThroughTheRelay) {
    const UdpPeer rtcp;
    Figures figures;
    for (uint64_t seed = 1; seed <= (LongForm() ? 3 : 1); ++seed) {
        ScriptedServer server({{"DESCRIBE ", WithBody(kDescription)},
                               {"SETUP ", SetupReply(1, kUdp, rtcp.Port())},
                               {"PLAY ", Ok()},
                               {"TEARDOWN ", Ok()}});
        ChildProcess relay({RELAY, "--rtsp", server.Expand("127.0.0.1:{port}"), "--loss", "5", "--duplicate", "5",
                            "--reorder", "5", "--depth", "499", "--seed", std::to_string(seed)});
        const std::string line = relay.ReadLine(std::chrono::seconds(10));
        const auto port = static_cast<uint16_t>(std::stoi(line.substr(line.rfind(' '))));
        const Client client(16 << 20);
        EXPECT_EQ(RTSPClientConnect(client, "127.0.0.1", port, "live", kUdp, 0), 0);
        EXPECT_EQ(RTSPClientSendDescribeRequest(client, 0, nullptr, nullptr), 0);
        EXPECT_EQ(RTSPClientSendSetupRequest(client, 1, 0, nullptr, nullptr), 0);
        EXPECT_EQ(RTSPClientSendPlayRequest(client, 1, 0, nullptr, nullptr), 0);
        const std::string setup = server.Requests().at(1);
        const auto entry = static_cast<uint16_t>(std::stoi(setup.substr(setup.find("client_port=") + 12)));

        CapturedStdout out;
        InStep step(client, entry, kReaders[2], 1);
        Impairment network({5, 1, 5, 5, 499, 0, 1, seed});
        for (const std::string &packet : Stream(seed, LongForm() ? 20000 : 2000)) {
            step.sender.SendTo(entry, packet);
            network.Arrive(0, packet);
            step.Expect(network.Depart(0));
        }
        step.Drain();
        EXPECT_EQ(step.failure, "") << "seed " << seed;
        rtcp.SendTo(static_cast<uint16_t>(entry + 1), SenderReport());
        EXPECT_GE(rtcp.Receive().size(), 32U); // our report, on its way back
        EXPECT_EQ(RTSPClientSendTeardownRequest(client, 0, nullptr, nullptr), 0);
        relay.Signal(SIGTERM);
        EXPECT_EQ(relay.Wait(std::chrono::seconds(10)), 0);
        EXPECT_TRUE(relay.Errors().starts_with("packets " + std::to_string(network.arrived) + ", lost " +
                                               std::to_string(network.lost) + ","))
            << relay.Errors();
        figures.Add(network, step);
    }
}
#endif

} // namespace rtsptap::test
