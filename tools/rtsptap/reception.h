// Takes the packets of a session's streams, one reading thread per stream, and counts them.
#pragma once

#include "interruption.h"
#include "report.h"
#include "session.h"
#include "statistics.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace tool {

// Sees every packet before it is freed, on the thread that reads its stream.
using PacketObserver = std::function<void(const Stream &, const RTPStreamData &, Clock::time_point arrival)>;

class Reception {
public:
    // Unreadable streams are passed over.
    Reception(const Session &session, const std::vector<Stream> &streams,
              std::vector<PacketObserver> observers = {});
    ~Reception() { Stop(); }
    Reception(const Reception &) = delete;
    Reception &operator=(const Reception &) = delete;

    std::vector<StreamReport> Report() const;         // at any time
    bool IsSilentFor(Clock::duration duration) const; // no stream has delivered anything for so long
    void Stop();                                      // up to five seconds for a stream that has just fallen silent

private:
    struct Reader {
        Stream stream;
        mutable std::mutex lock; // guards statistics
        StreamStatistics statistics;
        std::thread thread;
    };
    void Read(Reader &reader) const;

    const Session &session_;
    const std::vector<PacketObserver> observers_;
    const Clock::time_point begin_ = Clock::now();
    std::atomic<bool> stop_{false};
    std::list<Reader> readers_;
};

struct ReceptionLimits {
    std::chrono::milliseconds duration{0}; // 0: until interrupted
    std::chrono::milliseconds silence{0};  // ends when nothing has arrived for so long; 0: waits on
};

// Lets the reception go on up to its limits, then prints and judges what arrived.
Outcome ReceiveAndReport(const Reception &reception, const ReceptionLimits &limits, FILE *out,
                         Interruption &interruption);

} // namespace tool
