// RTP payloads of H.264 (RFC 6184) to an Annex B byte stream: single NAL units, STAP-A and FU-A.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace rtsptap::test {

class H264Depacketizer {
public:
    void Take(std::span<const uint8_t> payload, bool marker);

    const std::vector<uint8_t> &Stream() const { return stream_; } // start codes before every NAL unit
    std::size_t Pictures() const { return pictures_; }             // access units ended by a marker
    std::size_t Malformed() const { return malformed_; }           // payloads that fit none of the three forms

private:
    void Append(std::span<const uint8_t> unit);
    void TakeAggregate(std::span<const uint8_t> units);
    void TakeFragment(std::span<const uint8_t> payload);

    std::vector<uint8_t> stream_;
    std::vector<uint8_t> fragments_; // of the NAL unit under way
    std::size_t pictures_ = 0;
    std::size_t malformed_ = 0;
};

} // namespace rtsptap::test
