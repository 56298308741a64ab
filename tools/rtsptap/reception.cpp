#include "reception.h"

#include <algorithm>

namespace tool {
namespace {

constexpr auto kPauseWithoutPacket = std::chrono::milliseconds(10);
constexpr auto kSilence = std::chrono::seconds(1);
constexpr auto kLook = std::chrono::milliseconds(100); // how often limits are looked at

} // namespace

Reception::Reception(const Session &session, const std::vector<Stream> &streams,
                     std::vector<PacketObserver> observers)
    : session_(session), observers_(std::move(observers)) {
    for (const Stream &stream : streams) {
        if (!stream.isReadable) continue;
        Reader &reader = readers_.emplace_back();
        reader.stream = stream;
        reader.thread = std::thread([this, &reader] { Read(reader); });
    }
}

std::vector<StreamReport> Reception::Report() const {
    std::vector<StreamReport> report;
    for (const Reader &reader : readers_) {
        const std::lock_guard guard(reader.lock);
        report.push_back({reader.stream, reader.statistics});
    }
    return report;
}

bool Reception::IsSilentFor(Clock::duration duration) const {
    Clock::time_point last = begin_;
    for (const StreamReport &row : Report()) last = std::max(last, row.statistics.LastArrival());
    return Clock::now() - last >= duration;
}

void Reception::Stop() {
    stop_ = true;
    for (Reader &reader : readers_)
        if (reader.thread.joinable()) reader.thread.join();
}

// Nothing ends the library's wait of five seconds but a packet. A stream that is silent is therefore looked at from
// time to time, so that Stop() has no need to sit the wait out; one that flows is waited for, to note when it
// arrives.
void Reception::Read(Reader &reader) const {
    Clock::time_point last;
    while (!stop_) {
        const bool flows = Clock::now() - last < kSilence;
        const Packet packet =
            flows || session_.HasPacket(reader.stream.codecType) ? session_.Take(reader.stream.codecType) : nullptr;
        if (packet == nullptr) {
            std::this_thread::sleep_for(kPauseWithoutPacket);
            continue;
        }
        last = Clock::now();
        for (const PacketObserver &observe : observers_) observe(reader.stream, *packet, last);
        const std::lock_guard guard(reader.lock);
        reader.statistics.Count(*packet, last);
    }
}

Outcome ReceiveAndReport(const Reception &reception, const ReceptionLimits &limits, FILE *out,
                         Interruption &interruption) {
    interruption.BeginGraceful();
    const Clock::time_point begin = Clock::now();
    int signal = 0;
    bool silent = false;
    bool over = false;
    while (signal == 0 && !silent && !over) {
        signal = interruption.WaitFor(kLook);
        silent = limits.silence.count() > 0 && reception.IsSilentFor(limits.silence);
        over = limits.duration.count() > 0 && Clock::now() - begin >= limits.duration;
    }
    const std::vector<StreamReport> report = reception.Report();
    if (!PrintReport(out, report)) return {ExitCode::kOutputFailed, "standard output: the report was not written"};
    if (signal != 0) return OutcomeOfSignal(signal);
    if (Outcome missing = JudgeReport(report); !missing.IsOk()) return missing;
    if (silent) return {ExitCode::kEndedEarly, "the media ended: nothing arrived any more"};
    return {};
}

} // namespace tool
