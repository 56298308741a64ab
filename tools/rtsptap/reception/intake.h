// What comes of sessions, one after the other: every packet is shown to who observes them, and counted.
#pragma once

#include "reception/observation.h"
#include "reception/statistics.h"
#include "session/session.h"

#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace tool {

// Sees every packet before it goes back.
using PacketObserver = std::function<void(const Stream &, const RTPStreamData &, Clock::time_point arrival)>;

class Intake {
public:
    explicit Intake(std::vector<PacketObserver> observers) : observers_(std::move(observers)) {}

    // Goes on counting where an earlier session ended. Unreadable streams are left out.
    void Begin(const std::shared_ptr<Session> &session, const std::vector<Stream> &streams);

    // Those of the session; others are passed over.
    void Take(std::span<const RTSPTapGroupPacket> records);

    void End(); // takes nothing afterwards

    std::vector<StreamObservation> Streams() const;

private:
    struct Counter {
        Stream stream;
        StreamStatistics statistics;
        int32_t end = 0;     // as in StreamObservation
        bool isOpen = false; // the session has it
    };
    Counter *CounterOf(const RTSPTapGroupPacket &record);

    const std::vector<PacketObserver> observers_;
    std::shared_ptr<Session> session_;
    std::vector<Counter> counters_; // over all sessions
};

} // namespace tool
