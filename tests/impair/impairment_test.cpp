// Packets that a bad network has lost, doubled, delayed and mixed up, against a model that says what is handed out.
// Sender and reader go in step, without a thread, so that nothing depends on time.
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"
#include "tools/relay/impairment.h"

#include <deque>
#include <set>

namespace rtsptap::test {
namespace {

// ---- A second statement of the rules by which a stream's queue places, drops and holds back packets. It shares no
// code with the library and no structure either: one flat list, every rule spelt out on it. ----

struct Latency { // ms, as RTPClientConfigLatency takes them
    int32_t target = 0, underflow = 0, overflow = 0;
};

struct ModelPacket {
    std::string datagram;
    uint16_t number;
    uint32_t timestamp;
    uint32_t index; // packetIndex
    bool lossFlag;
    std::string payload;
};

struct QueueModel {
    Latency latency;
    uint32_t counter = 0; // the client's packetCounter
    std::size_t mtu = 33000;
    std::deque<ModelPacket> queue = {};
    int32_t count = 0; // what RTPClientGetNbOfPktInBuffer tells
    uint16_t lastNumber = 0;
    uint64_t passed = 0; // so far, by those that are late

    void Arrive(const std::string &datagram);
    bool HoldsBack() const; // the head, if there is one
    ModelPacket Take();
    uint32_t HeadIndex() const { return queue.empty() ? 0 : queue.front().index; }
};

constexpr int64_t kTicks = 90; // for audio, too

uint32_t Byte(const std::string &bytes, std::size_t at) { return static_cast<uint8_t>(bytes.at(at)); }

std::string PayloadIn(const std::string &datagram) {
    const uint32_t first = Byte(datagram, 0);
    std::size_t begin = 12 + 4 * (first % 16);
    if (first & 0x10) begin += 4 + 4 * Word16(datagram, begin + 2);
    const std::size_t padding = first & 0x20 ? Byte(datagram, datagram.size() - 1) : 0;
    return datagram.substr(begin, datagram.size() - begin - padding);
}

bool IsAccepted(const std::string &datagram) {
    const uint32_t type = Byte(datagram, 1) % 128;
    return Byte(datagram, 0) >> 6 == 2 && (type >= 96 || std::set{0U, 8U, 10U, 11U, 14U, 26U, 33U}.contains(type));
}

int64_t Span(uint32_t newer, uint32_t older) { return static_cast<int32_t>(newer - older); }

void QueueModel::Arrive(const std::string &datagram) {
    if (!IsAccepted(datagram)) return;
    const auto number = Word16(datagram, 2);
    const uint32_t timestamp = Word32(datagram, 4);
    const uint16_t before = std::exchange(lastNumber, number);
    const bool gap = before != 0 && number != (before + 1) % 65536; // behind number 0 nothing is a gap
    const std::string stored = datagram.substr(0, mtu);             // the rest of a longer one is lost
    ModelPacket packet{stored, number, timestamp, ++counter, gap, PayloadIn(stored)};

    // Too long a span is cut down to the target.
    if (latency.target != 0 && !queue.empty() &&
        Span(timestamp, queue.front().timestamp) > latency.overflow * kTicks)
        while (!queue.empty() && Span(timestamp, queue.front().timestamp) > latency.target * kTicks) Take();

    // A number up to 499 below the newest goes before all that are greater; from 500 on it has wrapped.
    auto place = queue.end();
    if (!queue.empty() && number < queue.back().number && queue.back().number - number < 500) {
        for (; place != queue.begin() && std::prev(place)->number > number; --place) ++passed;
    }

    // At 1024 the oldest makes room, the new one goes to the end and is not counted.
    if (count == 1024) {
        Take();
        queue.push_back(std::move(packet));
    } else {
        queue.insert(place, std::move(packet));
        ++count;
    }
}

bool QueueModel::HoldsBack() const {
    return latency.target != 0 &&
           Span(queue.back().timestamp, queue.front().timestamp) <= latency.underflow * kTicks;
}

ModelPacket QueueModel::Take() {
    ModelPacket packet = std::move(queue.front());
    queue.pop_front();
    --count;
    return packet;
}

// ---- Both in step ----

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
class InStep : public LiveStream {
public:
    explicit InStep(const Reader &theReader)
        : LiveStream(theReader.ringBytes), reader(theReader), model{theReader.latency} {
        session.mtuSize = static_cast<uint32_t>(model.mtu = 2000);
        RTPClientConfigLatency(Handle(), model.latency.target, model.latency.underflow, model.latency.overflow);
    }

    void Deliver(const std::string &datagram) {
        model.Arrive(datagram);
        Arrive({datagram.begin(), datagram.begin() + std::ssize(datagram.substr(0, model.mtu))});
        CompareFigures();
        if (++arrivals > reader.lead && arrivals % reader.every == 0) Read(reader.take);
    }

    void DrainAll() {
        RTPClientConfigLatency(Handle(), 0, 0, 0);
        model.latency = {};
        Read(1 << 20);
        CompareFigures();
    }

    const Reader reader;
    QueueModel model;
    std::string failure;
    uint64_t taken = 0;

private:
    void Read(int most) {
        for (int i = 0; i < most && failure.empty() && !model.queue.empty(); ++i) {
            RTPStreamData *const packet = Get();
            if (model.HoldsBack()) return Check(packet == nullptr, "not held back");
            if (packet == nullptr) return Check(false, "no packet");
            Compare(*packet, model.Take());
            Free(packet);
            ++taken;
        }
    }

    void CompareFigures() {
        Check(static_cast<uint32_t>(RTPClientGetStreamPktCount(Handle(), kVideo)) == model.HeadIndex() &&
                  RTPClientGetNbOfPktInBuffer(Handle(), kVideo) == model.count,
              "other figures");
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

    long arrivals = 0;
};

// The first difference, or nothing.
std::string RunInStep(const ImpairmentSettings &settings, const Reader &reader, int packets, uint64_t &compared) {
    CapturedStdout out;
    InStep step(reader);
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
    step.DrainAll();
    compared += step.taken;
    const uint64_t lines = CountOf(out.Text(), "Reordering :: ");
    if (step.failure.empty() && lines != step.model.passed) return std::to_string(lines) + " lines of reordering";
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
    uint64_t compared = 0;
    for (std::size_t i = 0; i < 60; i += isLong ? 1 : 7)
        for (uint64_t seed = 1; seed <= (isLong ? 3 : 1); ++seed) {
            const auto &rough = kRoughness[i % 3];
            const std::size_t depth = i / 3 % 5, loss = i / 15;
            // Every depth and every roughness meets every reader.
            const std::size_t reader = (loss + 2 * (i % 3) + depth) % 5;
            const ImpairmentSettings settings{
                kLosses[loss], rough.lossRun, rough.duplicatePercent, 5, kDepths[depth], rough.jitterMs,
                rough.burst,   seed};
            EXPECT_EQ(RunInStep(settings, kReaders[reader], isLong ? 20000 : 2000, compared), "")
                << "loss " << kLosses[loss] << ", depth " << kDepths[depth] << ", roughness " << i % 3
                << ", reader " << reader << ", seed " << seed;
        }
    fprintf(stderr, "%lu packets handed out and compared\n", compared);
}

} // namespace rtsptap::test
