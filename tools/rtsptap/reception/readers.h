// Takes the packets of sessions, one after the other, with one reading thread per stream, and counts them.
#pragma once

#include "reception/observation.h"
#include "reception/statistics.h"
#include "session/session.h"

#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace tool {

// Sees every packet before it is freed, on the thread that reads its stream.
using PacketObserver = std::function<void(const Stream &, const RTPStreamData &, Clock::time_point arrival)>;

class Readers {
public:
    explicit Readers(std::vector<PacketObserver> observers = {});
    ~Readers();
    Readers(const Readers &) = delete;
    Readers &operator=(const Readers &) = delete;

    // Goes on counting where an earlier session ended. Unreadable streams are left out.
    void Begin(const std::shared_ptr<Session> &session, const std::vector<Stream> &streams);

    void End(); // no observer runs afterwards

    std::vector<StreamObservation> Streams() const; // at any time

private:
    struct Counter;
    struct Reader;
    static void Read(Reader &reader);
    static void Show(Reader &reader, std::span<RTPStreamData *const> packets, Clock::time_point now);

    const std::vector<PacketObserver> observers_;
    std::shared_ptr<Session> session_;
    std::vector<std::unique_ptr<Counter>> counters_; // over all sessions
    std::vector<std::unique_ptr<Reader>> readers_;   // of the current one
};

} // namespace tool
