// A second statement of the rules by which a stream's queue places, drops and holds back packets. It shares no code
// with the library and no structure either: one flat list, every rule spelt out on it.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

namespace rtsptap::test {

struct Latency { // ms, as RTPClientConfigLatency takes them
    int32_t target = 0, underflow = 0, overflow = 0;
};

struct ModelPacket {
    std::string datagram;
    uint16_t number;
    uint32_t timestamp;
    uint32_t index; // packetIndex
    bool lossFlag;
    std::string payload;
};

struct QueueModel {
    Latency latency;
    uint32_t counter = 0; // the client's packetCounter
    std::size_t mtu = 33000;
    std::deque<ModelPacket> queue = {};
    int32_t count = 0; // what RTPClientGetNbOfPktInBuffer tells
    uint16_t lastNumber = 0;
    uint64_t ignored = 0, late = 0, passed = 0, trimmed = 0,
             dropped = 0; // so far; `passed`: by those that are late

    void Arrive(const std::string &datagram);
    bool HoldsBack() const; // the head, if there is one
    ModelPacket Take();
    uint32_t HeadIndex() const { return queue.empty() ? 0 : queue.front().index; }

private:
    void DropHead(uint64_t &figure);
};

} // namespace rtsptap::test
