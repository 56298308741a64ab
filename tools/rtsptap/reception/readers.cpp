#include "reception/readers.h"

#include "rtsptap_extended.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <thread>

namespace tool {
namespace {

constexpr std::size_t kMostAtOnce = 64; // packets
constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kPauseAtTheEnd = std::chrono::milliseconds(20);

} // namespace

struct Readers::Counter {
    explicit Counter(const Stream &counted) : stream(counted) {}
    Stream stream;
    std::mutex lock; // guards statistics
    StreamStatistics statistics;
};

struct Readers::Reader {
    Reader(const Session &of, Counter &counts, const std::vector<PacketObserver> &shown)
        : session(of), counter(counts), observers(shown), thread(&Readers::Read, std::ref(*this)) {}

    const Session &session;
    Counter &counter;
    const std::vector<PacketObserver> &observers;
    std::atomic<bool> stop{false};
    std::atomic<int32_t> end{0}; // as in StreamObservation
    std::thread thread;          // the last member: it uses those above
};

Readers::Readers(std::vector<PacketObserver> observers) : observers_(std::move(observers)) {}

Readers::~Readers() { End(); }

void Readers::Begin(const std::shared_ptr<Session> &session, const std::vector<Stream> &streams) {
    End();
    session_ = session;
    for (const Stream &stream : streams) {
        if (!stream.isReadable) continue;
        auto counter = std::find_if(counters_.begin(), counters_.end(), [&stream](const auto &candidate) {
            return candidate->stream.number == stream.number && candidate->stream.codecType == stream.codecType;
        });
        if (counter == counters_.end()) {
            counters_.push_back(std::make_unique<Counter>(stream));
            counter = counters_.end() - 1;
        } else {
            const std::lock_guard guard((*counter)->lock);
            (*counter)->statistics.BeginSession();
        }
        readers_.push_back(std::make_unique<Reader>(*session_, **counter, observers_));
    }
}

// One that waits is woken.
void Readers::End() {
    for (const auto &reader : readers_) reader->stop = true;
    if (session_ != nullptr) session_->EndWaits();
    for (const auto &reader : readers_) {
        reader->thread.join();
        reader->counter.statistics.Update(session_->Statistics(reader->counter.stream.number));
    }
    readers_.clear();
    session_.reset();
}

std::vector<StreamObservation> Readers::Streams() const {
    std::vector<StreamObservation> streams;
    for (const auto &counter : counters_) {
        const std::lock_guard guard(counter->lock);
        const auto reader = std::find_if(readers_.begin(), readers_.end(), [&counter](const auto &candidate) {
            return &candidate->counter == counter.get();
        });
        if (reader != readers_.end()) counter->statistics.Update(session_->Statistics(counter->stream.number));
        streams.push_back(
            {counter->stream, counter->statistics, reader != readers_.end() ? (*reader)->end.load() : 0});
    }
    return streams;
}

// The library tells of an end with every call, and gives what comes behind it all the same.
void Readers::Read(Reader &reader) {
    std::array<RTPStreamData *, kMostAtOnce> room;
    const Session &session = reader.session;
    const Stream &stream = reader.counter.stream;
    while (!reader.stop) {
        const int32_t count = session.Take(stream.number, room, kPatience);
        const Clock::time_point now = Clock::now();
        if (count > 0)
            Show(reader, {room.data(), static_cast<std::size_t>(count)}, now);
        else if (count < 0 && count != RTSPTAP_INTERRUPTED)
            std::this_thread::sleep_for(kPauseAtTheEnd);
        if (count != RTSPTAP_INTERRUPTED) reader.end = std::min(count, 0);
    }
}

void Readers::Show(Reader &reader, std::span<RTPStreamData *const> packets, Clock::time_point now) {
    const Stream &stream = reader.counter.stream;
    for (const RTPStreamData *packet : packets) {
        for (const PacketObserver &observe : reader.observers)
            if (!reader.stop) observe(stream, *packet, now);
        if (reader.stop) break;
    }
    reader.session.GiveBack(stream.number, packets);
    const std::lock_guard guard(reader.counter.lock);
    reader.counter.statistics.NoteArrival(now);
}

} // namespace tool
