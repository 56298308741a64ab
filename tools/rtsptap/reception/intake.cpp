#include "reception/intake.h"

#include <algorithm>

namespace tool {

void Intake::Begin(const std::shared_ptr<Session> &session, const std::vector<Stream> &streams) {
    End();
    session_ = session;
    for (const Stream &stream : streams) {
        if (!stream.isReadable) continue;
        auto counter = std::find_if(counters_.begin(), counters_.end(), [&stream](const Counter &candidate) {
            return candidate.stream.number == stream.number && candidate.stream.codecType == stream.codecType;
        });
        if (counter == counters_.end())
            counter = counters_.insert(counters_.end(), {.stream = stream, .statistics = {}});
        else
            counter->statistics.BeginSession();
        counter->isOpen = true;
    }
}

void Intake::Take(std::span<const RTSPTapGroupPacket> records) {
    const Clock::time_point now = Clock::now();
    for (const RTSPTapGroupPacket &record : records) {
        Counter *const counter = CounterOf(record);
        if (counter == nullptr) continue;
        if (record.packet == nullptr) {
            counter->end = record.result;
            continue;
        }
        for (const PacketObserver &observe : observers_) observe(counter->stream, *record.packet, now);
        counter->statistics.NoteArrival(now);
    }
}

Intake::Counter *Intake::CounterOf(const RTSPTapGroupPacket &record) {
    if (session_ == nullptr || !session_->IsOf(record)) return nullptr;
    const int32_t number = session_->NumberOf(record);
    const auto found = std::find_if(counters_.begin(), counters_.end(), [number](const Counter &counter) {
        return counter.isOpen && counter.stream.number == number;
    });
    return found != counters_.end() ? &*found : nullptr;
}

void Intake::End() {
    for (Counter &counter : counters_) {
        if (counter.isOpen) counter.statistics.Update(session_->Statistics(counter.stream.number));
        counter.isOpen = false;
        counter.end = 0;
    }
    session_.reset();
}

std::vector<StreamObservation> Intake::Streams() const {
    std::vector<StreamObservation> streams;
    for (const Counter &counter : counters_) {
        streams.push_back({counter.stream, counter.statistics, counter.end});
        if (counter.isOpen) streams.back().statistics.Update(session_->Statistics(counter.stream.number));
    }
    return streams;
}

} // namespace tool
