// Packets of a session on their way into a sink, and when that ends.
#pragma once

#include "interruption.h"
#include "progress.h"
#include "reception.h"
#include "sink.h"

namespace tool {

enum class End { kDuration, kSilence, kSinkDone, kSignal };

struct Ending {
    End end = End::kDuration;
    int signal = 0; // of kSignal
};

PacketObserver Into(PacketSink &sink);

// Where silence is limited, the duration begins with the first packet.
Ending WaitForEnd(const Reception &reception, PacketSink &sink, const ReceptionLimits &limits, Progress &progress,
                  Interruption &interruption);

// Lets the packets go into a sink, up to the limits, then completes the sink and judges what arrived. The report
// goes to standard error: standard output may be the recording.
Outcome ReceiveAndRecord(const Session &session, const std::vector<StreamFormat> &streams, PacketSink &sink,
                         const ReceptionLimits &limits, std::chrono::milliseconds split,
                         Interruption &interruption);

} // namespace tool
