// Where packets go: a file, standard output, a picture.
#pragma once

#include "base/clock.h"
#include "base/outcome.h"
#include "session/session.h"

namespace tool {

class PacketSink {
public:
    PacketSink() = default;
    virtual ~PacketSink() = default;
    PacketSink(const PacketSink &) = delete;
    PacketSink &operator=(const PacketSink &) = delete;

    // On the thread that reads the stream; streams of several threads come at the same time.
    virtual void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) = 0;

    virtual bool IsDone() = 0;    // wants no more packets: complete, or failed
    virtual Outcome Finish() = 0; // completes the output; packets taken later are passed over
};

} // namespace tool
