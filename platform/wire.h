// Reading and writing 16 and 32 bits in network byte order, at a place in a buffer.
// Readers of received bytes use ReceivedBytes, where every byte beyond the end reads as 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace rtsptap::wire {

inline uint16_t U16(const uint8_t *at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }

inline uint32_t U32(const uint8_t *at) {
    return static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 |
           static_cast<uint32_t>(at[2]) << 8 | at[3];
}

inline void PutU16(uint8_t *at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

inline void PutU32(uint8_t *at, uint32_t value) {
    PutU16(at, value >> 16);
    PutU16(at + 2, value);
}

// Received bytes whose headers may claim more than arrived: beyond the end everything is 0.
class ReceivedBytes {
public:
    explicit ReceivedBytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    std::size_t Size() const { return bytes_.size(); }
    uint8_t U8(std::size_t offset) const { return offset < bytes_.size() ? bytes_[offset] : uint8_t{0}; }
    uint16_t U16(std::size_t offset) const {
        if (offset + 2 <= bytes_.size()) return wire::U16(bytes_.data() + offset);
        return static_cast<uint16_t>(U8(offset) << 8);
    }
    uint32_t U32(std::size_t offset) const {
        if (offset + 4 <= bytes_.size()) return wire::U32(bytes_.data() + offset);
        return static_cast<uint32_t>(U16(offset)) << 16 | U16(offset + 2);
    }

private:
    std::span<const uint8_t> bytes_;
};

} // namespace rtsptap::wire
