#include "reception/readers.h"

#include "base/background.h"

#include <algorithm>
#include <condition_variable>
#include <thread>

namespace tool {
namespace {

constexpr auto kPauseWithoutPacket = std::chrono::milliseconds(5);
constexpr auto kSilence = std::chrono::seconds(1);
constexpr auto kFarewell = std::chrono::milliseconds(100); // for readers of streams that flow

} // namespace

struct Readers::Counter {
    explicit Counter(const Stream &counted) : stream(counted), statistics(counted.clockRate) {}
    Stream stream;
    std::mutex lock; // guards statistics
    StreamStatistics statistics;
};

// Owns what its thread uses, since that may wait in the library when everybody else is gone.
struct Readers::Reader {
    std::shared_ptr<Session> session;
    std::shared_ptr<Counter> counter;
    std::shared_ptr<const std::vector<PacketObserver>> observers;
    std::mutex busy; // held while observers see a packet; guards stop
    std::condition_variable left;
    bool stop = false;
    bool hasLeft = false;
};

Readers::Readers(std::vector<PacketObserver> observers)
    : observers_(std::make_shared<const std::vector<PacketObserver>>(std::move(observers))) {}

void Readers::Begin(const std::shared_ptr<Session> &session, const std::vector<Stream> &streams) {
    End();
    session_ = session;
    for (const Stream &stream : streams) {
        if (!stream.isReadable) continue;
        auto counter = std::find_if(counters_.begin(), counters_.end(), [&stream](const auto &candidate) {
            return candidate->stream.number == stream.number && candidate->stream.codecType == stream.codecType;
        });
        if (counter == counters_.end()) {
            counters_.push_back(std::make_shared<Counter>(stream));
            counter = counters_.end() - 1;
        } else {
            const std::lock_guard guard((*counter)->lock);
            (*counter)->statistics.BeginSession();
        }
        const auto reader = std::make_shared<Reader>();
        reader->session = session;
        reader->counter = *counter;
        reader->observers = observers_;
        readers_.push_back(reader);
        RunInBackground([reader] { Read(*reader); });
    }
}

void Readers::End() {
    for (const auto &reader : readers_) {
        const std::lock_guard guard(reader->busy);
        reader->stop = true;
    }
    const Clock::time_point limit = Clock::now() + kFarewell;
    for (const auto &reader : readers_) {
        std::unique_lock guard(reader->busy);
        reader->left.wait_until(guard, limit, [&reader] { return reader->hasLeft; });
    }
    readers_.clear();
    session_.reset();
}

std::vector<StreamObservation> Readers::Streams() const {
    std::vector<StreamObservation> streams;
    for (const auto &counter : counters_) {
        const std::lock_guard guard(counter->lock);
        const int32_t queued = session_ != nullptr ? session_->Queued(counter->stream.codecType) : 0;
        streams.push_back({counter->stream, counter->statistics, std::max(queued, 0)});
    }
    return streams;
}

// Nothing ends the library's wait of five seconds but a packet. A stream that is silent is therefore looked at from
// time to time, so that its reader is soon gone when asked to; one that flows is waited for, to note when it
// arrives.
void Readers::Read(Reader &reader) {
    const Session &session = *reader.session;
    const Stream &stream = reader.counter->stream;
    Clock::time_point last;
    std::unique_lock busy(reader.busy);
    while (!reader.stop) {
        busy.unlock();
        const bool waits = Clock::now() - last < kSilence || session.HasPacket(stream.codecType);
        const Packet packet = waits ? session.Take(stream.codecType) : nullptr;
        const Clock::time_point now = Clock::now();
        if (packet == nullptr) std::this_thread::sleep_for(kPauseWithoutPacket);
        busy.lock();
        if (packet == nullptr || reader.stop) continue;
        last = now;
        for (const PacketObserver &observe : *reader.observers) observe(stream, *packet, now);
        const std::lock_guard guard(reader.counter->lock);
        reader.counter->statistics.Count(*packet, now);
    }
    reader.hasLeft = true;
    reader.left.notify_all();
}

} // namespace tool
