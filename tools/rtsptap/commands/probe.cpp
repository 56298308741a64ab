#include "commands/probe.h"

#include "base/writing.h"
#include "reception/receive.h"
#include "views/arrivals.h"
#include "views/probe_result.h"

namespace tool {
namespace {

// Has enough when every stream has shown itself.
class ArrivalSink : public PacketSink {
public:
    explicit ArrivalSink(Arrivals &arrivals) : arrivals_(arrivals) {}

    void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) override {
        arrivals_.Note(stream, packet, arrival);
    }
    bool IsDone() override { return arrivals_.AreComplete(); }
    Outcome Finish() override { return {}; }

private:
    Arrivals &arrivals_;
};

Outcome JudgeArrivals(const std::vector<ProbedStream> &streams) {
    for (const ProbedStream &probed : streams)
        if (probed.stream.isReadable && !probed.firstPacket)
            return {ExitCode::kNoMedia, NameOf(probed.stream) + ": no packet arrived"};
    return {};
}

} // namespace

Outcome Probe(const ProbeSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    ProbeResult result;
    result.url = UrlWithoutCredentials(settings.server.url);
    Arrivals arrivals;
    Audience audience;
    audience.makeSink = [&arrivals](const OpenedSession &, std::unique_ptr<PacketSink> &sink) {
        sink = std::make_unique<ArrivalSink>(arrivals);
        return Outcome();
    };
    audience.opened = audience.refused = [&result, &arrivals](const OpenedSession &opened) {
        TakeOpening(opened, result);
        arrivals.Begin(ProbedStreamsOf(opened));
    };
    // As long as a first packet may take, so long may the others, and the key frames.
    result.outcome = ReceiveFromServer(settings.server, settings.server.idleTimeout, audience, interruption);
    result.streams = arrivals.Streams();
    if (result.outcome.IsOk()) result.outcome = JudgeArrivals(result.streams);
    if (result.url.empty()) return result.outcome;
    const bool reachedNothing = result.phases.size() < 2; // the name has an address, and nobody answers there
    const std::string shown = settings.json ? ProbeJson(result) : reachedNothing ? "" : ProbeText(result);
    const Outcome written = WriteText(output.Data(), shown, kStandardOutput);
    return written.IsOk() ? result.outcome : written;
}

} // namespace tool
