#include "reception/statistics.h"

#include <algorithm>

namespace tool {

void StreamStatistics::NoteArrival(Clock::time_point arrival) {
    if (firstArrival_ == Clock::time_point{}) firstArrival_ = lastArrival_ = arrival;
    CountGap(arrival - lastArrival_);
    lastArrival_ = arrival;
}

void StreamStatistics::BeginSession() {
    if (now_.packets == 0) return;
    if (before_.packets == 0) before_.firstNumber = now_.firstNumber;
    before_.ssrc = now_.ssrc;
    before_.highestNumber = now_.highestNumber;
    before_.clockRate = now_.clockRate;
    before_.meanJitterUs = MeanJitterUs();
    before_.mostJitterUs = std::max(before_.mostJitterUs, now_.mostJitterUs);
    for (uint64_t RTSPTapStreamStatistics::*const figure :
         {&RTSPTapStreamStatistics::packets, &RTSPTapStreamStatistics::bytes, &RTSPTapStreamStatistics::reordered,
          &RTSPTapStreamStatistics::duplicates, &RTSPTapStreamStatistics::missing,
          &RTSPTapStreamStatistics::expected, &RTSPTapStreamStatistics::droppedByKernel})
        before_.*figure += now_.*figure;
    now_ = {};
}

void StreamStatistics::EndAt(Clock::time_point end) {
    if (Packets() > 0 && end - lastArrival_ >= kOutage) CountGap(end - lastArrival_);
}

void StreamStatistics::CountGap(Clock::duration gap) {
    longestGap_ = std::max(longestGap_, gap);
    if (gap < kOutage) return;
    ++outages_;
    withoutMedia_ += gap;
}

double StreamStatistics::LossPercent() const {
    const uint64_t expected = Expected();
    return expected == 0 ? 0 : 100 * static_cast<double>(Lost()) / static_cast<double>(expected);
}

double StreamStatistics::BitsPerSecond() const {
    const double seconds = std::chrono::duration<double>(lastArrival_ - firstArrival_).count();
    return seconds > 0 ? static_cast<double>(Bytes()) * 8 / seconds : 0;
}

// Each session's by its packets.
double StreamStatistics::MeanJitterUs() const {
    const auto before = static_cast<double>(before_.packets);
    const auto now = static_cast<double>(now_.packets);
    return before + now == 0 ? 0 : (before_.meanJitterUs * before + now_.meanJitterUs * now) / (before + now);
}

std::optional<double> StreamStatistics::Milliseconds(double microseconds) const {
    if (Latest().clockRate <= 0 || Packets() == 0) return std::nullopt;
    return microseconds / 1000;
}

} // namespace tool
