// Takes the packets of sessions, one after the other, with one reading thread per stream, and counts them.
#pragma once

#include "reception/observation.h"
#include "reception/statistics.h"
#include "session/session.h"

#include <functional>
#include <memory>
#include <vector>

namespace tool {

// Sees every packet before it is freed, on the thread that reads its stream.
using PacketObserver = std::function<void(const Stream &, const RTPStreamData &, Clock::time_point arrival)>;

class Readers {
public:
    explicit Readers(std::vector<PacketObserver> observers = {});
    ~Readers() { End(); }
    Readers(const Readers &) = delete;
    Readers &operator=(const Readers &) = delete;

    // Goes on counting where an earlier session ended. Unreadable streams are left out.
    void Begin(const std::shared_ptr<Session> &session, const std::vector<Stream> &streams);

    // No observer runs afterwards. A reader that waits in the library leaves when that returns, and holds the
    // session until then.
    void End();

    std::vector<StreamObservation> Streams() const; // at any time

private:
    struct Counter;
    struct Reader;
    static void Read(Reader &reader);

    const std::shared_ptr<const std::vector<PacketObserver>> observers_;
    std::shared_ptr<Session> session_;
    std::vector<std::shared_ptr<Counter>> counters_; // over all sessions
    std::vector<std::shared_ptr<Reader>> readers_;   // of the current one
};

} // namespace tool
