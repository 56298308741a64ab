#include "recording.h"

namespace tool {
namespace {

constexpr auto kLook = std::chrono::milliseconds(100);

uint64_t BytesOf(const std::vector<StreamReport> &report) {
    uint64_t bytes = 0;
    for (const StreamReport &row : report) bytes += row.statistics.Bytes();
    return bytes;
}

std::vector<Stream> StreamsOf(const std::vector<StreamFormat> &formats) {
    std::vector<Stream> streams;
    for (const StreamFormat &format : formats) streams.push_back(format.stream);
    return streams;
}

} // namespace

PacketObserver Into(PacketSink &sink) {
    return [&sink](const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
        sink.Take(stream, packet, arrival);
    };
}

Ending WaitForEnd(const Reception &reception, PacketSink &sink, const ReceptionLimits &limits, Progress &progress,
                  Interruption &interruption) {
    Clock::time_point begin = Clock::now();
    for (;;) {
        const int signal = interruption.WaitFor(kLook);
        if (signal != 0) return {End::kSignal, signal};
        if (sink.IsDone()) return {End::kSinkDone, 0};
        const uint64_t bytes = BytesOf(reception.Report());
        if (limits.silence.count() > 0 && reception.IsSilentFor(limits.silence)) return {End::kSilence, 0};
        if (limits.silence.count() > 0 && bytes == 0) begin = Clock::now();
        const Clock::duration elapsed = Clock::now() - begin;
        if (limits.duration.count() > 0 && elapsed >= limits.duration) return {End::kDuration, 0};
        progress.Show(elapsed, bytes);
    }
}

Outcome ReceiveAndRecord(const Session &session, const std::vector<StreamFormat> &streams, PacketSink &sink,
                         const ReceptionLimits &limits, std::chrono::milliseconds split,
                         Interruption &interruption) {
    interruption.BeginGraceful();
    Reception reception(session, StreamsOf(streams), {Into(sink)});
    Ending ending;
    {
        Progress progress(limits.duration, split);
        ending = WaitForEnd(reception, sink, limits, progress, interruption);
    }
    // The file first: readers of silent streams take seconds to stop.
    Outcome written = sink.Finish();
    const std::vector<StreamReport> report = reception.Report();
    PrintReport(stderr, report);
    reception.Stop();
    if (!written.IsOk() && written.code == ExitCode::kOutputFailed) return written;
    if (ending.end == End::kSignal) return OutcomeOfSignal(ending.signal);
    if (!written.IsOk()) return written;
    if (Outcome missing = JudgeReport(report); !missing.IsOk()) return missing;
    if (ending.end == End::kSilence)
        return {ExitCode::kEndedEarly, "the media ended: nothing arrived any more; what came before is recorded"};
    return {};
}

} // namespace tool
