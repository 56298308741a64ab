#include "tests/impair/queue_model.h"

#include "tests/support/packet_builder.h"

#include <iterator>
#include <set>
#include <utility>

namespace rtsptap::test {
namespace {

constexpr int64_t kTicksPerMs = 90; // for audio, too

uint32_t Byte(const std::string &bytes, std::size_t at) { return static_cast<uint8_t>(bytes.at(at)); }

std::string PayloadIn(const std::string &datagram) {
    const uint32_t first = Byte(datagram, 0);
    std::size_t begin = 12 + 4 * (first % 16);
    if (first & 0x10) begin += 4 + 4 * Word16(datagram, begin + 2);
    const std::size_t padding = first & 0x20 ? Byte(datagram, datagram.size() - 1) : 0;
    return datagram.substr(begin, datagram.size() - begin - padding);
}

bool IsAccepted(const std::string &datagram) {
    const uint32_t type = Byte(datagram, 1) % 128;
    return Byte(datagram, 0) >> 6 == 2 && (type >= 96 || std::set{0U, 8U, 10U, 11U, 14U, 26U, 33U}.contains(type));
}

int64_t Span(uint32_t newer, uint32_t older) { return static_cast<int32_t>(newer - older); }

} // namespace

void QueueModel::DropHead(uint64_t &figure) {
    queue.pop_front();
    --count;
    ++figure;
}

void QueueModel::Arrive(const std::string &datagram) {
    if (!IsAccepted(datagram)) {
        ++ignored;
        return;
    }
    const auto number = Word16(datagram, 2);
    const uint32_t timestamp = Word32(datagram, 4);
    const uint16_t before = std::exchange(lastNumber, number);
    const bool gap = before != 0 && number != (before + 1) % 65536; // behind number 0 nothing is a gap
    const std::string stored = datagram.substr(0, mtu);             // the rest of a longer one is lost
    ModelPacket packet{stored, number, timestamp, ++counter, gap, PayloadIn(stored)};

    // Too long a span is cut down to the target.
    if (latency.target != 0 && !queue.empty() &&
        Span(timestamp, queue.front().timestamp) > latency.overflow * kTicksPerMs)
        while (!queue.empty() && Span(timestamp, queue.front().timestamp) > latency.target * kTicksPerMs)
            DropHead(trimmed);

    // A number up to 499 below the newest goes before all that are greater; from 500 on it has wrapped.
    auto place = queue.end();
    if (!queue.empty() && number < queue.back().number && queue.back().number - number < 500) {
        for (; place != queue.begin() && std::prev(place)->number > number; --place) ++passed;
        ++late;
    }

    // At 1024 the oldest makes room, the new one goes to the end and is not counted.
    if (count == 1024) {
        DropHead(dropped);
        queue.push_back(std::move(packet));
    } else {
        queue.insert(place, std::move(packet));
        ++count;
    }
}

bool QueueModel::HoldsBack() const {
    return latency.target != 0 &&
           Span(queue.back().timestamp, queue.front().timestamp) <= latency.underflow * kTicksPerMs;
}

ModelPacket QueueModel::Take() {
    ModelPacket packet = std::move(queue.front());
    queue.pop_front();
    --count;
    return packet;
}

} // namespace rtsptap::test
