// What has come of a session's streams: packets, their times, figures.
#include "session/session.h"

namespace tool {

int32_t Session::NumberOf(const RTSPTapGroupPacket &record) const {
    const auto index = static_cast<std::size_t>(record.stream - 1);
    return index < listened_.size() ? listened_[index] : record.stream;
}

std::optional<std::chrono::nanoseconds> Session::SentAt(int32_t number, const RTPStreamData &packet) const {
    RTSPTapPacketTimes times{};
    times.recordSize = sizeof times;
    RTSPTapGetPacketTimes(client_, InLibrary(number), &packet, &times);
    if (times.source != RTSPTAP_TIME_SENDER_REPORT) return std::nullopt;
    return std::chrono::nanoseconds(times.senderNs);
}

RTSPTapStreamStatistics Session::Statistics(int32_t number) const {
    RTSPTapStreamStatistics statistics{};
    statistics.recordSize = sizeof statistics;
    RTSPTapGetStreamStatistics(client_, InLibrary(number), &statistics);
    return statistics;
}

int64_t Session::ReceiveBufferBytes() const {
    int64_t bytes = 0;
    RTSPTapGetOption(client_, RTSPTAP_OPTION_RECEIVE_BUFFER_GRANTED, &bytes);
    return bytes;
}

} // namespace tool
