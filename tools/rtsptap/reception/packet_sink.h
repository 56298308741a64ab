// Where packets go: a file, standard output, a picture.
#pragma once

#include "base/clock.h"
#include "base/outcome.h"
#include "session/opening.h"

#include <span>

namespace tool {

class PacketSink {
public:
    PacketSink() = default;
    virtual ~PacketSink() = default;
    PacketSink(const PacketSink &) = delete;
    PacketSink &operator=(const PacketSink &) = delete;

    // Before each session's first packet; none of an earlier one is on its way.
    virtual void BeginSession(const OpenedSession &) {}

    // On the thread that reads the stream; streams of several threads come at the same time.
    virtual void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) = 0;

    // An RTCP packet of a stream, received or sent; on any thread.
    virtual void TakeControl(int32_t, bool, std::span<const uint8_t>) {}

    virtual bool IsDone() = 0;    // wants no more packets: complete, or failed
    virtual Outcome Finish() = 0; // completes the output; packets taken later are passed over
};

} // namespace tool
